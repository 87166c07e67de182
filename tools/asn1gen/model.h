// The schema with everything looked up: what the emitter writes down.
#ifndef CERTKERN_ASN1GEN_MODEL_H
#define CERTKERN_ASN1GEN_MODEL_H

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "syntax.h"

namespace certkern::asn1gen {

struct Tag {
  uint32_t tagClass = 0;
  uint32_t number = 0;
  auto operator<=>(const Tag&) const = default;
};
using TagList = std::vector<Tag>;
std::string ToText(const Tag& tag);

// As in the runtime's tables.
enum class Kind {
  Boolean,
  Int32,
  BigInteger,
  Enumerated,
  BitString,
  OctetString,
  Null,
  ObjectId,
  Text,
  Open,
  Sequence,
  Set,
  SequenceOf,
  SetOf,
  Choice,
};
inline bool IsStructure(Kind kind) { return kind == Kind::Sequence || kind == Kind::Set; }
inline bool IsList(Kind kind) { return kind == Kind::SequenceOf || kind == Kind::SetOf; }

struct Module;
struct Type;
struct ObjectSet;

struct NamedNumber {
  std::string name;
  int32_t value = 0;
};

struct Member {
  std::string name;     // as the schema has it
  std::string cppName;  // of the field
  Place place;
  const Type* type = nullptr;
  TagList tags;  // all in front of the content, outermost first
  int presentBit = -1;
  bool optional = false;
  bool hasDefault = false;
  int32_t defaultValue = 0;
  bool pointer = false;
  const ObjectSet* objects = nullptr;
  int selector = -1;
  bool contained = false;
  bool addition = false;  // behind the extension mark
  Word selectorName;      // what `selector` is found by, once all members are known
};

struct Type {
  std::string name;     // as the schema has it; anonymous ones as their C++ name
  std::string cppName;  // behind ASN1T_ and its siblings
  Place place;
  Module* module = nullptr;
  Kind kind = Kind::Null;
  bool extensible = false;
  TagList tags;
  std::vector<Member> members;  // a list has one, the element
  std::vector<NamedNumber> names;
  bool isSharedList = false;    // written as a list of its element
  bool broken = false;          // its own error was noted: no reason for more of them
  const Type* alias = nullptr;  // shares the structure, the members and the names of this one
  std::string_view text;        // of the assignment; empty for types without one

  // The one that has the structure.
  const Type& root() const {
    const Type* type = this;
    while (type->alias) type = type->alias;
    return *type;
  }
};

struct Oid {
  std::string name;
  std::string cppName;
  Place place;
  Module* module = nullptr;
  std::vector<uint32_t> arcs;
};

struct Object {
  std::string name;
  std::string cppName;
  std::string className;
  Place place;
  Module* module = nullptr;
  const Oid* id = nullptr;
  const Type* type = nullptr;  // null: it has none
};

struct ObjectSet {
  std::string name;
  std::string cppName;
  std::string className;
  Place place;
  Module* module = nullptr;
  std::vector<const Object*> objects;  // sorted as look-ups need them
};

// What comes from one file, and makes one header and one source. Mostly a single module.
struct Module {
  std::string fileName;            // of the schema, without folders
  std::string baseName;            // of what is written
  std::vector<const Type*> types;  // in the order of the text, nested ones behind what holds them
  std::vector<const Oid*> oids;
  std::vector<const Object*> objects;
  std::vector<const ObjectSet*> sets;
};

// What is written besides the modules.
inline constexpr std::string_view kBuiltInFile = "built_in";
inline constexpr std::string_view kCatalogueFile = "catalogue";

// Owns everything; the deques keep addresses.
struct Schema {
  std::deque<Module> modules;
  std::deque<Type> types;
  std::deque<Oid> oids;
  std::deque<Object> objects;
  std::deque<ObjectSet> sets;
  Module builtIns;  // those that are used, and lists of them
};

// "a-b" to "a_b"; words of C++ get an underscore behind them.
std::string CppName(std::string_view name);
std::string CppMemberName(std::string_view name);

}  // namespace certkern::asn1gen

#endif
