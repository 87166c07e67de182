#include "objects.h"

#include <fmt/format.h>

#include <algorithm>

#include "bounds.h"
#include "token_reader.h"

namespace certkern::asn1gen {
namespace {

// The look-up's order: fewer arcs first, then arc by arc.
bool Before(const Object* a, const Object* b) {
  const auto& left = a->id->arcs;
  const auto& right = b->id->arcs;
  return left.size() != right.size() ? left.size() < right.size() : left < right;
}

// The field that selects: the unique one.
const FieldSyntax* FindSelectingField(const ClassSyntax& definition) {
  const auto found = std::find_if(
      definition.fields.begin(), definition.fields.end(),
      [](const FieldSyntax& field) { return field.kind == FieldSyntax::Kind::Value && field.unique; });
  return found == definition.fields.end() ? nullptr : &*found;
}

const FieldSyntax* FindTypeField(const ClassSyntax& definition) {
  const auto found =
      std::find_if(definition.fields.begin(), definition.fields.end(),
                   [](const FieldSyntax& field) { return field.kind == FieldSyntax::Kind::Type; });
  return found == definition.fields.end() ? nullptr : &*found;
}

}  // namespace

void ObjectReader::readObjects() {
  for (const Symbol& symbol : symbols_.all()) {
    if (!symbols_.isObject(*symbol.assignment)) continue;
    objects_[symbol.assignment->name.text] = nullptr;
    Attempt(diagnostics_, [&] { readObject(symbol); });
  }
}

// The name that the class is defined by.
std::string_view ObjectReader::className(const Word& name) const {
  const Symbol* where = nullptr;
  if (!symbols_.findClass(name.text, &where))
    throw SchemaError(name.place, fmt::format("found '{}', expected the name of a class", name.text));
  return where->assignment->name.text;
}

void ObjectReader::readObject(const Symbol& symbol) {
  const Assignment& assignment = *symbol.assignment;
  const ClassSyntax& definition = *symbols_.findClass(assignment.objectClass.text);
  const ObjectFields& fields = fields_.emplace_back(ReadObject(assignment.value, definition));
  Object object;
  object.name = assignment.name.text;
  object.cppName = CppName(object.name);
  object.className = className(assignment.objectClass);
  object.place = assignment.name.place;
  object.module = symbol.out;
  object.id = identifier(object, definition, fields);
  const FieldSyntax* const typeField = FindTypeField(definition);
  const auto type = typeField ? fields.types.find(typeField->name.text) : fields.types.end();
  if (type != fields.types.end())
    object.type = types_.ofObject(type->second, symbol, object.name, typeField->name.text);
  schema_.objects.push_back(std::move(object));
  symbol.out->objects.push_back(&schema_.objects.back());
  objects_[assignment.name.text] = &schema_.objects.back();
}

const Oid* ObjectReader::identifier(Object& object, const ClassSyntax& definition,
                                    const ObjectFields& fields) {
  const FieldSyntax* const field = FindSelectingField(definition);
  const auto value = field ? fields.values.find(field->name.text) : fields.values.end();
  if (value == fields.values.end())
    throw SchemaError(
        object.place,
        fmt::format("found '{}' of the class {}, expected a class with an OBJECT IDENTIFIER UNIQUE",
                    object.name, object.className));
  const ValueSyntax& given = value->second;
  if (!given.braces.empty()) return oids_.inPlace(given, "id-of-" + object.name, *object.module);
  if (given.kind != ValueSyntax::Kind::Name)
    throw SchemaError(given.word.place,
                      fmt::format("found '{}', expected an object identifier", given.word.text));
  const Oid* const oid = oids_.find(given.word);
  if (!oid)
    throw SchemaError(given.word.place,
                      fmt::format("found '{}', expected the name of an object identifier", given.word.text));
  return oid;
}

void ObjectReader::readSets() {
  for (const Symbol& symbol : symbols_.all()) {
    if (symbol.assignment->kind == Assignment::Kind::Set) Attempt(diagnostics_, [&] { readSet(symbol, 0); });
  }
}

const ObjectSet* ObjectReader::findSet(const Word& name) {
  const Symbol* const symbol = symbols_.findUpper(name.text);
  const auto known = symbol ? sets_.find(symbol->assignment) : sets_.end();
  if (known == sets_.end())
    throw SchemaError(name.place, fmt::format("found '{}', expected the name of an object set", name.text));
  return known->second.set;
}

const Object* ObjectReader::findObject(const Word& name, std::string_view wanted) {
  const auto found = objects_.find(name.text);
  if (found == objects_.end())
    throw SchemaError(name.place, fmt::format("found '{}', expected the name of an object", name.text));
  if (!found->second) throw AlreadyNoted();
  if (found->second->className != wanted)
    throw SchemaError(name.place,
                      fmt::format("found '{}' of the class {}, expected an object of {}", name.text,
                                  found->second->className, wanted));
  return found->second;
}

const ObjectSet* ObjectReader::readSet(const Symbol& symbol, size_t depth) {
  const Assignment& assignment = *symbol.assignment;
  const auto [entry, isNew] = sets_.emplace(&assignment, SetState());
  SetState& state = entry->second;
  if (state.working || depth > kMaxReferences)
    throw SchemaError(assignment.name.place,
                      fmt::format("found '{}' inside itself, expected other sets", assignment.name.text));
  if (!isNew) return state.set;
  ObjectSet& set = schema_.sets.emplace_back();
  set.name = assignment.name.text;
  set.cppName = CppName(set.name);
  set.place = assignment.name.place;
  set.module = symbol.out;
  symbol.out->sets.push_back(&set);
  state = {&set, true};
  Attempt(diagnostics_, [&] {
    set.className = className(assignment.objectClass);
    readElements(set, assignment.body, depth);
    sort(set);
  });
  state.working = false;
  return &set;
}

// `a | b | Other | ...`; commas stand around the extension mark.
void ObjectReader::readElements(ObjectSet& set, Tokens body, size_t depth) {
  TokenReader in(body);
  do {
    if (in.atEnd() && set.objects.empty()) return;
    if (in.accept("...")) continue;
    if (in.peek().is("{")) in.fail("the name of an object: give it one of its own");
    if (in.peek().kind == TokenKind::LowerName) {
      const Word name = in.expectLower("an object");
      Attempt(diagnostics_, [&] { add(set, findObject(name, set.className), name.place); });
      continue;
    }
    const Word name = in.expectUpper("an object, a set or '...'");
    const Symbol* const other = symbols_.findUpper(name.text);
    if (!other || other->assignment->kind != Assignment::Kind::Set
        || className(other->assignment->objectClass) != set.className)
      throw SchemaError(name.place,
                        fmt::format("found '{}', expected a set of {}", name.text, set.className));
    for (const Object* const object : readSet(*other, depth + 1)->objects) add(set, object, name.place);
  } while (in.accept("|") || in.accept(",") || in.accept("UNION"));
  if (!in.atEnd()) in.fail("'|', ',' or '}'");
}

// An object that comes in twice stays one; two objects with the same identifier would hide each other.
void ObjectReader::add(ObjectSet& set, const Object* object, const Place& place) {
  for (const Object* const other : set.objects) {
    if (other == object) return;
    if (other->id->arcs == object->id->arcs)
      throw SchemaError(place,
                        fmt::format("found '{}' with the identifier of '{}', expected one of them",
                                    object->name, other->name));
  }
  set.objects.push_back(object);
}

void ObjectReader::sort(ObjectSet& set) { std::sort(set.objects.begin(), set.objects.end(), Before); }

}  // namespace certkern::asn1gen
