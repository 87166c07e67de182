// Information objects and the sets of them.
#ifndef CERTKERN_ASN1GEN_OBJECTS_H
#define CERTKERN_ASN1GEN_OBJECTS_H

#include <map>

#include "symbols.h"
#include "types.h"

namespace certkern::asn1gen {

// What an object says about the fields of its class. Values are kept as they stand.
struct ObjectFields {
  std::map<std::string_view, TypeSyntax> types;
  std::map<std::string_view, ValueSyntax> values;
};
// By the class's syntax, or by the fields' names where it has none.
ObjectFields ReadObject(const ValueSyntax& body, const ClassSyntax& definition);

class ObjectReader {
 public:
  ObjectReader(const Symbols& symbols, Schema& schema, OidResolver& oids, TypeBuilder& types,
               Diagnostics& diagnostics)
      : symbols_(symbols), schema_(schema), oids_(oids), types_(types), diagnostics_(diagnostics) {}

  void readObjects();
  void readSets();
  const ObjectSet* findSet(const Word& name);

 private:
  struct SetState {
    ObjectSet* set = nullptr;
    bool working = false;
  };

  void readObject(const Symbol& symbol);
  const Object* findObject(const Word& name, std::string_view className);
  const Oid* identifier(Object& object, const ClassSyntax& definition, const ObjectFields& fields);
  std::string_view className(const Word& name) const;
  const ObjectSet* readSet(const Symbol& symbol, size_t depth);
  void readElements(ObjectSet& set, Tokens body, size_t depth);
  void add(ObjectSet& set, const Object* object, const Place& place);
  void sort(ObjectSet& set);

  const Symbols& symbols_;
  Schema& schema_;
  OidResolver& oids_;
  TypeBuilder& types_;
  Diagnostics& diagnostics_;
  std::map<std::string_view, const Object*> objects_;  // null: wrong, and noted
  std::map<const Assignment*, SetState> sets_;
  std::deque<ObjectFields> fields_;  // types refer to their syntax
};

}  // namespace certkern::asn1gen

#endif
