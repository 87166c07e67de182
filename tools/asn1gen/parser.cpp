#include <fmt/format.h>

#include "bounds.h"
#include "token_reader.h"

namespace certkern::asn1gen {
namespace {

// Between the brace here and the one that closes it; the latter is included, as the end of the stretch.
Tokens TakeBody(TokenReader& in) {
  if (!in.peek().is("{")) in.fail("'{'");
  return in.takeBalanced().subspan(1);
}

FieldSyntax ReadField(TokenReader& in) {
  FieldSyntax field;
  if (in.peek().kind != TokenKind::FieldName) in.fail("a field, like '&id'");
  const Token& name = in.take();
  field.name = {name.text, name.place};
  const bool upper = name.text[0] >= 'A' && name.text[0] <= 'Z';
  const bool ends =
      in.peek().is(",") || in.peek().is("}") || in.peek().is("OPTIONAL") || in.peek().is("DEFAULT");
  if (upper) {
    field.kind = ends ? FieldSyntax::Kind::Type : FieldSyntax::Kind::Set;
    if (!ends) ReadType(in);  // the class of the set's objects, or the type of its values
  } else {
    field.kind = FieldSyntax::Kind::Value;  // or an object: told apart when the name is known
    field.type = ReadType(in);
    field.unique = in.accept("UNIQUE");
  }
  if (in.accept("OPTIONAL")) {
    field.optional = true;
  } else if (in.accept("DEFAULT")) {
    field.optional = true;
    if (field.kind == FieldSyntax::Kind::Type)
      ReadType(in);
    else
      ReadValue(in);
  }
  return field;
}

class ModuleParser {
 public:
  ModuleParser(const SourceFile& file, TokenReader& in, Diagnostics& diagnostics)
      : file_(file), in_(in), diagnostics_(diagnostics) {}

  ModuleSyntax run() {
    module_.file = &file_;
    start_ = in_.position();
    readHead();
    if (!Attempt(diagnostics_, [&] { readExportsAndImports(); })) skipToAssignment();
    while (!in_.peek().is("END")) {
      if (in_.atEnd()) {
        diagnostics_.add(in_.peek().place,
                         fmt::format("found {}, expected an assignment or 'END' of the module {}",
                                     Quoted(in_.peek()), module_.name.text));
        return std::move(module_);
      }
      if (!Attempt(diagnostics_, [&] { readAssignment(); })) skipToAssignment();
    }
    in_.take();
    return std::move(module_);
  }

 private:
  void readHead() {
    module_.name = in_.expectUpper("the name of a module");
    if (in_.peek().is("{")) in_.takeBalanced();
    in_.expect("DEFINITIONS");
    if (in_.accept("IMPLICIT"))
      module_.tagDefault = TagDefault::Implicit;
    else if (in_.accept("AUTOMATIC"))
      module_.tagDefault = TagDefault::Automatic;
    else if (!in_.accept("EXPLICIT") && !in_.peek().is("::="))
      in_.fail("'EXPLICIT', 'IMPLICIT', 'AUTOMATIC' or '::='");
    if (!in_.peek().is("::=")) in_.expect("TAGS");
    in_.expect("::=");
    in_.expect("BEGIN");
  }

  // All names are visible everywhere, so exports say nothing.
  void readExportsAndImports() {
    if (in_.accept("EXPORTS")) {
      while (!in_.peek().is(";")) {
        if (in_.atEnd() || in_.peek().is("::=")) in_.fail("';' at the end of the exports");
        in_.take();
      }
      in_.take();
    }
    if (!in_.accept("IMPORTS")) return;
    while (!in_.accept(";")) readImport();
  }

  void readImport() {
    ImportSyntax import;
    do {
      const Token& token = in_.peek();
      if ((token.kind != TokenKind::UpperName || IsKeyword(token.text)) && token.kind != TokenKind::LowerName)
        in_.fail("a name to import");
      in_.take();
      import.symbols.push_back({token.text, token.place});
      if (in_.accept("{")) in_.expect("}");
    } while (in_.accept(","));
    if (!in_.accept("FROM")) in_.fail("',' or 'FROM'");
    import.module = in_.expectUpper("the name of a module");
    if (in_.peek().is("{"))
      in_.takeBalanced();
    else if (in_.peek().kind == TokenKind::LowerName && !in_.peek(1).is(",") && !in_.peek(1).is("FROM"))
      in_.take();
    module_.imports.push_back(std::move(import));
  }

