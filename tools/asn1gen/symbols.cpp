#include "symbols.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "bounds.h"

namespace certkern::asn1gen {

Symbols::Symbols(const std::vector<ModuleSyntax>& modules, Schema& schema, Diagnostics& diagnostics) {
  for (const ModuleSyntax& module : modules) {
    if (!modules_.emplace(module.name.text, &module).second)
      diagnostics.add(module.name.place,
                      fmt::format("found a second module {}, expected another name", module.name.text));
    Module& out = moduleOf(*module.file, schema, diagnostics);
    for (const Assignment& assignment : module.assignments) add({&assignment, &module, &out}, diagnostics);
  }
  for (const ModuleSyntax& module : modules) checkImports(module, diagnostics);
}

Module& Symbols::moduleOf(const SourceFile& file, Schema& schema, Diagnostics& diagnostics) {
  const auto [place, isNew] = files_.emplace(&file, nullptr);
  if (!isNew) return *place->second;
  Module& module = schema.modules.emplace_back();
  module.fileName = file.name.substr(file.name.find_last_of('/') + 1);
  module.baseName = CppName(module.fileName.substr(0, module.fileName.find_last_of('.')));
  for (const Module& other : schema.modules) {
    if (&other != &module && other.baseName == module.baseName)
      diagnostics.add({&file.name, 1, 1},
                      fmt::format("found a second file {}, expected another name", module.baseName));
  }
  if (module.baseName == kBuiltInFile || module.baseName == kCatalogueFile)
    diagnostics.add({&file.name, 1, 1},
                    fmt::format("found a file {}, expected a name that the compiler doesn't need itself",
                                module.baseName));
  return *(place->second = &module);
}

const Symbol* Symbols::find(const Names& names, std::string_view name) {
  const auto found = names.find(name);
  return found == names.end() ? nullptr : &found->second;
}

void Symbols::add(const Symbol& symbol, Diagnostics& diagnostics) {
  const Word& name = symbol.assignment->name;
  const auto kind = symbol.assignment->kind;
  const bool lower = kind == Assignment::Kind::Value || kind == Assignment::Kind::Object;
  const auto [place, isNew] = (lower ? lower_ : upper_).emplace(name.text, symbol);
  if (isNew) {
    all_.push_back(symbol);
  } else {
    diagnostics.add(name.place,
                    fmt::format("found '{}' again, expected a new name: it is defined at {}", name.text,
                                ToText(place->second.assignment->name.place)));
  }
}

void Symbols::checkImports(const ModuleSyntax& module, Diagnostics& diagnostics) const {
  for (const ImportSyntax& import : module.imports) {
    const auto from = modules_.find(import.module.text);
    if (from == modules_.end()) {
      diagnostics.add(import.module.place,
                      fmt::format("found '{}', expected a module among the given files", import.module.text));
      continue;
    }
    for (const Word& word : import.symbols) {
      const Symbol* const symbol = findUpper(word.text) ? findUpper(word.text) : findLower(word.text);
      if (symbol && symbol->module == from->second) continue;
      diagnostics.add(
          word.place,
          symbol ? fmt::format("found '{}', expected a name of {}: it is defined in {}", word.text,
                               import.module.text, symbol->module->name.text)
                 : fmt::format("found '{}', expected a name that {} defines", word.text, import.module.text));
    }
  }
}

const ClassSyntax* Symbols::findClass(std::string_view name, const Symbol** where) const {
  for (size_t steps = 0; steps < kMaxReferences; ++steps) {
    const Symbol* const symbol = findUpper(name);
    if (!symbol) return nullptr;
    if (where) *where = symbol;
    const Assignment& assignment = *symbol->assignment;
    if (assignment.kind == Assignment::Kind::Class) return &assignment.classSyntax;
    const TypeSyntax& type = assignment.type;
    if (assignment.kind != Assignment::Kind::Type || type.form != TypeForm::Reference || !type.tags.empty())
      return nullptr;
    name = type.name.text;
  }
  return nullptr;
}

bool Symbols::isObject(const Assignment& assignment) const {
  return assignment.kind == Assignment::Kind::Value && !assignment.objectClass.empty()
      && findClass(assignment.objectClass.text);
}

int64_t Symbols::integer(const ValueSyntax& value) const {
  const ValueSyntax* at = &value;
  for (size_t steps = 0; steps < kMaxReferences; ++steps) {
    if (at->kind == ValueSyntax::Kind::Number) return at->number;
    const Symbol* const symbol = at->kind == ValueSyntax::Kind::Name ? findLower(at->word.text) : nullptr;
    if (!symbol)
      throw SchemaError(at->word.place,
                        fmt::format("found '{}', expected a number or the name of one", at->word.text));
    at = &symbol->assignment->value;
  }
  throw SchemaError(value.word.place,
                    fmt::format("found '{}', expected a number: it leads to itself", value.word.text));
}

int32_t Symbols::integer32(const ValueSyntax& value) const {
  const int64_t number = integer(value);
  if (number < std::numeric_limits<int32_t>::min() || number > std::numeric_limits<int32_t>::max())
    throw SchemaError(value.word.place, fmt::format("found {}, expected a number that 32 bits hold", number));
  return static_cast<int32_t>(number);
}

}  // namespace certkern::asn1gen
