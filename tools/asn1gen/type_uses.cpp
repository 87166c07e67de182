// Types where they are used: by reference, built in, or written in place.
#include <fmt/format.h>

#include <algorithm>

#include "types.h"

namespace certkern::asn1gen {

TypeUse TypeBuilder::use(const TypeSyntax& syntax, const Scope& scope) {
  TypeUse result = untagged(syntax, scope);
  result.tags = tagged(syntax, std::move(result.tags), scope.symbol->module->tagDefault);
  return result;
}

TypeUse TypeBuilder::untagged(const TypeSyntax& syntax, const Scope& scope) {
  switch (syntax.form) {
    case TypeForm::Reference:
      return reference(syntax.name);
    case TypeForm::ClassField:
      return classField(syntax, scope);
    case TypeForm::SequenceOf:
    case TypeForm::SetOf:
      return list(syntax, scope);
    case TypeForm::Sequence:
    case TypeForm::Set:
    case TypeForm::Choice:
    case TypeForm::Enumerated:
      return written(syntax, scope);
    case TypeForm::Any:
      return {types_.anyType(), {}, {}, {}, false};
    default:
      break;
  }
  if (syntax.contained && isOpen(*syntax.contained)) {
    TypeUse inner = classField(*syntax.contained, scope);
    inner.tags = UniversalTag(Kind::OctetString, {});
    inner.contained = true;
    return inner;
  }
  // strings of a certain size are types of their own, as named numbers and bits are
  const bool sizedBits =
      syntax.sized && (syntax.form == TypeForm::OctetString || syntax.form == TypeForm::BitString);
  if (!syntax.names.empty() || sizedBits) return written(syntax, scope);
  const Type* const type = types_.builtIn(syntax, kindOf(syntax));
  return {type, type->tags, {}, {}, false};
}

TypeUse TypeBuilder::reference(const Word& name) {
  if (symbols_.findClass(name.text))
    throw SchemaError(
        name.place, fmt::format("found the class '{}', expected a type, or a field of the class", name.text));
  const Type* const type = types_.find(name).type;
  return {type, type->tags, {}, {}, false};
}

const FieldSyntax& TypeBuilder::findField(const TypeSyntax& syntax, const Symbol** where) const {
  const ClassSyntax* const definition = symbols_.findClass(syntax.name.text, where);
  if (!definition)
    throw SchemaError(syntax.name.place,
                      fmt::format("found '{}', expected the name of a class", syntax.name.text));
  const auto field = std::find_if(definition->fields.begin(), definition->fields.end(),
                                  [&](const FieldSyntax& row) { return row.name.text == syntax.field.text; });
  if (field == definition->fields.end() || field->kind == FieldSyntax::Kind::Set)
    throw SchemaError(syntax.field.place,
                      fmt::format("found '&{}', expected a type or value field of {}", syntax.field.text,
                                  syntax.name.text));
  static constexpr TypeForm kTooMuch[] = {TypeForm::ClassField, TypeForm::Sequence,   TypeForm::Set,
                                          TypeForm::Choice,     TypeForm::SequenceOf, TypeForm::SetOf};
  if (field->kind == FieldSyntax::Kind::Value
      && std::count(std::begin(kTooMuch), std::end(kTooMuch), field->type.form))
    throw SchemaError(syntax.field.place,
                      fmt::format("found '&{}', expected a field of a type with a name", syntax.field.text));
  return *field;
}

bool TypeBuilder::isOpen(const TypeSyntax& syntax) const {
  return syntax.form == TypeForm::ClassField && findField(syntax, nullptr).kind == FieldSyntax::Kind::Type;
}

TypeUse TypeBuilder::classField(const TypeSyntax& syntax, const Scope& scope) {
  Scope inClass = scope;
  const FieldSyntax& field = findField(syntax, &inClass.symbol);
  if (field.kind == FieldSyntax::Kind::Type)
    return {types_.anyType(), {}, syntax.table.set, syntax.table.selector, false};
  return use(field.type, inClass);
}

// A list whose elements are plain is known by its element alone. One with a size is a type of its own, and so is one whose
// elements are tagged in place.
TypeUse TypeBuilder::list(const TypeSyntax& syntax, const Scope& scope) {
  const Kind kind = kindOf(syntax);
  const TypeUse element = use(*syntax.element, {scope.symbol, scope.name + "_element"});
  const bool plain = element.tags == element.type->tags && !element.contained;
  const Type* type = plain ? types_.sharedList(kind, *element.type) : nullptr;
  if (!plain || syntax.sized) {
    Type& own = types_.add(scope.name, scope.name, syntax.place, scope.symbol->out);
    own.kind = kind;
    own.tags = UniversalTag(kind, {});
    own.members.push_back(ElementMember(element, syntax.element->place));
    type = &own;
  }
  return {type, type->tags, element.objectSet, element.selector, false};
}

TypeUse TypeBuilder::written(const TypeSyntax& syntax, const Scope& scope) {
  Type& type = types_.add(scope.name, scope.name, syntax.place, scope.symbol->out);
  type.kind = kindOf(syntax);
  type.tags = UniversalTag(type.kind, {});
  addNames(type, syntax);
  describe(type, syntax, *scope.symbol);
  return {&type, type.tags, {}, {}, false};
}

const Type* TypeBuilder::ofObject(const TypeSyntax& syntax, const Symbol& symbol, const std::string& object,
                                  std::string_view field) {
  const bool plain = syntax.form == TypeForm::Reference && syntax.tags.empty() && !syntax.constrained;
  const std::string name = fmt::format("_{}_{}", CppName(object), CppName(field));
  Named& named = plain ? types_.find(syntax.name) : types_.addNamed(name, syntax.place, symbol, syntax);
  shape(named, 0);
  return named.type;
}

}  // namespace certkern::asn1gen
