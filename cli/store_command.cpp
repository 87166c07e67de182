// certkern store: what is in certificate stores, and what leaves them.
#include "command.h"
#include "failure.h"
#include "object_fields.h"
#include "output.h"
#include "store_fields.h"
#include "store_selection.h"
#include "text.h"

#include <certkern/errors.h>
#include <fmt/format.h>

#include <memory>

namespace certkern::cli {
namespace {

// --- list ---

struct ListArguments {
  StorePlace place;
  bool json = false;
};

Field StoreField(const StorePlace& place) {
  const StoreHandle store = OpenStoreForChange(place, Missing::Fails);
  int64_t certificates = 0, crls = 0;
  ForEachCertificate(store.get(), [&](PCCERT_CONTEXT) { ++certificates; });
  ForEachCrl(store.get(), [&](PCCRL_CONTEXT) { ++crls; });
  Field field("Store");
  field.add("Name", Text{Utf8Of(std::string_view(place.name))});
  field.add("Location", Words{place.machine ? "machine" : "user"});
  field.add("Certificates", certificates);
  field.add("CRLs", crls);
  return field;
}

// A store that can't be read is told of, and the others are shown.
bool AddStores(bool machine, std::vector<Field>& stores) {
  bool sound = true;
  for (const std::string& name : StoreNames(machine)) {
    try {
      stores.push_back(StoreField({name, machine}));
    } catch (const Failure& failure) {
      Complain("{}", failure.what());
      sound = false;
    }
  }
  return sound;
}

int RunList(const ListArguments& arguments) {
  std::vector<Field> stores;
  bool sound = arguments.place.machine || AddStores(false, stores);
  sound = AddStores(true, stores) && sound;
  if (stores.empty() && sound) Complain("there is no store yet; \"certkern store add MY FILE\" makes one");
  PrintObjects(stores, arguments.json);
  return FlushOutput() && sound ? 0 : kFailed;
}

Runner PrepareList(CLI::App& command) {
  const auto arguments = std::make_shared<ListArguments>();
  command.add_flag("--machine", arguments->place.machine,
                   "Only the stores that all users of this machine share");
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object for each store");
  return [arguments] { return RunList(*arguments); };
}

// --- show, find ---

struct ShowArguments {
  StorePlace place;
  Selection selection;
  bool full = false;
  bool json = false;
};

Field FieldOf(ObjectKind kind, std::span<const BYTE> encoded, Field summary, bool full) {
  if (!full) return summary;
  std::optional<Field> object = ObjectField(kind, encoded, {});
  return object ? std::move(*object) : std::move(summary);
}

std::vector<Field> FieldsOf(const Selected& selected, bool full) {
  std::vector<Field> fields;
  for (const CertificateHandle& each : selected.certificates) {
    const PCCERT_CONTEXT context = each.get();
    fields.push_back(FieldOf(ObjectKind::Certificate, {context->pbCertEncoded, context->cbCertEncoded},
                             SummaryOf(*context), full));
  }
  for (const CrlHandle& each : selected.crls) {
    const PCCRL_CONTEXT context = each.get();
    fields.push_back(
        FieldOf(ObjectKind::Crl, {context->pbCrlEncoded, context->cbCrlEncoded}, SummaryOf(*context), full));
  }
  return fields;
}

// Scripts ask for what may not be there: finding nothing is a status of its own.
int RunShow(const ShowArguments& arguments) {
  CheckSelection(arguments.selection);
  const StoreHandle store = OpenStoreView(arguments.place);
  const Selected selected = SelectFrom(store.get(), arguments.selection);
  PrintObjects(FieldsOf(selected, arguments.full), arguments.json);
  const bool missing = !selected.size() && !arguments.selection.empty();
  if (missing) Complain("{}: nothing fits", arguments.place.shown());
  return FlushOutput() && !missing ? 0 : kFailed;
}

Runner PrepareShowStore(CLI::App& command) {
  const auto arguments = std::make_shared<ShowArguments>();
  AddStoreOptions(command, arguments->place);
  command.add_flag("--full", arguments->full, "All of each object, as \"certkern show\" has it");
  command.add_flag("--json", arguments->json,
                   "Write JSON: an array with one object for each certificate and CRL");
  return [arguments] { return RunShow(*arguments); };
}

Runner PrepareFind(CLI::App& command) {
  const auto arguments = std::make_shared<ShowArguments>();
  AddStoreOptions(command, arguments->place);
  AddSelectionOptions(command, arguments->selection);
  command.add_flag("--full", arguments->full, "All of each object, as \"certkern show\" has it");
  command.add_flag("--json", arguments->json,
                   "Write JSON: an array with one object for each certificate and CRL");
  command.footer(
      "What fits all that is given is shown; CRLs fit a hash and an issuer only. Nothing found is exit "
      "status 1.\n\n"
      "Examples:\n"
      "  certkern store find MY --subject Anna --usage digitalSignature\n"
      "  certkern store find Root --key-id 305897f7ca830eb23737d6b04d0aa497a8ec6d0e");
  return [arguments] {
    if (arguments->selection.empty()) throw WrongUsage("what to find: one of --subject, --hash and so on");
    return RunShow(*arguments);
  };
}

// --- remove ---

struct RemoveArguments {
  StorePlace place;
  Selection selection;
  bool all = false;
};

template <auto Duplicate, auto Delete, typename Handle>
void Remove(const Handle& object, const StorePlace& place) {
  if (!Delete(Duplicate(object.get()))) ThrowLastError(place.shown());
}

int RunRemove(const RemoveArguments& arguments) {
  CheckSelection(arguments.selection);
  if (arguments.selection.empty() && !arguments.all)
    throw WrongUsage("what to remove: one of --hash and so on, or --all");
  const StoreHandle store = OpenStoreForChange(arguments.place, Missing::Fails);
  const Selected selected = SelectFrom(store.get(), arguments.selection);
  if (!selected.size()) throw Failure(arguments.place.shown() + ": nothing fits");
  if (selected.size() > 1 && !arguments.all)
    throw Failure(fmt::format("{}: {} objects fit; say more, or --all to remove all of them",
                              arguments.place.shown(), selected.size()));
  for (const CertificateHandle& each : selected.certificates)
    Remove<CertDuplicateCertificateContext, CertDeleteCertificateFromStore>(each, arguments.place);
  for (const CrlHandle& each : selected.crls)
    Remove<CertDuplicateCRLContext, CertDeleteCRLFromStore>(each, arguments.place);
  CommitStore(store, arguments.place);
  return 0;
}

Runner PrepareRemove(CLI::App& command) {
  const auto arguments = std::make_shared<RemoveArguments>();
  AddStoreOptions(command, arguments->place);
  AddSelectionOptions(command, arguments->selection);
  command.add_flag("--all", arguments->all, "Remove all that fit, not just one");
  command.footer(
      "Example:\n"
      "  certkern store remove MY --hash 305897f7ca830eb23737d6b04d0aa497a8ec6d0e");
  return [arguments] { return RunRemove(*arguments); };
}

constexpr Command kCommands[] = {
    {"list",   "List the stores",                                      PrepareList       },
    {"show",   "Show what is in a store",                              PrepareShowStore  },
    {"find",   "Find certificates and CRLs in a store",                PrepareFind       },
    {"add",    "Add certificates and CRLs from files to a store",      PrepareStoreAdd   },
    {"import", "Add a whole bundle or saved store to a store",         PrepareStoreImport},
    {"remove", "Remove certificates and CRLs from a store",            PrepareRemove     },
    {"export", "Write certificates and CRLs of a store to a file",     PrepareStoreExport},
    {"copy",   "Copy certificates and CRLs from one store to another", PrepareStoreCopy  },
};

}  // namespace

Runner PrepareStore(CLI::App& group) {
  group.footer(
      "Stores are named: MY for one's own certificates, CA for those of authorities, Root for those that are "
      "trusted.\n"
      "Each user has stores of his own, and all users of a machine share others, which --machine means.");
  return PrepareGroup(group, kCommands);
}

}  // namespace certkern::cli
