// certkern show: all that is in certificates, CRLs, certificate requests and messages.
#include "command.h"
#include "failure.h"
#include "input.h"
#include "message_fields.h"
#include "message_file.h"
#include "object_fields.h"
#include "output.h"
#include "text.h"
#include "writers.h"

#include <certkern/keykern.h>
#include <fmt/format.h>

#include <cstdio>
#include <memory>

namespace certkern::cli {
namespace {

struct Arguments {
  std::vector<std::string> files;
  bool json = false;
  ShowOptions show;
};

// offset is that of the object in the block.
std::string Describe(const Fault& fault, const Block& block, size_t offset) {
  return fmt::format("expected {}, found {} at {}", fault.expected, fault.found,
                     block.place(offset + fault.offset));
}

// One file: its objects go to the writer, its faults to standard error.
class FileShow {
 public:
  FileShow(const std::string& path, const ShowOptions& options, ObjectWriter& writer)
      : path_(path),
        name_(path == "-" ? "standard input" : Utf8Of(std::string_view(path))),
        options_(options),
        writer_(writer) {}

  // False when anything in the file could not be shown.
  bool run();

 private:
  void complain(const std::string& text) {
    sound_ = false;
    note(text);
  }
  void note(const std::string& text) const { Complain("{}: {}", Escaped(name_), text); }
  void showBlock(const Block& block);
  bool showObject(const Block& block, size_t offset, std::span<const BYTE> bytes);
  void showMessage(const Block& block, size_t offset, std::span<const BYTE> bytes);
  void write(Field object, const std::optional<Fault>& fault, const Block& block, size_t offset);

  const std::string& path_;
  const std::string name_;
  const ShowOptions& options_;
  ObjectWriter& writer_;
  int64_t shown_ = 0;
  bool sound_ = true;
};

bool FileShow::run() {
  const FileContent content = ReadInput(path_);
  if (!content.error.empty()) {
    complain(content.error);
    return false;
  }
  ReadBlocks(
      content.bytes,
      {[this](const Block& block) { showBlock(block); }, [this](const std::string& text) { complain(text); },
       [this](const std::string& text) { note(text); }, Wanted::ObjectsAndMessages});
  if (sound_ && !shown_)
    complain("expected a certificate, CRL, certificate request or message, found none in the file");
  return sound_;
}

// Objects may follow each other without anything between.
void FileShow::showBlock(const Block& block) {
  size_t offset = 0;
  while (offset < block.bytes.size()) {
    const std::span<const BYTE> rest = block.bytes.subspan(offset);
    const std::optional<size_t> size = LooksLikeMessage(rest) ? MessageSize(rest) : ElementSize(rest);
    if (!showObject(block, offset, rest.first(size.value_or(rest.size()))) || !size) return;
    offset += *size;
  }
}

bool FileShow::showObject(const Block& block, size_t offset, std::span<const BYTE> bytes) {
  if (LooksLikeMessage(bytes)) {
    showMessage(block, offset, bytes);
    return true;
  }
  const std::optional<ObjectKind> kind = RecognizeObject(bytes);
  if (!kind) {
    complain(fmt::format("certificate, CRL or certificate request: {}",
                         Describe(FindFaultOfUnknown(bytes), block, offset)));
    return false;
  }
  const std::optional<Fault> fault = FindFault(*kind, bytes);
  std::optional<Field> object = ObjectField(*kind, bytes, options_);
  if (!object) {
    const Fault refusal{0, "one that the library reads",
                        fmt::format("a refusal with code 0x{:08x}", GetLastError())};
    complain(fmt::format("{}: {}", KindName(*kind), Describe(fault.value_or(refusal), block, offset)));
    return true;
  }
  write(std::move(*object), fault, block, offset);
  return true;
}

void FileShow::showMessage(const Block& block, size_t offset, std::span<const BYTE> bytes) {
  std::string reason;
  try {
    if (std::optional<Field> object = MessageField(bytes, options_))
      return write(std::move(*object), std::nullopt, block, offset);
    const DWORD code = GetLastError();
    const std::optional<Refusal> refusal = FindRefusal(bytes);
    reason = refusal ? refusal->at(block, offset) : ReasonOf(code);
  } catch (const Failure& failure) {  // a part of it; other objects are still to be shown
    reason = failure.what();
  }
  complain(fmt::format("message at {}: {}", block.place(offset), reason));
}

void FileShow::write(Field object, const std::optional<Fault>& fault, const Block& block, size_t offset) {
  Field origin;
  origin.add("File", Text{name_});
  origin.add("Object", ++shown_);
  // the library overlooks more than a reader may want to overlook
  if (fault) origin.add("Remark", Words{Describe(*fault, block, offset)});
  object.children.insert(object.children.begin(), std::make_move_iterator(origin.children.begin()),
                         std::make_move_iterator(origin.children.end()));
  writer_.write(object);
}

int RunShow(const Arguments& arguments) {
  std::unique_ptr<ObjectWriter> writer;
  if (arguments.json) {
    writer = std::make_unique<JsonWriter>(stdout);
  } else {
    writer = std::make_unique<TextWriter>(stdout);
  }
  bool sound = true;
  for (const std::string& file : arguments.files) {
    if (!FileShow(file, arguments.show, *writer).run()) sound = false;
  }
  writer->finish();
  if (!FlushOutput()) sound = false;
  return sound ? 0 : 1;
}

}  // namespace

Runner PrepareShow(CLI::App& command) {
  const auto arguments = std::make_shared<Arguments>();
  command.add_option("FILE", arguments->files, "Files to show; none or - stands for standard input")
      ->type_name("");
  command.add_flag("--json", arguments->json,
                   "Write JSON: an array with one object for each certificate, CRL, request or message");
  command
      .add_option("--max-entries", arguments->show.maxEntries,
                  "Show only the first N entries of a CRL; their count is always shown")
      ->check([](const std::string& text) {
        const bool number =
            !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == text.npos;
        return number ? std::string() : "must be a number from 0 to 999999999";
      })
      ->type_name("N");
  command.footer(
      "A file may hold DER, PEM (any number of objects) or bare Base64; what an object is, its bytes tell.\n"
      "Exit status: 0 everything was shown; 1 something could not be; 2 wrong usage.\n\n"
      "Examples:\n"
      "  certkern show server.crt\n"
      "  certkern show --json --max-entries 10 ca.crl\n"
      "  certkern show /etc/ssl/certs/ca-certificates.crt | less");
  return [arguments] {
    if (arguments->files.empty()) arguments->files.emplace_back("-");
    return RunShow(*arguments);
  };
}

}  // namespace certkern::cli
