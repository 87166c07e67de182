// Each published name is defined, as the kind of thing that it must be.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "asn1data/catalogue.h"

using namespace certkern;
using namespace certkern::asn1data;

namespace {

std::string CppName(std::string name) {
  std::ranges::replace(name, '-', '_');
  return name;
}

// "kind: name"
std::set<std::string> Defined() {
  std::set<std::string> names;
  for (const TypeInfo* type : AllTypes()) names.insert("type: " + CppName(type->name));
  for (const ObjectSetInfo* set : AllObjects()) names.insert("set: " + CppName(set->name));
  for (const NamedObject& object : AllSingleObjects()) {
    names.insert("class: " + CppName(object.objectClass));
    names.insert("object " + CppName(object.objectClass) + ": " + CppName(object.name));
  }
  return names;
}

}  // namespace

TEST(Catalogue, HasEachName) {
  const std::set<std::string> defined = Defined();
  std::ifstream list(CERTKERN_SOURCE_DIR "/tests/asn1data/data/catalogue.txt");
  int count = 0;
  for (std::string line; std::getline(list, line);) {
    if (line.starts_with('#')) continue;
    const std::string kind = line.substr(0, line.find(':') + 2);
    std::istringstream names(line.substr(kind.size()));
    for (std::string name; names >> name; ++count) EXPECT_TRUE(defined.count(kind + name)) << kind << name;
  }
  EXPECT_EQ(count, 710);
}
