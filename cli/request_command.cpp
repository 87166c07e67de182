// certkern request: PKCS #10.
#include "command.h"
#include "encoded.h"
#include "extension_options.h"
#include "output.h"
#include "signing.h"
#include "subject.h"

#include <certkern/oids.h>

#include <memory>

namespace certkern::cli {
namespace {

struct RequestArguments {
  SigningOptions signing;
  std::vector<std::string> subject;
  ExtensionOptions extensions;
  OutputOptions output;
};

// The value of the attribute extensionRequest (RFC 2985, 5.4.2). A request without any attribute would be encoded without
// the field that RFC 2986, 4.1 wants to see, so there is always one extension to ask for.
Bytes EncodeExtensions(const ExtensionOptions& options, const CERT_PUBLIC_KEY_INFO& publicKey) {
  ExtensionList list;
  AddSubjectKeyIdentifier(KeyIdentifier(publicKey), list);
  AddAskedExtensions(options, list);
  std::vector<CERT_EXTENSION> records = list.records();
  const CERT_EXTENSIONS extensions{CheckedSize(records.size()), records.data()};
  return Encode(X509_EXTENSIONS, &extensions, "the extensions");
}

int RunNew(const RequestArguments& arguments) {
  CheckDestination(arguments.output, Secrecy::Public);
  const Bytes subject = EncodeSubject(arguments.subject);
  const ContainerKey key = OpenKey(arguments.signing.choice);
  SignatureAlgorithm algorithm = ChooseSignature(arguments.signing, key);
  PublicKeyRecord publicKey = PublicKeyOf(key);
  const Bytes extensions = EncodeExtensions(arguments.extensions, publicKey.info());

  CRYPT_ATTR_BLOB value = BlobOf(extensions);
  std::string oid = szOID_RSA_certExtensions;
  CRYPT_ATTRIBUTE attribute{oid.data(), 1, &value};
  CERT_REQUEST_INFO request{};
  request.dwVersion = CERT_REQUEST_V1;
  request.Subject = BlobOf(subject);
  request.SubjectPublicKeyInfo = publicKey.info();
  request.cAttribute = 1;
  request.rgAttribute = &attribute;

  Unlock(key, arguments.signing.choice.pin, arguments.signing.choice.place);
  WriteObject(arguments.output, "CERTIFICATE REQUEST",
              SignRecord(key, X509_CERT_REQUEST_TO_BE_SIGNED, &request, algorithm));
  return 0;
}

Runner PrepareNew(CLI::App& command) {
  const auto arguments = std::make_shared<RequestArguments>();
  AddSigningOptions(command, arguments->signing);
  AddSubjectOption(command, arguments->subject);
  AddExtensionOptions(command, arguments->extensions);
  AddOutputOptions(command, arguments->output);
  command.footer(
      "Example:\n"
      "  certkern request new --key server --subject C=RU --subject O=Example --subject CN=www.example.org "
      "\\\n"
      "    --dns www.example.org --usage digitalSignature,keyAgreement --extended-usage serverAuth --out "
      "server.csr");
  return [arguments] { return RunNew(*arguments); };
}

constexpr Command kCommands[] = {
    {"new", "Make a request for a certificate of a key", PrepareNew}
};

}  // namespace

Runner PrepareRequest(CLI::App& group) { return PrepareGroup(group, kCommands); }

}  // namespace certkern::cli
