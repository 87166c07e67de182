// From the syntax of types to types with tags and members, and names for those that are written in place.
#ifndef CERTKERN_ASN1GEN_TYPES_H
#define CERTKERN_ASN1GEN_TYPES_H

#include <functional>
#include <map>
#include <string>

#include "model.h"
#include "symbols.h"

namespace certkern::asn1gen {

// A type where it is used: as a member, an element, or what an object has.
struct TypeUse {
  const Type* type = nullptr;
  TagList tags;
  Word objectSet;
  Word selector;
  bool contained = false;
};

// What a type of the kind has if nothing else is said; for character strings and times by their keyword.
TagList UniversalTag(Kind kind, std::string_view text);

// Where a type stands, and the C++ name that it gets if it has to have one.
struct Scope {
  const Symbol* symbol = nullptr;
  std::string name;
};

// The one member of a list.
Member ElementMember(const TypeUse& element, const Place& place);

// All types there are: the named ones, those that get a name, the built-in ones and the lists that only elements tell
// apart.
class TypeTable {
 public:
  struct Named {
    enum class State { New, Working, Done };
    Symbol symbol;
    const TypeSyntax* syntax = nullptr;
    Type* type = nullptr;
    State shape = State::New;
    State members = State::New;
  };

  explicit TypeTable(Schema& schema) : schema_(schema) {}

  Named& addNamed(const std::string& name, const Place& place, const Symbol& symbol,
                  const TypeSyntax& syntax);
  Type& add(const std::string& name, const std::string& cppName, const Place& place, Module* module);
  std::map<std::string, Named, std::less<>>& named() { return named_; }
  Named& find(const Word& name);

  const Type* builtIn(const TypeSyntax& syntax, Kind kind);
  const Type* anyType();
  const Type* sharedList(Kind kind, const Type& element);

 private:
  const Type* builtIn(const std::string& name, Kind kind, TagList tags);

  Schema& schema_;
  std::map<std::string, Named, std::less<>> named_;
  std::map<std::string, Place> taken_;  // C++ names
  std::map<std::string, const Type*> unnamed_;
};

class TypeBuilder {
 public:
  using SetFinder = std::function<const ObjectSet*(const Word& name)>;

  TypeBuilder(const Symbols& symbols, Schema& schema, Diagnostics& diagnostics)
      : symbols_(symbols), diagnostics_(diagnostics), types_(schema) {}

  // Kind, tags and named numbers of all named types. Their members follow, once object sets are known.
  void shapeAll();
  void fillAll(SetFinder findSet);
  // The type that an object has: one with a name, or one that is written there and is called `_object_Type`, after the field.
  const Type* ofObject(const TypeSyntax& syntax, const Symbol& symbol, const std::string& object,
                       std::string_view field);

 private:
  using Named = TypeTable::Named;
  class Deeper;

  void shape(Named& named, size_t depth);
  void shapeAs(Named& named, const TypeSyntax& syntax, size_t depth);
  void fill(Named& named);
  Kind kindOf(const TypeSyntax& syntax) const;
  TagList tagged(const TypeSyntax& syntax, TagList tags, TagDefault tagDefault) const;
  void addNames(Type& type, const TypeSyntax& syntax) const;

  TypeUse use(const TypeSyntax& syntax, const Scope& scope);
  TypeUse untagged(const TypeSyntax& syntax, const Scope& scope);
  TypeUse reference(const Word& name);
  TypeUse classField(const TypeSyntax& syntax, const Scope& scope);
  const FieldSyntax& findField(const TypeSyntax& syntax, const Symbol** where) const;
  bool isOpen(const TypeSyntax& syntax) const;
  TypeUse list(const TypeSyntax& syntax, const Scope& scope);
  TypeUse written(const TypeSyntax& syntax, const Scope& scope);

  void describe(Type& type, const TypeSyntax& syntax, const Symbol& symbol);
  void addElement(Type& type, const TypeSyntax& syntax, const Symbol& symbol);
  void addComponents(Type& type, const TypeSyntax& syntax, const Symbol& symbol);
  void addComponent(Type& type, const ComponentSyntax& component, const Symbol& symbol);
  void addComponentsOf(Type& type, const ComponentSyntax& component);
  void addMember(Type& type, Member member) const;
  void setPresence(Member& member, const ComponentSyntax& component) const;
  int32_t defaultOf(const Member& member, const ValueSyntax& value) const;
  void setSelectors(Type& type) const;
  void setPresenceBits(Type& type) const;

  const Symbols& symbols_;
  Diagnostics& diagnostics_;
  TypeTable types_;
  SetFinder findSet_;
  size_t depth_ = 0;  // types that are being described
};

}  // namespace certkern::asn1gen

#endif
