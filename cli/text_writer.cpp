#include "text.h"
#include "writers.h"

#include <fmt/format.h>

#include <algorithm>

namespace certkern::cli {
namespace {

constexpr size_t kIndent = 2;
// In bytes. A SHA-256 digest still stands on one line; what is longer is broken into shorter ones.
constexpr size_t kLongestLine = 32;
constexpr size_t kBytesInLine = 24;

struct Inline {
  std::string operator()(std::monostate) const { return {}; }
  std::string operator()(bool value) const { return value ? "yes" : "no"; }
  std::string operator()(int64_t value) const { return fmt::format("{}", value); }
  std::string operator()(const Text& value) const {
    return value.utf8.empty() ? "\"\"" : Escaped(value.utf8);
  }
  std::string operator()(const Words& value) const { return value.text.empty() ? "\"\"" : value.text; }
  std::string operator()(const Bytes& value) const { return value.empty() ? "empty" : HexText(value, ":"); }
  std::string operator()(const Oid& value) const {
    if (value.dotted.empty()) return "none";
    return value.name.empty() ? value.dotted : fmt::format("{} ({})", Escaped(value.name), value.dotted);
  }
};

// Words in a list need no line each.
bool IsPhrase(const Field& field) {
  return field.kind == Children::List && !field.source
      && std::all_of(field.children.begin(), field.children.end(), [](const Field& element) {
           return element.label.empty() && element.isLeaf() && std::holds_alternative<Words>(element.value);
         });
}

std::string Phrase(const Field& list) {
  std::string text;
  for (const Field& element : list.children)
    text += fmt::format("{}{}", text.empty() ? "" : ", ", std::get<Words>(element.value).text);
  return text.empty() ? "none" : text;
}

class Printer {
 public:
  explicit Printer(std::FILE* out) : out_(out) {}

  void children(const Field& parent, size_t indent) {
    const size_t column = indent + labelWidth(parent) + kIndent;
    size_t number = 0;
    parent.forEach([&](const Field& child) { field(child, ++number, indent, column); });
  }

 private:
  // Of the children that have something to the right of their label.
  static size_t labelWidth(const Field& parent) {
    size_t width = 0;
    for (const Field& child : parent.children) {
      if (child.hasValue() || IsPhrase(child)) width = std::max(width, child.label.size());
    }
    return width;
  }

  void field(const Field& field, size_t number, size_t indent, size_t column) {
    if (IsPhrase(field)) return line(field.label, Phrase(field), indent, column);
    if (field.hasValue()) {
      value(field, indent, column);
    } else if (field.label.empty()) {
      line(fmt::format("#{}", number), {}, indent, column);
    } else {
      line(field.label, {}, indent, column);
    }
    if (field.kind != Children::JsonFields) children(field, indent + kIndent);
  }

  void line(std::string_view label, std::string_view text, size_t indent, size_t column) {
    if (text.empty()) {
      fmt::print(out_, "{:{}}{}\n", "", indent, label);
    } else if (label.empty()) {
      fmt::print(out_, "{:{}}{}\n", "", indent, text);
    } else {
      fmt::print(out_, "{:{}}{:{}}{}\n", "", indent, label, column - indent, text);
    }
  }

  void value(const Field& field, size_t indent, size_t column) {
    const Bytes* bytes = std::get_if<Bytes>(&field.value);
    if (!bytes || bytes->size() <= kLongestLine) {
      return line(field.label, std::visit(Inline(), field.value), indent, column);
    }
    std::span<const BYTE> rest = *bytes;
    std::string_view label = field.label;
    const size_t hexColumn = label.empty() ? indent : column;
    for (bool first = true; !rest.empty(); first = false) {
      const auto part = rest.first(std::min(rest.size(), kBytesInLine));
      rest = rest.subspan(part.size());
      const std::string text = fmt::format("{}{}", HexText(part, ":"), rest.empty() ? "" : ":");
      line(first ? label : "", text, first ? indent : hexColumn, hexColumn);
    }
  }

  std::FILE* out_;
};

}  // namespace

void TextWriter::write(const Field& object) {
  fmt::print(out_, "{}{}\n", first_ ? "" : "\n", object.label);
  first_ = false;
  Printer(out_).children(object, kIndent);
}

}  // namespace certkern::cli
