#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "bounds.h"
#include "token_reader.h"

namespace certkern::asn1gen {
namespace {

// One word each; what needs more is read by name below.
constexpr std::string_view kTextTypes[] = {
    "UTF8String", "NumericString", "PrintableString", "TeletexString",    "T61String",     "VideotexString",
    "IA5String",  "GraphicString", "VisibleString",   "ISO646String",     "GeneralString", "UniversalString",
    "BMPString",  "UTCTime",       "GeneralizedTime", "ObjectDescriptor",
};
constexpr std::string_view kForeignTypes[] = {"REAL",         "EXTERNAL", "EMBEDDED",
                                              "RELATIVE-OID", "INSTANCE", "CHARACTER"};

bool Contains(auto& words, std::string_view word) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

int64_t ReadNumber(TokenReader& in) {
  const bool negative = in.accept("-");
  if (in.peek().kind != TokenKind::Number) in.fail("a number");
  int64_t number = 0;
  const std::string_view digits = in.peek().text;
  if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ec != std::errc())
    in.fail("a number of at most 64 bits");
  in.take();
  return negative ? -number : number;
}

TagSyntax ReadTag(TokenReader& in) {
  TagSyntax tag;
  in.expect("[");
  if (in.accept("UNIVERSAL"))
    tag.tagClass = 0;
  else if (in.accept("APPLICATION"))
    tag.tagClass = 1;
  else if (in.accept("PRIVATE"))
    tag.tagClass = 3;
  if (in.peek().kind != TokenKind::Number && in.peek().kind != TokenKind::LowerName) in.fail("a tag number");
  tag.number = ReadValue(in);
  in.expect("]");
  if (in.accept("IMPLICIT"))
    tag.mode = TagMode::Implicit;
  else if (in.accept("EXPLICIT"))
    tag.mode = TagMode::Explicit;
  return tag;
}

// `{ name(number), ... }`; numbers may be left out of enumerations.
void ReadNamedNumbers(TokenReader& in, TypeSyntax& type) {
  in.expect("{");
  do {
    if (in.accept("...")) {
      type.extensible = true;
      if (in.peek().is("!")) in.fail("',' or '}'");
      continue;
    }
    NamedNumberSyntax& named = type.names.emplace_back();
    named.name = in.expectLower("a name for a number");
    if (in.peek().is("(") || type.form != TypeForm::Enumerated) {
      in.expect("(");
      named.value = ReadValue(in);
      in.expect(")");
    }
  } while (in.accept(","));
  if (!in.accept("}")) in.fail("',' or '}'");
}

class ComponentReader {
 public:
  ComponentReader(TokenReader& in, TypeSyntax& owner, size_t depth) : in_(in), owner_(owner), depth_(depth) {}

  void run() {
    in_.expect("{");
    if (in_.accept("}")) return;
    do readOne();
    while (in_.accept(","));
    if (!in_.accept("}")) in_.fail("',' or '}'");
  }

 private:
  void readOne() {
    if (in_.accept("...")) return readExtensionMark();
    if (in_.peek().is("[") && in_.peek(1).is("[")) return readGroup();
    readComponent();
  }

  // The second mark ends the additions.
  void readExtensionMark() {
    owner_.extensible = true;
    additions_ = !additions_;
    if (in_.accept("!")) ReadValue(in_);
  }

  // `[[ 2: a A, b B ]]`
  void readGroup() {
    in_.take();
    in_.take();
    if (in_.peek().kind == TokenKind::Number) {
      in_.take();
      in_.expect(":");
    }
    do readComponent();
    while (in_.accept(","));
    in_.expect("]");
    in_.expect("]");
  }

  void readComponent() {
    if (owner_.components.size() >= kMaxComponents)
      in_.fail(fmt::format("no more than {} components", kMaxComponents));
    ComponentSyntax component;
    component.addition = additions_;
    if (owner_.form != TypeForm::Choice && in_.accept("COMPONENTS")) {
      in_.expect("OF");
      component.componentsOf = true;
      component.type = ReadType(in_, depth_ + 1);
    } else {
      component.name = in_.expectLower(owner_.form == TypeForm::Choice ? "the name of an alternative"
                                                                       : "the name of a component");
      component.type = ReadType(in_, depth_ + 1);
      readPresence(component);
    }
    owner_.components.push_back(std::move(component));
  }

  void readPresence(ComponentSyntax& component) {
    const bool choice = owner_.form == TypeForm::Choice;
    if (choice && (in_.peek().is("OPTIONAL") || in_.peek().is("DEFAULT")))
      in_.fail("',' or '}': an alternative is never absent");
    if (in_.accept("OPTIONAL")) component.optional = true;
    if (in_.accept("DEFAULT")) component.defaultValue = ReadValue(in_);
  }