  void readAssignment() {
    start_ = in_.position();
    const Token& first = in_.peek();
    Assignment assignment;
    if (first.kind == TokenKind::LowerName)
      readLower(assignment);
    else if (first.kind == TokenKind::UpperName && !IsKeyword(first.text))
      readUpper(assignment);
    else
      in_.fail("an assignment or 'END'");
    const Token& last = in_.between(in_.position() - 1, in_.position()).front();
    const char* const end = last.text.data() + last.text.size();
    assignment.text = {first.text.data(), static_cast<size_t>(end - first.text.data())};
    module_.assignments.push_back(std::move(assignment));
  }

  // `name Type ::= value`, and `name CLASS ::= { ... }`, which has the same shape
  void readLower(Assignment& assignment) {
    assignment.kind = Assignment::Kind::Value;
    assignment.name = in_.expectLower("a name");
    assignment.type = ReadType(in_);
    in_.expect("::=");
    assignment.value = ReadValue(in_);
    const TypeSyntax& type = assignment.type;
    if (type.form == TypeForm::Reference && type.tags.empty()) assignment.objectClass = type.name;
  }

  void readUpper(Assignment& assignment) {
    assignment.name = in_.expectUpper("a name");
    if (in_.peek().is("{")) in_.fail("'::=': types with parameters are no part of the dialect");
    if (in_.peek().kind == TokenKind::UpperName) {  // `Set CLASS ::= { ... }`
      assignment.kind = Assignment::Kind::Set;
      assignment.objectClass = in_.expectUpper("'::=' or the class of an object set");
      in_.expect("::=");
      assignment.body = TakeBody(in_);
      return;
    }
    in_.expect("::=");
    if (in_.accept("CLASS")) {
      assignment.kind = Assignment::Kind::Class;
      assignment.classSyntax = ReadClass(in_);
    } else {
      assignment.type = ReadType(in_);
    }
  }

  // To the next assignment: its first word stands on the line of the next '::=', or on the one before.
  void skipToAssignment() {
    for (; !in_.atEnd() && !in_.peek().is("END"); in_.take()) {
      if (!in_.peek().is("::=")) continue;
      const size_t head = headOf(in_.position());
      if (head <= start_) continue;  // the one that failed
      in_.setPosition(head);
      return;
    }
  }

  size_t headOf(size_t at) const {
    const auto line = [&](size_t index) { return in_.between(index, index + 1).front().place.line; };
    const uint32_t wanted = line(at - 1);
    while (at > start_ && line(at - 1) == wanted) --at;
    return at;
  }

  const SourceFile& file_;
  TokenReader& in_;
  Diagnostics& diagnostics_;
  ModuleSyntax module_;
  size_t start_ = 0;  // of the assignment at hand
};

}  // namespace

ClassSyntax ReadClass(TokenReader& in) {
  ClassSyntax result;
  in.expect("{");
  do {
    if (result.fields.size() >= kMaxComponents) in.fail("fewer fields");
    result.fields.push_back(ReadField(in));
  } while (in.accept(","));
  if (!in.accept("}")) in.fail("',' or '}'");
  if (in.accept("WITH")) {
    in.expect("SYNTAX");
    result.pattern = TakeBody(in);
  }
  return result;
}

std::vector<ModuleSyntax> ParseModules(const SourceFile& file, Tokens tokens, Diagnostics& diagnostics) {
  std::vector<ModuleSyntax> modules;
  TokenReader in(tokens);
  do {
    // after a broken head nothing tells where the next module begins
    if (!Attempt(diagnostics, [&] { modules.push_back(ModuleParser(file, in, diagnostics).run()); })) break;
  } while (!in.atEnd());
  return modules;
}

}  // namespace certkern::asn1gen
