// What only the whole schema shows: alternatives that can't be told apart, and structures that contain themselves.
#ifndef CERTKERN_ASN1GEN_CHECKS_H
#define CERTKERN_ASN1GEN_CHECKS_H

#include <vector>

#include "diagnostics.h"
#include "model.h"

namespace certkern::asn1gen {

// A decoder decides by one tag: those that may stand at one place must differ.
void CheckTags(const Schema& schema, Diagnostics& diagnostics);

// Members through which a structure would contain itself become pointers. One that could never end is an error.
void BreakCycles(Schema& schema, Diagnostics& diagnostics);

// For each node the number of its group: nodes that reach each other share one, and a group's number is above those of all
// that it leads to.
std::vector<size_t> GroupsOf(const std::vector<std::vector<size_t>>& edges);

}  // namespace certkern::asn1gen

#endif
