// In which order structures can be defined, and in which headers. A structure needs those it holds by value in front of it;
// of those it points to, and of elements of lists, the name is enough.
#ifndef CERTKERN_ASN1GEN_LAYOUT_H
#define CERTKERN_ASN1GEN_LAYOUT_H

#include <set>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "model.h"

namespace certkern::asn1gen {

// One header's definitions. Modules that hold structures of each other by value can't have a header each: the first of
// them defines those of all.
struct Header {
  const Module* module = nullptr;
  const Module* definedIn = nullptr;     // null: here
  std::vector<const Type*> definitions;  // in order
  std::set<std::string> includes;        // base names
  std::set<std::string> announced;       // C++ names of structures that are named before they are defined
};

// Types whose definitions another type's definition needs in front of it.
std::vector<const Type*> NeededBefore(const Type& type);
// Structures that it names without needing them.
std::vector<const Type*> NamedOnly(const Type& type);

// A list of nothing but itself has no definition.
void CheckLists(const Schema& schema, Diagnostics& diagnostics);

std::vector<Header> LayOut(const Schema& schema);

}  // namespace certkern::asn1gen

#endif
