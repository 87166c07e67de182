// certkern asn1: the elements of any encoding, and what a type of the schema makes of them.
#include "asn1_elements.h"
#include "asn1_typing.h"
#include "asn1_writer.h"
#include "command.h"
#include "failure.h"
#include "input.h"
#include "output.h"
#include "text.h"
#include "writers.h"

#include "asn1data/catalogue.h"

#include <certkern/keykern.h>
#include <fmt/format.h>

#include <cstdio>
#include <iterator>
#include <memory>
#include <utility>

namespace certkern::cli {
namespace {

struct Asn1Arguments {
  std::vector<std::string> files;
  std::string type;
  bool json = false;
  bool list = false;
};

// One file: its encodings go to standard output, its faults to standard error.
class Asn1Show {
 public:
  // json: null for text. headings: whether lines tell which file it is.
  Asn1Show(const std::string& path, const TypeInfo* type, JsonWriter* json, bool headings)
      : path_(path),
        name_(path == "-" ? "standard input" : Utf8Of(std::string_view(path))),
        type_(type),
        json_(json),
        headings_(headings) {}

  // False when anything in the file could not be shown.
  bool run();

 private:
  void complain(const std::string& text) {
    sound_ = false;
    Complain("{}: {}", Escaped(name_), text);
  }
  void complain(const std::string& what, const Fault& fault, const Block& block) {
    complain(fmt::format("{}expected {}, found {} at {}", what, fault.expected, fault.found,
                         block.place(fault.offset)));
  }
  void showBlock(const Block& block);
  // Behind the encoding; 0 when nothing further can be found.
  size_t showEncoding(const Block& block, size_t offset);
  void write(const Block& block, const ElementTree& tree);
  void printHeadings(const Block& block);

  const std::string& path_;
  const std::string name_;
  const TypeInfo* type_;
  JsonWriter* json_;
  bool headings_;
  ElementBudget budget_;
  int64_t shown_ = 0;
  bool isNewBlock_ = true;
  bool sound_ = true;
};

bool Asn1Show::run() {
  const FileContent content = ReadInput(path_);
  if (!content.error.empty()) {
    complain(content.error);
    return false;
  }
  BlockReader reader{[this](const Block& block) { showBlock(block); },
                     [this](const std::string& text) { complain(text); }, [](const std::string&) {}};
  reader.wanted = Wanted::AnyElement;
  ReadBlocks(content.bytes, reader);
  return sound_;
}

void Asn1Show::showBlock(const Block& block) {
  isNewBlock_ = true;
  for (size_t offset = 0; offset < block.bytes.size();) {
    const size_t behind = showEncoding(block, offset);
    if (!behind) return;
    offset = behind;
  }
}

size_t Asn1Show::showEncoding(const Block& block, size_t offset) {
  Typed typed;
  if (type_) {
    typed = ReadTyped(block.bytes, offset, *type_);
    if (typed.fault) {
      const std::string place = typed.place.empty() ? "" : fmt::format(", in {}", typed.place);
      complain(fmt::format("{}{}: ", type_->name, place), *typed.fault, block);
      return 0;
    }
  }
  const ElementsRead read = ReadElements(block.bytes, offset, budget_,
                                         [&](uint32_t content) { return typed.at(content) != nullptr; });
  // also what could be read in front of a fault
  if (!read.elements.empty()) write(block, {block.bytes, read.elements, typed});
  if (read.fault) {
    complain("", *read.fault, block);
    return 0;
  }
  return offset + read.size;
}

void Asn1Show::printHeadings(const Block& block) {
  if (headings_) fmt::print("{}\n", Escaped(name_));
  if (block.form == Block::Form::Pem) fmt::print("PEM at byte offset {} of the file\n", block.fileOffset);
  PrintElementHeadings(stdout);
}

void Asn1Show::write(const Block& block, const ElementTree& tree) {
  if (!json_) {
    if (std::exchange(isNewBlock_, false)) printHeadings(block);
    return PrintElements(stdout, tree);
  }
  Field encoding("Encoding");
  encoding.add("File", Text{name_});
  encoding.add("Object", ++shown_);
  Field element = ElementField(tree, 0);
  std::move(element.children.begin(), element.children.end(), std::back_inserter(encoding.children));
  json_->write(encoding);
}

int ListTypes(bool json) {
  if (!json) {
    for (const TypeInfo* type : asn1data::AllTypes()) fmt::print("{}\n", type->name);
    return FlushOutput() ? 0 : kFailed;
  }
  std::vector<Field> types;
  for (const TypeInfo* type : asn1data::AllTypes()) types.emplace_back("Type").add("Name", Words{type->name});
  PrintObjects(types, true);
  return FlushOutput() ? 0 : kFailed;
}

int RunAsn1(const Asn1Arguments& arguments) {
  if (arguments.list) return ListTypes(arguments.json);
  const TypeInfo* const type = arguments.type.empty() ? nullptr : &TypeByName(arguments.type);
  JsonWriter json(stdout);
  bool sound = true;
  for (const std::string& file : arguments.files) {
    const bool headings = arguments.files.size() > 1;
    if (!Asn1Show(file, type, arguments.json ? &json : nullptr, headings).run()) sound = false;
  }
  if (arguments.json) json.finish();
  return FlushOutput() && sound ? 0 : kFailed;
}

}  // namespace

Runner PrepareAsn1(CLI::App& command) {
  const auto arguments = std::make_shared<Asn1Arguments>();
  CLI::Option* const files =
      command.add_option("FILE", arguments->files, "Files to show; none or - stands for standard input")
          ->type_name("");
  CLI::Option* const type =
      command.add_option("--type", arguments->type, "What the content must be, as Certificate or SignedData")
          ->type_name("NAME");
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object for each encoding");
  command.add_flag("--list", arguments->list, "Name all types")->excludes(files)->excludes(type);
  command.footer(
      "A file may hold DER or BER, PEM (any number of objects, whatever they are) or bare Base64. Offsets "
      "are those of the\n"
      "decoded bytes. With a type each element is named as the type names it; without one, the bare "
      "structure is shown.\n"
      "Exit status: 0 everything was shown; 1 something could not be; 2 wrong usage.\n\n"
      "Examples:\n"
      "  certkern asn1 server.crt\n"
      "  certkern asn1 --type ContentInfo --json message.p7s\n"
      "  certkern asn1 --list | grep OCSP");
  return [arguments] {
    if (arguments->files.empty()) arguments->files.emplace_back("-");
    return RunAsn1(*arguments);
  };
}

}  // namespace certkern::cli
