// certkern store add, import, export, copy: objects on their way between stores and files.
#include "command.h"
#include "failure.h"
#include "input.h"
#include "message.h"
#include "message_file.h"
#include "output.h"
#include "progress.h"
#include "shape.h"
#include "store_selection.h"
#include "text.h"

#include <certkern/errors.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

namespace certkern::cli {
namespace {

// What happened to the objects that were to be added.
struct Tally {
  int64_t certificates = 0;
  int64_t crls = 0;
  int64_t existing = 0;
  int64_t refused = 0;

  Field field(const StorePlace& place) const {
    Field field("Added");
    field.add("Store", Text{Utf8Of(std::string_view(place.name))});
    field.add("Location", Words{place.machine ? "machine" : "user"});
    field.add("Certificates", certificates);
    field.add("CRLs", crls);
    field.add("There already", existing);
    field.add("Refused", refused);
    return field;
  }
};

// Adds objects to a store; what is refused is told of, and the others go in.
class Adder {
 public:
  Adder(const StorePlace& place, bool replace)
      : place_(place),
        disposition_(replace ? CERT_STORE_ADD_REPLACE_EXISTING : CERT_STORE_ADD_NEW),
        store_(OpenStoreForChange(place, Missing::IsMade)) {}

  void add(PCCERT_CONTEXT certificate, std::string_view what) {
    count(CertAddCertificateContextToStore(store_.get(), certificate, disposition_, nullptr),
          tally_.certificates, what);
  }
  void add(PCCRL_CONTEXT crl, std::string_view what) {
    count(CertAddCRLContextToStore(store_.get(), crl, disposition_, nullptr), tally_.crls, what);
  }
  void addEncoded(ObjectKind kind, std::span<const BYTE> bytes, std::string_view what) {
    const DWORD size = CheckedSize(bytes.size());
    if (kind == ObjectKind::Certificate) {
      count(CertAddEncodedCertificateToStore(store_.get(), X509_ASN_ENCODING, bytes.data(), size,
                                             disposition_, nullptr),
            tally_.certificates, what);
    } else {
      count(CertAddEncodedCRLToStore(store_.get(), X509_ASN_ENCODING, bytes.data(), size, disposition_,
                                     nullptr),
            tally_.crls, what);
    }
  }
  // Something that never came to be an object.
  void refuse(const std::string& text) {
    ++tally_.refused;
    complain(text);
  }
  void complain(const std::string& text) const { Complain("{}", text); }

  int finish(bool json) {
    if (tally_.certificates + tally_.crls) CommitStore(store_, place_);
    const Field field = tally_.field(place_);
    PrintObjects({&field, 1}, json);
    return FlushOutput() && !tally_.refused ? 0 : kFailed;
  }

 private:
  void count(BOOL added, int64_t& counter, std::string_view what) {
    if (added) {
      ++counter;
    } else if (GetLastError() == static_cast<DWORD>(CRYPT_E_EXISTS)) {
      ++tally_.existing;
    } else if (GetLastError() == ERROR_CANCELLED) {
      refuse(fmt::format(
          "{}: not confirmed. One's own trusted roots are confirmed one by one on the terminal; the "
          "machine's (--machine) are not",
          what));
    } else {
      refuse(fmt::format("{}: {}", what, ReasonOf(GetLastError())));
    }
  }

