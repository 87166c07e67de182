#include "text.h"
#include "writers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cctype>

namespace certkern::cli {
namespace {

constexpr size_t kIndent = 2;

std::string Quoted(const std::string& utf8) { return EscapedJson(nlohmann::json(utf8).dump()); }

struct Scalar {
  std::string operator()(std::monostate) const { return "null"; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(int64_t value) const { return fmt::format("{}", value); }
  std::string operator()(const Text& value) const { return Quoted(value.utf8); }
  std::string operator()(const Words& value) const { return Quoted(value.text); }
  std::string operator()(const Bytes& value) const { return Quoted(HexText(value)); }
  std::string operator()(const Oid& value) const { return Quoted(value.dotted); }
};

class Printer {
 public:
  explicit Printer(std::FILE* out) : out_(out) {}

  void value(const Field& field, size_t indent) {
    if (field.kind == Children::List) {
      array(field, indent);
    } else if (field.isLeaf() && (field.hasValue() && !std::holds_alternative<Oid>(field.value))) {
      fmt::print(out_, "{}", std::visit(Scalar(), field.value));
    } else {
      object(field, indent);
    }
  }

  // kind: what the object itself says before its fields; may be empty
  void object(const Field& field, size_t indent, const std::string& kind = {}) {
    Separator separator{out_, indent + kIndent};
    fmt::print(out_, "{{");
    if (!kind.empty()) member(separator, "kind", kind);
    if (const Oid* oid = std::get_if<Oid>(&field.value)) {
      member(separator, "oid", oid->dotted);
      if (!oid->name.empty()) member(separator, "name", oid->name);
    } else if (field.hasValue()) {
      separator.next();
      fmt::print(out_, "\"value\": {}", std::visit(Scalar(), field.value));
    }
    field.forEach([&](const Field& child) {
      separator.next();
      fmt::print(out_, "{}: ", Quoted(KeyOf(child.label)));
      value(child, indent + kIndent);
    });
    separator.end(indent);
    fmt::print(out_, "}}");
  }

 private:
  // Puts each member on a line of its own, with commas between.
  struct Separator {
    std::FILE* out;
    size_t indent;
    bool first = true;

    void next() {
      fmt::print(out, "{}\n{:{}}", first ? "" : ",", "", indent);
      first = false;
    }
    void end(size_t outerIndent) {
      if (!first) fmt::print(out, "\n{:{}}", "", outerIndent);
    }
  };

  void member(Separator& separator, const char* key, const std::string& text) {
    separator.next();
    fmt::print(out_, "\"{}\": {}", key, Quoted(text));
  }

  void array(const Field& list, size_t indent) {
    Separator separator{out_, indent + kIndent};
    fmt::print(out_, "[");
    list.forEach([&](const Field& element) {
      separator.next();
      if (element.label.empty()) return value(element, indent + kIndent);
      fmt::print(out_, "{{{}: ", Quoted(KeyOf(element.label)));
      value(element, indent + kIndent);
      fmt::print(out_, "}}");
    });
    separator.end(indent);
    fmt::print(out_, "]");
  }

  std::FILE* out_;
};

}  // namespace

std::string KeyOf(std::string_view label) {
  std::string key;
  bool startsWord = false;
  for (const char c : label) {
    const auto letter = static_cast<unsigned char>(c);
    if (!std::isalnum(letter)) {
      startsWord = !key.empty();
      continue;
    }
    key += static_cast<char>(startsWord ? std::toupper(letter) : std::tolower(letter));
    startsWord = false;
  }
  return key;
}

void JsonWriter::write(const Field& object) {
  fmt::print(out_, "{}", first_ ? "[\n  " : ",\n  ");
  first_ = false;
  Printer(out_).object(object, kIndent, KeyOf(object.label));
}

void JsonWriter::finish() { fmt::print(out_, "{}", first_ ? "[]\n" : "\n]\n"); }

}  // namespace certkern::cli
