#include "field.h"

#include <utility>

namespace certkern::cli {

Field::Field() = default;
Field::Field(std::string_view itsLabel, Value itsValue) : label(itsLabel), value(std::move(itsValue)) {}

Field& Field::add(Field child) { return children.emplace_back(std::move(child)); }

Field& Field::add(std::string_view itsLabel, Value itsValue) {
  return add(Field(itsLabel, std::move(itsValue)));
}

Field& Field::addList(std::string_view itsLabel) {
  Field& list = add(itsLabel);
  list.kind = Children::List;
  return list;
}

}  // namespace certkern::cli
