// The text of an object against the WITH SYNTAX of its class.
#include <fmt/format.h>

#include <algorithm>

#include "bounds.h"
#include "objects.h"
#include "token_reader.h"

namespace certkern::asn1gen {
namespace {

class ObjectParser {
 public:
  ObjectParser(TokenReader& in, const ClassSyntax& definition) : in_(in), definition_(definition) {}

  // `{ &id id-x, &Type X }`
  ObjectFields byNames() {
    while (!in_.atEnd()) {
      if (in_.peek().kind != TokenKind::FieldName) in_.fail("a field, like '&id'");
      const Token& name = in_.take();
      readField(name);
      if (!in_.atEnd() && !in_.accept(",")) in_.fail("',' or '}'");
    }
    return std::move(fields_);
  }

  ObjectFields bySyntax() {
    TokenReader pattern(definition_.pattern);
    readPattern(pattern, 0);
    if (!in_.atEnd()) in_.fail("'}': the class's syntax has no more");
    return std::move(fields_);
  }

 private:
  // To the end of the pattern, or to the bracket that closes it.
  void readPattern(TokenReader& pattern, size_t depth) {
    if (depth > kMaxNesting) pattern.fail("fewer groups inside each other");
    while (!pattern.atEnd() && !pattern.peek().is("]")) {
      if (pattern.accept("[")) {
        if (begins(pattern.peek()))
          readPattern(pattern, depth + 1);
        else
          skipGroup(pattern);
        pattern.expect("]");
      } else if (pattern.peek().kind == TokenKind::FieldName) {
        readField(pattern.take());
      } else {
        in_.expect(pattern.take().text);
      }
    }
  }

  // Whether an optional group stands here: by its first word, or, when that is a field, if anything is left.
  bool begins(const Token& first) const {
    if (first.kind == TokenKind::FieldName) return !in_.atEnd();
    return in_.peek().is(first.text) && !in_.atEnd();
  }

  static void skipGroup(TokenReader& pattern) {
    for (size_t open = 1; !pattern.atEnd(); pattern.take()) {
      if (pattern.peek().is("[")) ++open;
      if (pattern.peek().is("]") && --open == 0) return;
    }
  }

  void readField(const Token& name) {
    const auto field = std::find_if(definition_.fields.begin(), definition_.fields.end(),
                                    [&](const FieldSyntax& row) { return row.name.text == name.text; });
    if (field == definition_.fields.end())
      throw SchemaError(name.place, fmt::format("found '&{}', expected a field of the class", name.text));
    if (field->kind == FieldSyntax::Kind::Type) {
      fields_.types[name.text] = ReadType(in_);
    } else if (field->kind == FieldSyntax::Kind::Value) {
      fields_.values[name.text] = ReadValue(in_);
    } else if (in_.peek().is("{")) {
      in_.takeBalanced();
    } else {
      in_.expectUpper("a set");
    }
  }

  TokenReader& in_;
  const ClassSyntax& definition_;
  ObjectFields fields_;
};

}  // namespace

ObjectFields ReadObject(const ValueSyntax& body, const ClassSyntax& definition) {
  if (body.braces.empty())
    throw SchemaError(body.word.place,
                      fmt::format("found '{}', expected '{{' and the object's fields", body.word.text));
  TokenReader in(body.braces.subspan(1));
  ObjectParser parser(in, definition);
  const bool byNames = definition.pattern.empty() || in.peek().kind == TokenKind::FieldName;
  ObjectFields fields = byNames ? parser.byNames() : parser.bySyntax();
  for (const FieldSyntax& field : definition.fields) {
    const bool given = fields.types.count(field.name.text) || fields.values.count(field.name.text);
    if (given || field.optional || field.kind == FieldSyntax::Kind::Set) continue;
    throw SchemaError(
        body.word.place,
        fmt::format("found an object without '&{}', expected all that its class demands", field.name.text));
  }
  return fields;
}

}  // namespace certkern::asn1gen
