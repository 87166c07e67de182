#include "compiler.h"

#include <algorithm>
#include <iterator>

#include "bounds.h"
#include "checks.h"
#include "layout.h"
#include "objects.h"
#include "symbols.h"
#include "token_reader.h"
#include "types.h"

namespace certkern::asn1gen {
namespace {

bool Before(const Place& a, const Place& b) {
  return std::pair(a.line, a.column) < std::pair(b.line, b.column);
}

// In the order of the text; what came up later at the same place stays behind.
template <class Row>
void SortByPlace(std::vector<const Row*>& rows) {
  std::stable_sort(rows.begin(), rows.end(),
                   [](const Row* a, const Row* b) { return Before(a->place, b->place); });
}

}  // namespace

bool Compiler::run() {
  parse();
  if (diagnostics_.empty()) analyse();
  if (diagnostics_.empty()) finish();
  return diagnostics_.empty();
}

void Compiler::parse() {
  for (const SourceFile& file : files_) {
    if (file.text.size() > kMaxSchemaFile) {
      diagnostics_.add({&file.name, 1, 1}, "found a file that is too large, expected a schema");
      continue;
    }
    tokens_.push_back(Tokenize(file, diagnostics_));
    std::vector<ModuleSyntax> modules = ParseModules(file, tokens_.back(), diagnostics_);
    std::move(modules.begin(), modules.end(), std::back_inserter(modules_));
  }
}

void Compiler::analyse() {
  const Symbols symbols(modules_, schema_, diagnostics_);
  OidResolver oids(symbols, schema_, diagnostics_);
  oids.run();
  TypeBuilder types(symbols, schema_, diagnostics_);
  types.shapeAll();
  ObjectReader objects(symbols, schema_, oids, types, diagnostics_);
  objects.readObjects();
  objects.readSets();
  types.fillAll([&](const Word& name) { return objects.findSet(name); });
  BreakCycles(schema_, diagnostics_);
  CheckTags(schema_, diagnostics_);
  if (diagnostics_.empty()) CheckLists(schema_, diagnostics_);
}

void Compiler::finish() {
  for (Module& module : schema_.modules) {
    SortByPlace(module.types);
    SortByPlace(module.oids);
    SortByPlace(module.objects);
    SortByPlace(module.sets);
  }
  schema_.builtIns.baseName = kBuiltInFile;
  std::sort(schema_.builtIns.types.begin(), schema_.builtIns.types.end(),
            [](const Type* a, const Type* b) { return a->cppName < b->cppName; });
}

}  // namespace certkern::asn1gen
