// Every bound that a schema meets, by name. Far above what real modules have: they keep the compiler on its feet
// whatever bytes it is given.
#ifndef CERTKERN_ASN1GEN_BOUNDS_H
#define CERTKERN_ASN1GEN_BOUNDS_H

#include <cstddef>
#include <cstdint>

namespace certkern::asn1gen {

// A schema file.
inline constexpr size_t kMaxSchemaFile = size_t{4} << 20;

// Types inside types, and braces inside braces, in one assignment.
inline constexpr size_t kMaxNesting = 64;

// References that lead to references: aliases, identifiers under identifiers, sets in sets.
inline constexpr size_t kMaxReferences = 256;

// Components of one structure, those taken over with COMPONENTS OF included.
inline constexpr size_t kMaxComponents = 1024;

// Presence bits of one structure.
inline constexpr size_t kMaxOptionalMembers = 32;

// Numbers of tags: what the tables can hold.
inline constexpr uint32_t kMaxTagNumber = 0x3FFFFFFF;

// Arcs of an object identifier, as in the constants' type.
inline constexpr size_t kMaxArcs = 128;

// Alternatives that may stand first in a value, counted through untagged choices.
inline constexpr size_t kMaxFirstTags = 4096;

// Errors of one run that are shown.
inline constexpr size_t kMaxDiagnostics = 100;

}  // namespace certkern::asn1gen

#endif
