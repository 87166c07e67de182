// What can be said of a type without its members: kind, tags, named numbers.
#include <fmt/format.h>

#include <limits>
#include <set>

#include "bounds.h"
#include "types.h"

namespace certkern::asn1gen {
namespace {

bool FitsInt32(int64_t number) {
  return number >= std::numeric_limits<int32_t>::min() && number <= std::numeric_limits<int32_t>::max();
}

}  // namespace

void TypeBuilder::shapeAll() {
  for (const Symbol& symbol : symbols_.all()) {
    const Assignment& assignment = *symbol.assignment;
    if (assignment.kind != Assignment::Kind::Type || symbols_.findClass(assignment.name.text)) continue;
    Attempt(diagnostics_, [&] {
      const std::string name(assignment.name.text);
      types_.addNamed(name, assignment.name.place, symbol, assignment.type).type->text = assignment.text;
    });
  }
  for (auto& [name, named] : types_.named()) shape(named, 0);
}

void TypeBuilder::shape(Named& named, size_t depth) {
  if (named.shape == Named::State::Done) return;
  if (named.shape == Named::State::Working)
    throw SchemaError(named.type->place,
                      fmt::format("found '{}' as another name of itself, expected a type", named.type->name));
  named.shape = Named::State::Working;
  if (!Attempt(diagnostics_, [&] { shapeAs(named, *named.syntax, depth); })) {
    named.type->kind = Kind::Open;
    named.type->broken = true;
  }
  named.shape = Named::State::Done;
}

void TypeBuilder::shapeAs(Named& named, const TypeSyntax& syntax, size_t depth) {
  if (depth > kMaxReferences)
    throw SchemaError(syntax.place, "found too many names of one type, expected fewer");
  Type& type = *named.type;
  TagList tags;
  if (syntax.form == TypeForm::Reference) {
    Named& other = types_.find(syntax.name);
    shape(other, depth + 1);
    type.alias = other.type;
    type.kind = other.type->kind;
    type.broken = other.type->broken;
    tags = other.type->tags;
  } else if (syntax.form == TypeForm::ClassField && !isOpen(syntax)) {
    shapeAs(named, findField(syntax, nullptr).type, depth + 1);
    tags = type.tags;
  } else {
    type.kind = syntax.form == TypeForm::ClassField ? Kind::Open : kindOf(syntax);
    tags = UniversalTag(type.kind, syntax.name.text);
    addNames(type, syntax);
  }
  type.tags = tagged(syntax, std::move(tags), named.symbol.module->tagDefault);
}

Kind TypeBuilder::kindOf(const TypeSyntax& syntax) const {
  switch (syntax.form) {
    case TypeForm::Boolean:
      return Kind::Boolean;
    case TypeForm::Enumerated:
      return Kind::Enumerated;
    case TypeForm::BitString:
      return Kind::BitString;
    case TypeForm::OctetString:
      return Kind::OctetString;
    case TypeForm::Null:
      return Kind::Null;
    case TypeForm::ObjectId:
      return Kind::ObjectId;
    case TypeForm::Text:
      return Kind::Text;
    case TypeForm::Sequence:
      return Kind::Sequence;
    case TypeForm::Set:
      return Kind::Set;
    case TypeForm::SequenceOf:
      return Kind::SequenceOf;
    case TypeForm::SetOf:
      return Kind::SetOf;
    case TypeForm::Choice:
      return Kind::Choice;
    case TypeForm::Any:
    case TypeForm::Reference:
    case TypeForm::ClassField:
      return Kind::Open;
    case TypeForm::Integer:
      break;
  }
  if (!syntax.names.empty()) return Kind::Int32;
  const auto isNumber = [](const std::optional<ValueSyntax>& bound) {
    return bound && (bound->kind == ValueSyntax::Kind::Number || bound->kind == ValueSyntax::Kind::Name);
  };
  if (!isNumber(syntax.lower) || !isNumber(syntax.upper)) return Kind::BigInteger;
  return FitsInt32(symbols_.integer(*syntax.lower)) && FitsInt32(symbols_.integer(*syntax.upper))
      ? Kind::Int32
      : Kind::BigInteger;
}

// From the inside out. A type that begins with one of several tags, or with any, can't have it replaced.
TagList TypeBuilder::tagged(const TypeSyntax& syntax, TagList tags, TagDefault tagDefault) const {
  for (auto tag = syntax.tags.rbegin(); tag != syntax.tags.rend(); ++tag) {
    const int64_t number = symbols_.integer(tag->number);
    if (number < 0 || number > kMaxTagNumber)
      throw SchemaError(tag->number.word.place,
                        fmt::format("found the tag {}, expected 0 to {}", number, kMaxTagNumber));
    const bool implicit = tag->mode == TagMode::Implicit
        || (tag->mode == TagMode::Default && tagDefault != TagDefault::Explicit);
    const Tag outer{tag->tagClass, static_cast<uint32_t>(number)};
    if (implicit && !tags.empty())
      tags.front() = outer;
    else
      tags.insert(tags.begin(), outer);
  }
  return tags;
}

// Items of an enumeration that have no number get the lowest ones that are free.
void TypeBuilder::addNames(Type& type, const TypeSyntax& syntax) const {
  std::set<std::string_view> names;
  std::set<int32_t> numbers;
  for (const NamedNumberSyntax& named : syntax.names) {
    if (!names.insert(named.name.text).second)
      throw SchemaError(named.name.place,
                        fmt::format("found '{}' again, expected a new name", named.name.text));
    if (!named.value) continue;
    const int32_t number = symbols_.integer32(*named.value);
    if (type.kind == Kind::BitString && number < 0)
      throw SchemaError(named.value->word.place,
                        fmt::format("found {}, expected the number of a bit", number));
    if (!numbers.insert(number).second)
      throw SchemaError(named.value->word.place,
                        fmt::format("found {} again, expected a new number", number));
  }
  int32_t next = 0;
  for (const NamedNumberSyntax& named : syntax.names) {
    int32_t number = 0;
    if (named.value) {
      number = symbols_.integer32(*named.value);
    } else {
      while (numbers.count(next)) ++next;
      numbers.insert(number = next);
    }
    type.names.push_back({std::string(named.name.text), number});
  }
}

}  // namespace certkern::asn1gen
