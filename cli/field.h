// The tree between what is decoded and how it is written: one walk over an object makes it, and the text
// writer and the JSON writer print it. So both say the same, and neither knows a certificate.
#ifndef CERTKERN_CLI_FIELD_H
#define CERTKERN_CLI_FIELD_H

#include <certkern/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace certkern::cli {

// Characters that come from an object: valid UTF-8, but not to be shown to a terminal as they are.
struct Text {
  std::string utf8;
};

// Characters of our own, or foreign ones that have been escaped already.
struct Words {
  std::string text;
};

struct Oid {
  std::string dotted;
  std::string name;  // empty when nobody knows one
};

using Bytes = std::vector<BYTE>;
using Value = std::variant<std::monostate, bool, int64_t, Text, Words, Bytes, Oid>;

enum class Children {
  Fields,      // each has a label of its own
  List,        // any number of one kind
  JsonFields,  // fields that the value already tells to a reader; only JSON has them
};

struct Field;

// Elements of a list that is too long to be held as fields all at once.
struct ElementSource {
  size_t count = 0;
  std::function<Field(size_t)> make;
};

struct Field {
  std::string_view label;  // a literal; empty for the elements of a list that need none
  Value value;
  Children kind = Children::Fields;
  std::vector<Field> children;
  std::shared_ptr<const ElementSource> source;  // of a list, behind its children

  Field();
  explicit Field(std::string_view itsLabel, Value itsValue = {});

  bool hasValue() const { return !std::holds_alternative<std::monostate>(value); }
  bool isLeaf() const { return children.empty() && !source && kind != Children::List; }
  // What is added is good until the next addition.
  Field& add(Field child);
  Field& add(std::string_view itsLabel, Value itsValue = {});
  Field& addList(std::string_view itsLabel);

  // Every element in turn, the made ones included.
  template <typename Visit>
  void forEach(const Visit& visit) const {
    for (const Field& child : children) visit(child);
    for (size_t i = 0; source && i < source->count; ++i) visit(source->make(i));
  }
};

}  // namespace certkern::cli

#endif
