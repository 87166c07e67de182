// What the parser makes of a module: its text in the shape of the grammar, with nothing looked up yet. Names are views of
// the files, which outlive all of this.
#ifndef CERTKERN_ASN1GEN_SYNTAX_H
#define CERTKERN_ASN1GEN_SYNTAX_H

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "token.h"

namespace certkern::asn1gen {

struct Word {
  std::string_view text;
  Place place;

  bool empty() const { return text.empty(); }
};

// A value as far as the compiler looks into it.
struct ValueSyntax {
  enum class Kind { Number, Name, True, False, Min, Max, Other };
  Kind kind = Kind::Other;
  int64_t number = 0;
  Word word;      // the name; for every kind the place
  Tokens braces;  // Other: all between the braces and these themselves, or empty
};

enum class TagMode { Default, Implicit, Explicit };

struct TagSyntax {
  uint32_t tagClass = 2;  // as in identifiers: 0 universal, 1 application, 2 context, 3 private
  ValueSyntax number;
  TagMode mode = TagMode::Default;
};

// `{ Set }` or `{ Set }{ @selector }`
struct TableConstraint {
  Word set;
  Word selector;
};

struct NamedNumberSyntax {
  Word name;
  std::optional<ValueSyntax> value;  // enumerations may leave it to be counted
};

enum class TypeForm {
  Boolean,
  Integer,
  Enumerated,
  BitString,
  OctetString,
  Null,
  ObjectId,
  Text,
  Any,
  Sequence,
  Set,
  SequenceOf,
  SetOf,
  Choice,
  Reference,
  ClassField,  // CLASS.&field
};

struct ComponentSyntax;

struct TypeSyntax {
  TypeForm form = TypeForm::Null;
  Place place;
  std::vector<TagSyntax> tags;  // outermost first
  Word name;                    // of a Reference; the class of a ClassField; the keyword of a Text
  Word field;                   // ClassField
  std::vector<NamedNumberSyntax> names;
  std::vector<ComponentSyntax> components;
  bool extensible = false;
  std::unique_ptr<TypeSyntax> element;    // SequenceOf, SetOf
  std::unique_ptr<TypeSyntax> contained;  // OCTET STRING (CONTAINING ...)
  bool sized = false;                     // has a SIZE constraint
  bool constrained = false;
  std::optional<ValueSyntax> lower, upper;  // of an INTEGER
  TableConstraint table;
};

struct ComponentSyntax {
  Word name;
  TypeSyntax type;
  bool componentsOf = false;  // `type` is what they are taken from
  bool optional = false;
  bool addition = false;  // behind the extension mark: older senders don't know it
  std::optional<ValueSyntax> defaultValue;
};

struct FieldSyntax {
  enum class Kind { Type, Value, Object, Set };
  Kind kind = Kind::Type;
  Word name;
  bool unique = false;
  bool optional = false;
  TypeSyntax type;  // of a Value
};

struct ClassSyntax {
  std::vector<FieldSyntax> fields;
  Tokens pattern;  // between the braces of WITH SYNTAX, the closing one included
};

struct Assignment {
  enum class Kind {
    Type,    // Name ::= Type, or Name ::= CLASSNAME
    Class,   // NAME ::= CLASS { ... }
    Value,   // name Type ::= value
    Object,  // name CLASS ::= { ... }: told from a value of a named type when names are known
    Set,     // Name CLASS ::= { ... }
  };
  Kind kind = Kind::Type;
  Word name;
  TypeSyntax type;   // Type, Value
  Word objectClass;  // Object, Set
  ClassSyntax classSyntax;
  ValueSyntax value;      // Value, Object
  Tokens body;            // Set: between the braces, the closing one included
  std::string_view text;  // all of it, as written
};

struct ImportSyntax {
  std::vector<Word> symbols;
  Word module;
};

enum class TagDefault { Explicit, Implicit, Automatic };

struct ModuleSyntax {
  Word name;
  const SourceFile* file = nullptr;
  TagDefault tagDefault = TagDefault::Explicit;
  std::vector<ImportSyntax> imports;
  std::vector<Assignment> assignments;
};

}  // namespace certkern::asn1gen

#endif
