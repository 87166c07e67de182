// Signers of two programs with their authorities, and messages that openssl has made.
#ifndef CERTKERN_TESTS_CLI_SIGNED_FILES_H
#define CERTKERN_TESTS_CLI_SIGNED_FILES_H

#include "tool_home.h"

#include <gtest/gtest.h>

#include <string>

// root > ca > anna, whose key is the tool's, and boris, whose key is openssl's and who is revoked in revoked.crl; root > vera, who has
// the key of boris.
class SignedFiles : public testing::Test {
 protected:
  SignedFiles() {
    home.out(R"(
      printf 'basicConstraints=critical,CA:TRUE\nsubjectKeyIdentifier=hash\nkeyUsage=keyCertSign,cRLSign\n' >ca.ext
      printf 'subjectKeyIdentifier=hash\nauthorityKeyIdentifier=keyid\nkeyUsage=digitalSignature\n' >end.ext
      for n in root ca boris; do
        openssl genpkey -algorithm gost2012_256 -pkeyopt paramset:A -out $n.key 2>/dev/null
        openssl req -new -key $n.key -subj /CN=$n -out $n.csr
      done
      certkern key new anna --no-pin --algorithm gost2012-256 --purpose signature
      certkern request new --key anna --subject CN=anna --out anna.csr
      sign() { openssl x509 -req -in $1.csr -CA $2.crt -CAkey $2.key -set_serial $3 -days 30 -extfile $4.ext \
        -out $1.crt 2>/dev/null; }
      openssl x509 -req -in root.csr -signkey root.key -days 30 -extfile ca.ext -out root.crt 2>/dev/null
      sign ca root 2 ca; sign anna ca 3 end; sign boris ca 4 end
      openssl req -new -key boris.key -subj /CN=vera -out vera.csr; sign vera root 5 end
      touch index; echo 01 >number
      printf '[ca]\ndefault_ca=d\n[d]\ndatabase=index\ndefault_md=md_gost12_256\ncrlnumber=number\n' >ca.cnf
      list() { openssl ca -config ca.cnf -gencrl -keyfile $1.key -cert $1.crt -crldays 5 -out $2.crl 2>/dev/null; }
      list root root; list ca ca
      openssl ca -config ca.cnf -keyfile ca.key -cert ca.crt -revoke boris.crt 2>/dev/null; list ca revoked
      printf 'what is signed\n' >text
      other() { openssl cms -sign -binary -in text -signer boris.crt -inkey boris.key -md md_gost12_256 -outform DER "$@" \
        2>/dev/null; }
      other -nodetach -out other.cms; other -out other.sig; other -nodetach -cades -out cades.cms
      other -nodetach -noattr -out bare.cms; other -nodetach -nocerts -out nocerts.cms)");
  }
  static constexpr char kWorld[] =
      " --store root.crt --additional ca.crt --additional root.crl --cache-only ";
  static constexpr char kByAnna[] = " --key anna --certificate anna.crt ";
  ToolResult verify(const std::string& rest, const std::string& crl = "ca.crl") const {
    return home.run("certkern verify " + rest + kWorld + "--additional " + crl);
  }
  std::string opensslVerifies(const std::string& rest) const {
    return home
        .run("openssl cms -verify -binary -CAfile root.crt -certfile ca.crt -purpose any -out out " + rest
             + " && cmp out text && echo same")
        .out;
  }

  const ToolHome home;
};

#endif