  const StorePlace& place_;
  const DWORD disposition_;
  StoreHandle store_;
  Tally tally_;
};

// The oldest first, so that the order stays.
void AddAll(const Selected& selected, Adder& adder, const std::string& origin, Progress& progress) {
  int64_t seen = 0;
  for (auto each = selected.certificates.rbegin(); each != selected.certificates.rend(); ++each) {
    adder.add(each->get(), fmt::format("{}certificate {}", origin, ++seen));
    progress.show(seen);
  }
  for (auto each = selected.crls.rbegin(); each != selected.crls.rend(); ++each) {
    adder.add(each->get(), fmt::format("{}CRL {}", origin, ++seen));
    progress.show(seen);
  }
}

// --- add, import ---

struct AddArguments {
  StorePlace place;
  std::vector<std::string> files;
  bool replace = false;
  bool json = false;
};

// A saved store begins with a version of 0 and "CERT".
bool IsSavedStore(std::span<const BYTE> bytes) {
  static constexpr std::array<BYTE, 8> kMagic = {0, 0, 0, 0, 'C', 'E', 'R', 'T'};
  return bytes.size() >= kMagic.size() && std::ranges::equal(bytes.first(kMagic.size()), kMagic);
}

// One file into a store.
class FileImport {
 public:
  FileImport(const std::string& path, Adder& adder)
      : path_(path),
        name_(path == "-" ? "standard input" : Escaped(Utf8Of(std::string_view(path)))),
        adder_(adder) {}

  void run() {
    const FileContent content = ReadInput(path_);
    if (!content.error.empty()) return adder_.refuse(fmt::format("{}: {}", name_, content.error));
    if (IsSavedStore(content.bytes)) return addSavedStore(content.bytes);
    const auto place = [this](const std::string& text) { return fmt::format("{}: {}", name_, text); };
    ReadBlocks(content.bytes,
               {[&](const Block& block) { addBlock(block); },
                [&](const std::string& text) { adder_.refuse(place(text)); },
                [&](const std::string& text) { adder_.complain(place(text)); }, Wanted::ObjectsAndMessages});
    if (!seen_) adder_.refuse(fmt::format("{}: expected certificates and CRLs, found none", name_));
  }

 private:
  void addSavedStore(const Bytes& bytes) {
    CRYPT_DATA_BLOB blob{CheckedSize(bytes.size()), const_cast<BYTE*>(bytes.data())};
    const StoreHandle saved(CertOpenStore(CERT_STORE_PROV_SERIALIZED, 0, 0, 0, &blob));
    if (!saved) return adder_.refuse(fmt::format("{}: not a whole saved store", name_));
    AddAll(SelectFrom(saved.get(), {}), adder_, name_ + ": ", progress_);
  }

  // What a signed message carries, whoever signed it.
  void addMessage(std::span<const BYTE> bytes, const std::string& what) {
    const MessageHandle message = OpenMessage(bytes, ContentPlace::Inside);
    if (!message || MessageNumber(message.get(), CMSG_TYPE_PARAM) != CMSG_SIGNED)
      return adder_.refuse(what + ": not a signed message");
    const StoreHandle carried = OpenMemoryStore();
    if (const size_t refused = TakeCertificates(message.get(), carried.get()))
      adder_.refuse(fmt::format("{}: {} of the certificates and CRLs in it can't be read", what, refused));
    AddAll(SelectFrom(carried.get(), {}), adder_, what + ", ", progress_);
  }

  // Objects may follow each other without anything between.
  void addBlock(const Block& block) {
    size_t offset = 0;
    while (offset < block.bytes.size()) {
      const std::span<const BYTE> rest = block.bytes.subspan(offset);
      const std::optional<size_t> size = LooksLikeMessage(rest) ? MessageSize(rest) : ElementSize(rest);
      addObject(block, offset, rest.first(size.value_or(rest.size())));
      if (!size) return;
      offset += *size;
    }
  }

  void addObject(const Block& block, size_t offset, std::span<const BYTE> bytes) {
    const std::string what = fmt::format("{}: the object at {}", name_, block.place(offset));
    ++seen_;
    if (LooksLikeMessage(bytes)) return addMessage(bytes, what);
    const std::optional<ObjectKind> kind = RecognizeObject(bytes);
    if (!kind || (*kind != ObjectKind::Certificate && *kind != ObjectKind::Crl))
      return adder_.refuse(what + ": neither a certificate nor a CRL");
    adder_.addEncoded(*kind, bytes, what);
    progress_.show(seen_);
  }

