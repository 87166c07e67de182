// certkern key import and export: between key containers and files.
#include "command.h"
#include "container.h"
#include "key_blob.h"
#include "output.h"
#include "private_key_file.h"
#include "text.h"

#include <fmt/format.h>

#include <memory>

namespace certkern::cli {
namespace {

struct ImportArguments {
  Place place;
  std::string file;
  std::string purpose;
  bool exportable = false;
  PinOptions pin;
  PinOptions password;
};

const KeyFamily& FamilyOf(const SecretBytes& privateKeyInfo) {
  const std::string oid = AlgorithmOfPrivateKey(privateKeyInfo);
  const KeyFamily* family = FindFamilyByOid(oid);
  if (!family) throw Failure(fmt::format("a private key of algorithm {} cannot be used here", oid));
  return *family;
}

int RunImport(const ImportArguments& arguments) {
  RequireFree(arguments.place);
  const SecretBytes info = ReadPrivateKey(arguments.file, arguments.password);
  const KeyFamily& family = FamilyOf(info);
  const ALG_ID algorithm = AlgorithmOfPurpose(family, arguments.purpose);
  const SecretBytes pin = AskNewPin(arguments.pin, "New PIN of " + arguments.place.shown());
  NewContainer container(arguments.place, family.providerType, pin);
  ImportPrivateKey(container.provider(), algorithm, arguments.exportable ? CRYPT_EXPORTABLE : 0, info);
  container.keep();
  return 0;
}

struct ExportArguments {
  KeyChoice choice;
  bool publicHalf = false;
  OutputOptions output;
};

void ExportPublic(const ContainerKey& key, const OutputOptions& output) {
  PublicKeyRecord record = PublicKeyOf(key);
  WriteObject(output, "PUBLIC KEY", Encode(X509_PUBLIC_KEY_INFO, &record.info(), "the public key"));
}

int RunExport(const ExportArguments& arguments) {
  const ContainerKey key = OpenKey(arguments.choice);
  if (arguments.publicHalf) {
    ExportPublic(key, arguments.output);
    return 0;
  }
  // before a PIN is typed for nothing
  const std::string name = arguments.choice.place.shown();
  if (!(KeyParam<DWORD>(key.key.get(), KP_PERMISSIONS, name) & CRYPT_EXPORT))
    ThrowCode(name, NTE_BAD_KEY_STATE);
  CheckDestination(arguments.output, Secrecy::Secret);
  Unlock(key, arguments.choice.pin, arguments.choice.place);
  WriteObject(arguments.output, "PRIVATE KEY", ExportPrivateKey(key), Secrecy::Secret);
  return 0;
}

}  // namespace

Runner PrepareKeyImport(CLI::App& command) {
  const auto arguments = std::make_shared<ImportArguments>();
  AddPlaceOptions(command, arguments->place);
  command.add_option("FILE", arguments->file, "The private key: PKCS #8 as PEM or DER; - is standard input")
      ->required()
      ->type_name("");
  AddPurposeOption(command, arguments->purpose, "What the key is for; as for \"certkern key new\"");
  command.add_flag("--exportable", arguments->exportable, "Allow \"certkern key export\" of the private key");
  AddPinOptions(command, arguments->pin, "pin", NoPin::Allowed);
  AddPinOptions(command, arguments->password, "password");
  command.footer(
      "A key under a password is opened when it is PBES2 with PBKDF2 and AES.\n\n"
      "Example:\n"
      "  certkern key import server server.key --no-pin");
  return [arguments] { return RunImport(*arguments); };
}

Runner PrepareKeyExport(CLI::App& command) {
  const auto arguments = std::make_shared<ExportArguments>();
  AddPlaceOptions(command, arguments->choice.place);
  AddPurposeOption(command, arguments->choice.purpose, "Which key, where there are two");
  command.add_flag("--public", arguments->publicHalf, "Only the public key, SubjectPublicKeyInfo");
  AddOutputOptions(command, arguments->output);
  command.add_flag("--force", arguments->output.force, "Write a private key to a terminal, too");
  AddPinOptions(command, arguments->choice.pin, "pin");
  command.footer(
      "A private key is written unencrypted, as PKCS #8, to a new file that only its owner may read. It must "
      "have\n"
      "been made or imported with --exportable.\n\n"
      "Examples:\n"
      "  certkern key export anna --public --out anna.pub\n"
      "  certkern key export anna | openssl pkcs8 -topk8 -v2 aes-256-cbc -out anna.p8");
  return [arguments] { return RunExport(*arguments); };
}

}  // namespace certkern::cli
