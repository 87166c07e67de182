// certkern key: makes, shows and deletes key containers.
#include "command.h"
#include "container.h"
#include "container_fields.h"
#include "failure.h"
#include "output.h"
#include "terminal.h"
#include "text.h"

#include <certkern/errors.h>
#include <fmt/format.h>

#include <memory>

namespace certkern::cli {
namespace {

// --- new ---

struct NewArguments {
  Place place;
  std::string algorithm;
  std::string parameters;
  DWORD bits = 0;
  std::string purpose;
  bool exportable = false;
  PinOptions pin;
};

constexpr unsigned kLengthShift = 16;  // of the key's length in the flags

std::string ParametersFor(const NewArguments& arguments, const KeyFamily& family) {
  if (arguments.parameters.empty()) return family.fixedSet ? family.fixedSet : "";
  const std::string names = ParameterSetNames(family);
  if (names.empty()) throw WrongUsage(fmt::format("--parameters: {} has no parameter sets", family.name));
  std::string oid = ParameterSetOid(family, arguments.parameters);
  if (oid.empty())
    throw WrongUsage(
        fmt::format("--parameters: for {} this is a dotted identifier or one of {}", family.name, names));
  return oid;
}

void Generate(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, const std::string& parameters) {
  KeyHandle key;
  if (!CryptGenKey(provider, algorithm, flags | CRYPT_PREGEN, key.out())) ThrowLastError("a new key");
  if (!parameters.empty()
      && !CryptSetKeyParam(key.get(), KP_CURVEOID, reinterpret_cast<const BYTE*>(parameters.c_str()), 0))
    ThrowLastError("--parameters");
  if (!CryptSetKeyParam(key.get(), KP_X, nullptr, 0)) ThrowLastError("a new key");
}

int RunNew(const NewArguments& arguments) {
  const KeyFamily& family = *FindFamilyByName(arguments.algorithm);
  if (arguments.bits && family.exchange != CALG_RSA_KEYX)
    throw WrongUsage("--bits: only RSA keys come in lengths; others have --parameters");
  const std::string parameters = ParametersFor(arguments, family);
  const ALG_ID algorithm = AlgorithmOfPurpose(family, arguments.purpose);
  RequireFree(arguments.place);  // before a PIN is typed for nothing
  const SecretBytes pin = AskNewPin(arguments.pin, "New PIN of " + arguments.place.shown());
  NewContainer container(arguments.place, family.providerType, pin);
  const DWORD flags = arguments.bits << kLengthShift | (arguments.exportable ? CRYPT_EXPORTABLE : 0);
  Generate(container.provider(), algorithm, flags, parameters);
  container.keep();
  return 0;
}

Runner PrepareNew(CLI::App& command) {
  const auto arguments = std::make_shared<NewArguments>();
  AddPlaceOptions(command, arguments->place);
  std::vector<std::string> names;
  for (const KeyFamily& family : KeyFamilies()) names.emplace_back(family.name);
  command.add_option("--algorithm", arguments->algorithm, "The kind of key")
      ->required()
      ->check(CLI::IsMember(names));
  command
      .add_option("--parameters", arguments->parameters,
                  "Parameter set or curve: a name or a dotted identifier")
      ->type_name("SET");
  command.add_option("--bits", arguments->bits, "Length of an RSA key; 2048 unless given")
      ->check(CLI::Range(1024, 16384))
      ->type_name("N");
  AddPurposeOption(command, arguments->purpose,
                   "What the key is for; exchange, which includes signatures, unless its kind only signs");
  command.add_flag("--exportable", arguments->exportable, "Allow \"certkern key export\" of the private key");
  AddPinOptions(command, arguments->pin, "pin", NoPin::Allowed);
  std::string sets;
  for (const KeyFamily& family : KeyFamilies()) {
    if (!family.sets.empty()) sets += fmt::format("  {:14}{}\n", family.name, ParameterSetNames(family));
  }
  command.footer("Parameter sets, the usual one first:\n" + sets
                 + "\nThe PIN is asked for on the terminal, twice, unless an option says where it comes from.\n\n"
                   "Examples:\n"
                   "  certkern key new anna --algorithm gost2012-256\n"
                   "  certkern key new server --algorithm ecdsa --parameters P-384 --no-pin\n"
                   "  certkern key new backup --algorithm rsa --bits 3072 --exportable --pin-command 'pass show rsa'");
  return [arguments] { return RunNew(*arguments); };
}

// --- list, show ---

struct ShowArguments {
  Place place;
  bool json = false;
};

// A container that cannot be read is told of, and the others are shown.
int RunList(const ShowArguments& arguments) {
  std::vector<Field> containers;
  bool sound = true;
  for (const std::string& name : ContainerNames(arguments.place.machine)) {
    try {
      containers.push_back(ContainerField({name, arguments.place.machine}, Detail::Short));
    } catch (const Failure& failure) {
      Complain("{}", failure.what());
      sound = false;
    }
  }
  PrintObjects(containers, arguments.json);
  return FlushOutput() && sound ? 0 : kFailed;
}

int RunShow(const ShowArguments& arguments) {
  const Field container = ContainerField(arguments.place, Detail::Full);
  PrintObjects({&container, 1}, arguments.json);
  return FlushOutput() ? 0 : kFailed;
}

Runner PrepareList(CLI::App& command) {
  const auto arguments = std::make_shared<ShowArguments>();
  AddMachineOption(command, arguments->place);
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object for each container");
  return [arguments] { return RunList(*arguments); };
}

Runner PrepareShowKey(CLI::App& command) {
  const auto arguments = std::make_shared<ShowArguments>();
  AddPlaceOptions(command, arguments->place);
  command.add_flag("--json", arguments->json, "Write JSON: an array with the container as its one object");
  return [arguments] { return RunShow(*arguments); };
}

// --- delete ---

struct DeleteArguments {
  Place place;
  bool yes = false;
};

int RunDelete(const DeleteArguments& arguments) {
  if (!arguments.yes) {
    const Terminal terminal("insist with --yes");
    const std::string answer = terminal.askLine(fmt::format(
        "Delete the key container {} with its private keys for good? Type yes: ", arguments.place.shown()));
    if (answer != "yes") throw Failure("nothing was deleted");
  }
  DeleteContainer(arguments.place);
  return 0;
}

Runner PrepareDelete(CLI::App& command) {
  const auto arguments = std::make_shared<DeleteArguments>();
  AddPlaceOptions(command, arguments->place);
  command.add_flag("--yes", arguments->yes, "Do not ask");
  return [arguments] { return RunDelete(*arguments); };
}

// --- set-pin ---

struct PinArguments {
  Place place;
  PinOptions present;
  PinOptions other;
  bool remove = false;
};

int RunSetPin(const PinArguments& arguments) {
  const std::string name = arguments.place.shown();
  const std::vector<DWORD> specs = SpecsIn(OpenContainer(arguments.place, PROV_GOST_2012_256).get());
  if (specs.empty()) throw Failure(name + ": the key container is empty");
  const ContainerKey key = OpenKey(arguments.place, specs[0]);  // one PIN serves both keys
  Unlock(key, arguments.present, arguments.place);
  SecretBytes pin(1);  // no PIN
  if (!arguments.remove) pin = AskNewPin(arguments.other, "New PIN of " + name);
  if (!CryptSetProvParam(key.provider.get(), PP_CHANGE_PIN, pin.data(), 0)) ThrowLastError(name);
  return 0;
}

Runner PrepareSetPin(CLI::App& command) {
  const auto arguments = std::make_shared<PinArguments>();
  AddPlaceOptions(command, arguments->place);
  AddPinOptions(command, arguments->present, "pin");
  AddPinOptions(command, arguments->other, "new-pin");
  command.add_flag("--remove", arguments->remove, "Take the PIN away: the rights of the files remain")
      ->excludes("--new-pin-fd")
      ->excludes("--new-pin-command");
  return [arguments] { return RunSetPin(*arguments); };
}

constexpr Command kCommands[] = {
    {"new",     "Make a key in a container of its own",           PrepareNew      },
    {"list",    "List the key containers",                        PrepareList     },
    {"show",    "Show what is in a key container",                PrepareShowKey  },
    {"delete",  "Delete a key container",                         PrepareDelete   },
    {"set-pin", "Set, change or remove the PIN of a container",   PrepareSetPin   },
    {"import",  "Put a private key from a file into a container", PrepareKeyImport},
    {"export",  "Write a public or private key to a file",        PrepareKeyExport},
};

}  // namespace

Runner PrepareKey(CLI::App& group) { return PrepareGroup(group, kCommands); }

}  // namespace certkern::cli
