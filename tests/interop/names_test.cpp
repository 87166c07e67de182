// Names as the openssl program writes them and makes them: those of every authority that this machine trusts, and some
// that a person may type.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>

#include <gtest/gtest.h>

#include <sstream>

#include "interop/openssl_tool.h"
#include "support/hex.h"

namespace {

template <class Record>
struct Decoded {
  Decoded(LPCSTR type, const Bytes& der) {
    DWORD size = 0;
    EXPECT_TRUE(CryptDecodeObjectEx(X509_ASN_ENCODING, type, der.data(), static_cast<DWORD>(der.size()),
                                    CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, &size));
  }
  ~Decoded() { LocalFree(record); }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;
  Record* record = nullptr;
};

std::string TextOf(CERT_NAME_BLOB name, DWORD form) {
  std::string text(CertNameToStrA(X509_ASN_ENCODING, &name, form, nullptr, 0), '\0');
  const DWORD size =
      CertNameToStrA(X509_ASN_ENCODING, &name, form, text.data(), static_cast<DWORD>(text.size()));
  text.resize(size - 1);
  return text;
}

// Empty, with a code, when the text does not parse.
Bytes Parsed(const std::string& text) {
  BYTE encoded[4096];
  DWORD size = sizeof(encoded);
  SetLastError(0);
  if (!CertStrToNameA(X509_ASN_ENCODING, text.c_str(), CERT_X500_NAME_STR, nullptr, encoded, &size, nullptr))
    return {};
  return {encoded, encoded + size};
}

Bytes DerOf(const Bytes& pem) {
  const std::string text(pem.begin(), pem.end());
  Bytes der(text.size());
  DWORD size = static_cast<DWORD>(der.size());
  EXPECT_TRUE(
      CryptStringToBinaryA(text.c_str(), 0, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr));
  der.resize(size);
  return der;
}

// What is written is read again, and says the same. Digits do not pass the check of a PrintableString.
void ExpectReadable(const CERT_NAME_BLOB& name) {
  const std::string text = TextOf(name, CERT_X500_NAME_STR);
  Bytes encoded = Parsed(text);
  if (encoded.empty() && GetLastError() == CRYPT_E_INVALID_PRINTABLE_STRING) return;
  EXPECT_EQ(TextOf({static_cast<DWORD>(encoded.size()), encoded.data()}, CERT_X500_NAME_STR), text);
}

TEST(Names, OfEveryAuthorityAsOpensslWritesThem) {
  std::istringstream lines(RunShell("cd '" + WorkDirectory().string()
                                    + "' && awk '/BEGIN CERT/{n++} {print > (\"authority\" n \".pem\")}' "
                                      "/etc/ssl/certs/ca-certificates.crt"
                                      " && for i in $(seq $(ls authority*.pem | wc -l)); do openssl x509 -in "
                                      "authority$i.pem -noout -subject"
                                      " -issuer -nameopt oid,utf8,sep_comma_plus_space; done"));
  constexpr DWORD kForm = CERT_OID_NAME_STR | CERT_NAME_STR_NO_QUOTING_FLAG;
  int count = 0;
  for (std::string subject, issuer; std::getline(lines, subject) && std::getline(lines, issuer);) {
    SCOPED_TRACE(subject);
    const Bytes der = DerOf(ReadFile(WorkDirectory() / ("authority" + std::to_string(++count) + ".pem")));
    const Decoded<CERT_INFO> certificate(X509_CERT_TO_BE_SIGNED, der);
    ASSERT_TRUE(certificate.record);
    EXPECT_EQ("subject=" + TextOf(certificate.record->Subject, kForm), subject);
    EXPECT_EQ("issuer=" + TextOf(certificate.record->Issuer, kForm), issuer);
    ExpectReadable(certificate.record->Subject);
  }
  EXPECT_GT(count, 100) << "the package ca-certificates is not installed";
}

const struct {
  const char* text;
  const char* subject;  // of openssl req
} kTyped[] = {
    {"C=RU, O=\"a, b\", CN=c",                  "/C=RU/O=a, b/CN=c"                             },
    {"OU=b+CN=\\\"a\\\";S=\"\"\"x\"\"\"",       "/CN=\"a\"+OU=b/ST=\"x\""                       },
    {"E=a@b.example, DESCRIPTION=\xD0\x96",     "/emailAddress=a@b.example/description=\xD0\x96"},
    {"2.5.4.42=\xF0\x9F\x98\x80,OID.2.5.4.9=b", "/GN=\xF0\x9F\x98\x80/street=b"                 },
};

TEST(Names, TypedAsOpensslEncodesThem) {
  RunShell("openssl ecparam -name prime256v1 -genkey -noout -out '" + WorkDirectory().string()
           + "/names.key'");
  for (const auto& [text, subject] : kTyped) {
    SCOPED_TRACE(text);
    const std::string der = RunShell("openssl req -new -utf8 -multivalue-rdn -outform DER -key '"
                                     + WorkDirectory().string() + "/names.key' -subj '" + subject + "'");
    const Decoded<CERT_REQUEST_INFO> request(X509_CERT_REQUEST_TO_BE_SIGNED, Bytes(der.begin(), der.end()));
    ASSERT_TRUE(request.record);
    const CERT_NAME_BLOB& name = request.record->Subject;
    EXPECT_EQ(ToHex(Parsed(text)), ToHex({name.pbData, name.cbData}));
  }
}

}  // namespace