  const std::string& path_;
  const std::string name_;
  Adder& adder_;
  Progress progress_{"imported"};
  int64_t seen_ = 0;
};

int RunAdd(const AddArguments& arguments) {
  Adder adder(arguments.place, arguments.replace);
  for (const std::string& file : arguments.files) FileImport(file, adder).run();
  return adder.finish(arguments.json);
}

Runner PrepareAdding(CLI::App& command, const char* files, const char* footer) {
  const auto arguments = std::make_shared<AddArguments>();
  AddStoreOptions(command, arguments->place);
  command.add_option("FILE", arguments->files, files)->required()->type_name("");
  command.add_flag("--replace", arguments->replace, "Put new ones in place of those that are there");
  command.add_flag("--json", arguments->json,
                   "Write JSON: an array with one object that counts what was added");
  command.footer(footer);
  return [arguments] { return RunAdd(*arguments); };
}

// --- export ---

struct ExportArguments {
  StorePlace place;
  Selection selection;
  OutputOptions output;
  bool saved = false;
  bool message = false;
};

SecretBytes PemOfAll(const Selected& selected) {
  SecretBytes all;
  for (const CertificateHandle& each : selected.certificates)
    Append(all, PemText("CERTIFICATE", {each.get()->pbCertEncoded, each.get()->cbCertEncoded}));
  for (const CrlHandle& each : selected.crls)
    Append(all, PemText("X509 CRL", {each.get()->pbCrlEncoded, each.get()->cbCrlEncoded}));
  return all;
}

SecretBytes DerOfAll(const Selected& selected) {
  SecretBytes all;
  for (const CertificateHandle& each : selected.certificates)
    Append(all, std::span(each.get()->pbCertEncoded, each.get()->cbCertEncoded));
  for (const CrlHandle& each : selected.crls)
    Append(all, std::span(each.get()->pbCrlEncoded, each.get()->cbCrlEncoded));
  return all;
}

// In a form of CertSaveStore. The order of the store is kept: what is added last becomes the first.
Bytes SavedAs(DWORD form, const Selected& selected) {
  const StoreHandle store = OpenMemoryStore();
  for (auto each = selected.certificates.rbegin(); each != selected.certificates.rend(); ++each) {
    if (!CertAddCertificateContextToStore(store.get(), each->get(), CERT_STORE_ADD_ALWAYS, nullptr))
      ThrowLastError("memory");
  }
  for (auto each = selected.crls.rbegin(); each != selected.crls.rend(); ++each) {
    if (!CertAddCRLContextToStore(store.get(), each->get(), CERT_STORE_ADD_ALWAYS, nullptr))
      ThrowLastError("memory");
  }
  Bytes image;
  const auto ask = [&](BYTE* out, DWORD* size) {
    CRYPT_DATA_BLOB blob{*size, out};
    const BOOL saved = CertSaveStore(store.get(), 0, form, CERT_STORE_SAVE_TO_MEMORY, &blob, 0);
    *size = blob.cbData;
    return saved;
  };
  if (!AskBytes(ask, image)) ThrowLastError("the saved store");
  return image;
}

int RunExport(const ExportArguments& arguments) {
  if (arguments.saved && arguments.output.file.empty())
    RefuseTerminal("a saved store", "name a file with --out, or leave out --saved");
  CheckDestination(arguments.output, Secrecy::Public);
  CheckSelection(arguments.selection);
  const StoreHandle store = OpenStoreView(arguments.place);
  const Selected selected = SelectFrom(store.get(), arguments.selection);
  if (!selected.size()) throw Failure(arguments.place.shown() + ": nothing fits");
  if (arguments.saved) {
    WriteBytes(arguments.output, SavedAs(CERT_STORE_SAVE_AS_STORE, selected));
  } else if (arguments.message) {
    const Bytes message = SavedAs(CERT_STORE_SAVE_AS_PKCS7, selected);
    if (arguments.output.der) {
      WriteBytes(arguments.output, message);
    } else {
      WriteBytes(arguments.output, PemText("PKCS7", message));
    }
  } else {
    WriteBytes(arguments.output, arguments.output.der ? DerOfAll(selected) : PemOfAll(selected));
  }
  return 0;
}

// --- copy ---

struct CopyArguments {
  StorePlace from;
  StorePlace to;
  Selection selection;
  bool replace = false;
  bool json = false;
};

int RunCopy(const CopyArguments& arguments) {
  if (arguments.from.name == arguments.to.name && arguments.from.machine == arguments.to.machine)
    throw WrongUsage("the two stores are one");
  CheckSelection(arguments.selection);
  const StoreHandle from = OpenStoreView(arguments.from);
  const Selected selected = SelectFrom(from.get(), arguments.selection);
  if (!selected.size()) throw Failure(arguments.from.shown() + ": nothing fits");
  Adder adder(arguments.to, arguments.replace);
  Progress progress("copied");
  AddAll(selected, adder, "", progress);
  progress.clear();
  return adder.finish(arguments.json);
}

}  // namespace

Runner PrepareStoreAdd(CLI::App& command) {
  return PrepareAdding(
      command, "Certificates and CRLs, as DER or PEM; - is standard input",
      "A store that isn't there is made. Certificates for one's own Root are confirmed on the "
      "terminal.\n\n"
      "Example:\n"
      "  certkern store add CA issuing-ca.crt issuing-ca.crl");
}

Runner PrepareStoreImport(CLI::App& command) {
  return PrepareAdding(command,
                       "Bundles of certificates and CRLs, messages that carry some, or stores written by "
                       "\"certkern store export --saved\"",
                       "A store that isn't there is made. Properties of a saved store come along.\n\n"
                       "Examples:\n"
                       "  certkern store import CA chain.pem\n"
                       "  sudo certkern store import Root --machine /etc/ssl/certs/ca-certificates.crt");
}

Runner PrepareStoreExport(CLI::App& command) {
  const auto arguments = std::make_shared<ExportArguments>();
  AddStoreOptions(command, arguments->place);
  AddSelectionOptions(command, arguments->selection);
  AddOutputOptions(command, arguments->output);
  command.add_flag("--saved", arguments->saved, "Write a saved store, with the properties of its objects")
      ->excludes("--der")
      ->excludes("--pem");
  command
      .add_flag(
          "--pkcs7", arguments->message,
          "Write one message that holds all of them and signs nothing, as other programs read and write")
      ->excludes("--saved");
  command.footer(
      "All that fits is written, one behind the other; without options all that is there.\n\n"
      "Examples:\n"
      "  certkern store export CA --out chain.pem\n"
      "  certkern store export MY --subject Anna --der --out anna.crt\n"
      "  certkern store export CA --pkcs7 --der --out chain.p7b\n"
      "  certkern store export MY --saved --out my.sto");
  return [arguments] { return RunExport(*arguments); };
}

Runner PrepareStoreCopy(CLI::App& command) {
  const auto arguments = std::make_shared<CopyArguments>();
  command.add_option("FROM", arguments->from.name, "The store to copy from")->required()->type_name("");
  command.add_option("TO", arguments->to.name, "The store to copy to, which is made if it isn't there")
      ->required()
      ->type_name("");
  command.add_flag("--machine", arguments->from.machine,
                   "FROM is a store that all users of this machine share");
  command.add_flag("--to-machine", arguments->to.machine, "TO is one");
  AddSelectionOptions(command, arguments->selection);
  command.add_flag("--replace", arguments->replace, "Put copies in place of those that are there");
  command.add_flag("--json", arguments->json,
                   "Write JSON: an array with one object that counts what was copied");
  command.footer(
      "Properties, such as the link to a private key, are copied, too.\n\n"
      "Example:\n"
      "  certkern store copy MY Backup --subject Anna");
  return [arguments] { return RunCopy(*arguments); };
}

}  // namespace certkern::cli