  TokenReader& in_;
  TypeSyntax& owner_;
  size_t depth_;
  bool additions_ = false;
};

// `SEQUENCE {`, `SEQUENCE OF`, `SEQUENCE SIZE (1..MAX) OF`, `SEQUENCE (SIZE (1..MAX)) OF`
void ReadStructure(TokenReader& in, TypeSyntax& type, TypeForm single, TypeForm list, size_t depth) {
  type.form = single;
  if (in.peek().is("{")) return ComponentReader(in, type, depth).run();
  if (in.accept("SIZE")) {
    type.sized = true;
    if (!in.peek().is("(")) in.fail("'('");
    in.takeBalanced();
  } else if (in.peek().is("(")) {
    ReadConstraints(in, type, depth);
  }
  if (!in.accept("OF")) in.fail(type.sized || type.constrained ? "'OF'" : "'{' or 'OF'");
  type.form = list;
  if (in.peek().kind == TokenKind::LowerName) in.take();  // a name for the element, of no use here
  type.element = std::make_unique<TypeSyntax>(ReadType(in, depth + 1));
}

void ReadReference(TokenReader& in, TypeSyntax& type) {
  if (Contains(kForeignTypes, in.peek().text)) in.fail("a type of the dialect");
  type.form = TypeForm::Reference;
  type.name = in.expectUpper("a type");
  if (in.peek().is("{")) in.fail("a type without parameters: write it out under a name of its own");
  if (!in.accept(".")) return;
  if (in.peek().kind != TokenKind::FieldName) in.fail("a field of the class, like '&Type'");
  type.form = TypeForm::ClassField;
  const Token& field = in.take();
  type.field = {field.text, field.place};
}

void ReadUntagged(TokenReader& in, TypeSyntax& type, size_t depth) {
  const auto is = [&](std::string_view word, TypeForm form) {
    if (in.peek().kind != TokenKind::UpperName || !in.accept(word)) return false;
    type.form = form;
    return true;
  };
  if (is("BOOLEAN", TypeForm::Boolean) || is("NULL", TypeForm::Null)) return;
  if (is("INTEGER", TypeForm::Integer) || is("ENUMERATED", TypeForm::Enumerated)) {
    if (in.peek().is("{") || type.form == TypeForm::Enumerated) ReadNamedNumbers(in, type);
  } else if (is("BIT", TypeForm::BitString)) {
    in.expect("STRING");
    if (in.peek().is("{")) ReadNamedNumbers(in, type);
  } else if (is("OCTET", TypeForm::OctetString)) {
    in.expect("STRING");
  } else if (is("OBJECT", TypeForm::ObjectId)) {
    in.expect("IDENTIFIER");
  } else if (is("ANY", TypeForm::Any)) {
    if (!in.accept("DEFINED")) return;
    in.expect("BY");
    in.expectLower("the name of a component");
  } else if (is("SEQUENCE", TypeForm::Sequence)) {
    ReadStructure(in, type, TypeForm::Sequence, TypeForm::SequenceOf, depth);
  } else if (is("SET", TypeForm::Set)) {
    ReadStructure(in, type, TypeForm::Set, TypeForm::SetOf, depth);
  } else if (is("CHOICE", TypeForm::Choice)) {
    ComponentReader(in, type, depth).run();
    if (type.components.empty()) in.fail("a CHOICE with alternatives");
  } else if (Contains(kTextTypes, in.peek().text)) {
    const Token& word = in.take();
    type.form = TypeForm::Text;
    type.name = {word.text, word.place};
  } else {
    ReadReference(in, type);
  }
}

}  // namespace

TypeSyntax ReadType(TokenReader& in, size_t depth) {
  if (depth > kMaxNesting) in.fail(fmt::format("no more than {} types inside each other", kMaxNesting));
  TypeSyntax type;
  type.place = in.peek().place;
  while (in.peek().is("[")) {
    if (type.tags.size() >= kMaxNesting) in.fail(fmt::format("no more than {} tags", kMaxNesting));
    type.tags.push_back(ReadTag(in));
  }
  ReadUntagged(in, type, depth);
  ReadConstraints(in, type, depth);
  return type;
}

ValueSyntax ReadValue(TokenReader& in) {
  ValueSyntax value;
  const Token& first = in.peek();
  value.word = {first.text, first.place};
  if (first.kind == TokenKind::Number || first.is("-")) {
    value.kind = ValueSyntax::Kind::Number;
    value.number = ReadNumber(in);
  } else if (first.is("{")) {
    value.braces = in.takeBalanced();
  } else if (first.kind == TokenKind::LowerName) {
    in.take();
    value.kind = ValueSyntax::Kind::Name;
    if (in.accept(":")) {  // the alternative of a choice; deep ones are a chain of names
      while (in.peek().kind == TokenKind::LowerName && in.peek(1).is(":")) {
        in.take();
        in.take();
      }
      if (in.peek().kind == TokenKind::LowerName)
        in.take();
      else
        ReadValue(in);
      value.kind = ValueSyntax::Kind::Other;
    }
  } else if (first.kind == TokenKind::String || first.is("NULL")) {
    in.take();
  } else if (in.accept("TRUE")) {
    value.kind = ValueSyntax::Kind::True;
  } else if (in.accept("FALSE")) {
    value.kind = ValueSyntax::Kind::False;
  } else if (in.accept("MIN")) {
    value.kind = ValueSyntax::Kind::Min;
  } else if (in.accept("MAX")) {
    value.kind = ValueSyntax::Kind::Max;
  } else {
    in.fail("a value");
  }
  return value;
}

}  // namespace certkern::asn1gen
