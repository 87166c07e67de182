#include "asn1_writer.h"

#include "asn1_values.h"
#include "text.h"

#include <fmt/format.h>

#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

namespace certkern::cli {
namespace {

constexpr size_t kIndent = 2;
// What a line of text shows of a long value; JSON has all of it.
constexpr size_t kBytesInLine = 32;
constexpr size_t kCharactersInLine = 160;

bool HasInside(const Element& element, size_t index) { return element.behind > index + 1; }
bool HasValue(const Element& element, size_t index) {
  return !element.constructed && !HasInside(element, index);
}

const TypeInfo* TypeOf(const Meaning* meaning) { return meaning ? meaning->type : nullptr; }

std::span<const BYTE> ContentOf(const ElementTree& tree, const Element& element) {
  return tree.block.subspan(element.contentOffset, element.contentLength);
}

// Whole characters, as they are for a terminal.
std::string Shortened(std::string_view utf8) {
  const std::string_view whole = utf8;
  std::string text;
  for (size_t count = 0; count < kCharactersInLine && !utf8.empty(); ++count)
    AppendUtf8(text, TakeCharacter(utf8));
  return fmt::format("\"{}\"{}", Escaped(text), text.size() < whole.size() ? "..." : "");
}

struct InLine {
  std::string operator()(std::monostate) const { return {}; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(int64_t value) const { return fmt::format("{}", value); }
  std::string operator()(const Text& value) const { return Shortened(value.utf8); }
  std::string operator()(const Words& value) const { return value.text; }
  std::string operator()(const Bytes& value) const {
    if (value.empty()) return "empty";
    const bool isLong = value.size() > kBytesInLine;
    return HexText(std::span(value).first(isLong ? kBytesInLine : value.size()), ":") + (isLong ? "..." : "");
  }
  std::string operator()(const Oid& value) const {
    return value.name.empty() ? value.dotted : fmt::format("{} ({})", value.dotted, Escaped(value.name));
  }
};

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += fmt::format("{}{}", text.empty() ? "" : ", ", name);
  return text;
}

std::string ValueText(const ElementTree& tree, const Element& element, const Meaning* meaning) {
  const ElementValue value = ValueOf(element.tag, ContentOf(tree, element), TypeOf(meaning));
  std::string text = std::visit(InLine(), value.value);
  if (value.unusedBits.value_or(0)) text += fmt::format(", {} bits unused", *value.unusedBits);
  if (!value.names.empty()) text += fmt::format(" ({})", Joined(value.names));
  return text;
}

// "issuer.rdnSequence RDNSequence: SEQUENCE"
std::string Title(const Element& element, const Meaning* meaning) {
  const std::string tag = TagText(element.tag);
  std::string title = meaning ? meaning->member : "";
  if (const TypeInfo* const type = TypeOf(meaning); type && type->name != tag)
    title += fmt::format("{}{}", title.empty() ? "" : " ", type->name);
  return title.empty() ? tag : fmt::format("{}: {}", title, tag);
}

void PrintElement(std::FILE* out, const ElementTree& tree, size_t index) {
  const Element& element = tree.elements[index];
  const Meaning* const meaning = tree.typed.at(element.offset);
  std::string text = Title(element, meaning);
  if (HasValue(element, index)) {
    if (const std::string value = ValueText(tree, element, meaning); !value.empty()) text += ' ' + value;
  } else if (!element.constructed) {
    text += ", holds";
  }
  const std::string length = element.indefinite ? "indef" : fmt::format("{}", element.contentLength);
  fmt::print(out, "{:>8} {:>6} {:>8}  {}  {:{}}{}\n", element.offset, element.headerLength(), length,
             element.constructed ? "cons" : "prim", "", element.depth * kIndent, text);
}

void AddValue(const ElementTree& tree, const Element& element, const TypeInfo* type, Field& field) {
  ElementValue value = ValueOf(element.tag, ContentOf(tree, element), type);
  if (value.unusedBits) field.add("Unused bits", *value.unusedBits);
  if (!std::holds_alternative<std::monostate>(value.value)) field.add("Value", std::move(value.value));
  if (value.names.empty()) return;
  Field& names = field.addList("Names");
  for (std::string& name : value.names) names.add("", Words{std::move(name)});
}

}  // namespace

void PrintElementHeadings(std::FILE* out) { fmt::print(out, "  offset header   length  form  element\n"); }

void PrintElements(std::FILE* out, const ElementTree& tree) {
  for (size_t i = 0; i < tree.elements.size(); ++i) PrintElement(out, tree, i);
}

Field ElementField(const ElementTree& tree, size_t index) {
  static constexpr const char* kClasses[] = {"universal", "application", "context", "private"};
  const Element& element = tree.elements[index];
  const Meaning* const meaning = tree.typed.at(element.offset);
  Field field;
  field.add("Offset", int64_t{element.offset});
  field.add("Header length", int64_t{element.headerLength()});
  field.add("Length", int64_t{element.contentLength});
  field.add("Indefinite", element.indefinite);
  field.add("Class", Words{kClasses[static_cast<uint32_t>(ClassOf(element.tag))]});
  field.add("Tag", int64_t{NumberOf(element.tag)});
  field.add("Constructed", element.constructed);
  if (const char* const name = UniversalName(element.tag)) field.add("Name", Words{name});
  if (meaning && !meaning->member.empty()) field.add("Member", Words{meaning->member});
  if (const TypeInfo* const type = TypeOf(meaning)) field.add("Type", Words{type->name});
  if (HasValue(element, index)) {
    AddValue(tree, element, TypeOf(meaning), field);
    return field;
  }
  std::vector<uint32_t> inside;
  for (auto i = static_cast<uint32_t>(index + 1); i < element.behind; i = tree.elements[i].behind)
    inside.push_back(i);
  const size_t count = inside.size();
  field.addList("Elements").source = std::make_shared<ElementSource>(ElementSource{
      count, [tree, inside = std::move(inside)](size_t i) { return ElementField(tree, inside[i]); }});
  return field;
}

}  // namespace certkern::cli
