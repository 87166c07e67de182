#include <fmt/format.h>

#include <algorithm>

#include "types.h"

namespace certkern::asn1gen {
namespace {

struct TextTag {
  std::string_view name;
  uint32_t number;
};
constexpr TextTag kTextTags[] = {
    {"ObjectDescriptor", 7 },
    {"UTF8String",       12},
    {"NumericString",    18},
    {"PrintableString",  19},
    {"TeletexString",    20},
    {"T61String",        20},
    {"VideotexString",   21},
    {"IA5String",        22},
    {"UTCTime",          23},
    {"GeneralizedTime",  24},
    {"GraphicString",    25},
    {"VisibleString",    26},
    {"ISO646String",     26},
    {"GeneralString",    27},
    {"UniversalString",  28},
    {"BMPString",        30},
};

}  // namespace

TagList UniversalTag(Kind kind, std::string_view text) {
  switch (kind) {
    case Kind::Boolean:
      return {
          {0, 1}
      };
    case Kind::Int32:
    case Kind::BigInteger:
      return {
          {0, 2}
      };
    case Kind::BitString:
      return {
          {0, 3}
      };
    case Kind::OctetString:
      return {
          {0, 4}
      };
    case Kind::Null:
      return {
          {0, 5}
      };
    case Kind::ObjectId:
      return {
          {0, 6}
      };
    case Kind::Enumerated:
      return {
          {0, 10}
      };
    case Kind::Sequence:
    case Kind::SequenceOf:
      return {
          {0, 16}
      };
    case Kind::Set:
    case Kind::SetOf:
      return {
          {0, 17}
      };
    case Kind::Open:
    case Kind::Choice:
      return {};
    case Kind::Text:
      break;
  }
  const auto found = std::find_if(std::begin(kTextTags), std::end(kTextTags),
                                  [&](const TextTag& row) { return row.name == text; });
  return {
      {0, found->number}
  };  // the parser knows the same names
}

Member ElementMember(const TypeUse& element, const Place& place) {
  Member member;
  member.name = member.cppName = "element";
  member.place = place;
  member.type = element.type;
  member.tags = element.tags;
  member.contained = element.contained;
  return member;
}

TypeTable::Named& TypeTable::addNamed(const std::string& name, const Place& place, const Symbol& symbol,
                                      const TypeSyntax& syntax) {
  Type& type = add(name, CppName(name), place, symbol.out);
  return named_[name] = Named{symbol, &syntax, &type, Named::State::New, Named::State::New};
}

Type& TypeTable::add(const std::string& name, const std::string& cppName, const Place& place,
                     Module* module) {
  const auto [taken, isNew] = taken_.emplace(cppName, place);
  if (!isNew)
    throw SchemaError(
        place,
        fmt::format("found a type that would be called {}, as the one at {}, expected another name", cppName,
                    ToText(taken->second)));
  Type& type = schema_.types.emplace_back();
  type.name = name;
  type.cppName = cppName;
  type.place = place;
  type.module = module;
  module->types.push_back(&type);
  return type;
}

TypeTable::Named& TypeTable::find(const Word& name) {
  const auto found = named_.find(name.text);
  if (found == named_.end())
    throw SchemaError(name.place,
                      fmt::format("found '{}', expected the name of a type that is defined", name.text));
  return found->second;
}

const Type* TypeTable::builtIn(const std::string& name, Kind kind, TagList tags) {
  const Type*& known = unnamed_[name];
  if (known) return known;
  Type& type = schema_.types.emplace_back();
  type.name = name;
  type.cppName = name;
  std::replace(type.cppName.begin(), type.cppName.end(), ' ', '_');
  type.kind = kind;
  type.tags = std::move(tags);
  type.module = &schema_.builtIns;
  type.module->types.push_back(&type);
  return known = &type;
}

const Type* TypeTable::builtIn(const TypeSyntax& syntax, Kind kind) {
  static constexpr std::string_view kNames[] = {"BOOLEAN",    "INTEGER32",    "INTEGER", "ENUMERATED",
                                                "BIT STRING", "OCTET STRING", "NULL",    "OBJECT IDENTIFIER"};
  if (kind == Kind::Text)
    return builtIn(std::string(syntax.name.text), kind, UniversalTag(kind, syntax.name.text));
  return builtIn(std::string(kNames[static_cast<size_t>(kind)]), kind, UniversalTag(kind, {}));
}

const Type* TypeTable::anyType() { return builtIn("ANY", Kind::Open, {}); }

// It stands with its element: in the same module, or among the built-in types.
const Type* TypeTable::sharedList(Kind kind, const Type& element) {
  const std::string name = (kind == Kind::SequenceOf ? "_SeqOf" : "_SetOf") + element.cppName;
  const Type*& known = unnamed_[name];
  if (known) return known;
  Type& type = schema_.types.emplace_back();
  type.name = type.cppName = name;
  type.isSharedList = true;
  type.place = element.place;
  type.module = element.module;
  type.kind = kind;
  type.tags = UniversalTag(kind, {});
  type.members.push_back(ElementMember({&element, element.tags, {}, {}, false}, element.place));
  type.module->types.push_back(&type);
  return known = &type;
}

}  // namespace certkern::asn1gen
