// All names of all modules, and what values stand for. Names are unique over the modules, so a reference needs no more
// than its name.
#ifndef CERTKERN_ASN1GEN_SYMBOLS_H
#define CERTKERN_ASN1GEN_SYMBOLS_H

#include <map>
#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "model.h"
#include "syntax.h"

namespace certkern::asn1gen {

// An assignment and where it stands.
struct Symbol {
  const Assignment* assignment = nullptr;
  const ModuleSyntax* module = nullptr;
  Module* out = nullptr;
};

class Symbols {
 public:
  Symbols(const std::vector<ModuleSyntax>& modules, Schema& schema, Diagnostics& diagnostics);

  const std::vector<Symbol>& all() const { return all_; }
  // By name; null when there is none. Names of types, classes and sets share one space, values and objects the other.
  const Symbol* findUpper(std::string_view name) const { return find(upper_, name); }
  const Symbol* findLower(std::string_view name) const { return find(lower_, name); }
  // Through other names of the class; null: the name is of no class.
  const ClassSyntax* findClass(std::string_view name, const Symbol** where = nullptr) const;
  bool isObject(const Assignment& assignment) const;

  // An INTEGER value, itself or by name.
  int64_t integer(const ValueSyntax& value) const;
  int32_t integer32(const ValueSyntax& value) const;

 private:
  using Names = std::map<std::string_view, Symbol>;
  static const Symbol* find(const Names& names, std::string_view name);
  void add(const Symbol& symbol, Diagnostics& diagnostics);
  Module& moduleOf(const SourceFile& file, Schema& schema, Diagnostics& diagnostics);
  void checkImports(const ModuleSyntax& module, Diagnostics& diagnostics) const;

  std::vector<Symbol> all_;
  Names upper_;
  Names lower_;
  std::map<std::string_view, const ModuleSyntax*> modules_;
  std::map<const SourceFile*, Module*> files_;
};

// Resolves all identifiers of the schema into it, each with all its arcs.
class OidResolver {
 public:
  OidResolver(const Symbols& symbols, Schema& schema, Diagnostics& diagnostics)
      : symbols_(symbols), schema_(schema), diagnostics_(diagnostics) {}
  void run();
  // Null when the name is of no identifier; throws when it is not of anything.
  const Oid* find(const Word& name);
  // `{ ... }` where a field of an object wants an identifier: gives one without a name of its own.
  const Oid* inPlace(const ValueSyntax& value, const std::string& name, Module& module);

 private:
  bool isOid(const Assignment& assignment) const;
  const Oid* resolve(const Symbol& symbol, size_t depth);
  void readArcs(const ValueSyntax& value, std::vector<uint32_t>& arcs, size_t depth);
  void readArc(class TokenReader& in, std::vector<uint32_t>& arcs, size_t depth);

  const Symbols& symbols_;
  Schema& schema_;
  Diagnostics& diagnostics_;
  struct State {
    const Oid* oid = nullptr;
    bool failed = false;  // and noted
  };
  std::map<const Assignment*, State> states_;  // of those begun
};

}  // namespace certkern::asn1gen

#endif
