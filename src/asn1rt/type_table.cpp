#include "asn1rt/type_table.h"

#include <algorithm>
#include <compare>
#include <cstring>

namespace certkern {
namespace {

// Fewer arcs first, then arc by arc from the first, as the tables are sorted.
std::strong_ordering Compare(const ASN1ObjectId& a, const ASN1ObjectId& b) {
  if (a.numids != b.numids) return a.numids <=> b.numids;
  for (uint32_t i = 0; i < a.numids; ++i) {
    if (a.subid[i] != b.subid[i]) return a.subid[i] <=> b.subid[i];
  }
  return std::strong_ordering::equal;
}

}  // namespace

bool operator==(const ASN1ObjectId& a, const ASN1ObjectId& b) {
  if (a.numids != b.numids) return false;
  if (a.numids == 0 || a.subid == b.subid) return true;
  return a.subid && b.subid && std::memcmp(a.subid, b.subid, a.numids * sizeof(uint32_t)) == 0;
}

const ObjectInfo* FindObject(const ObjectSetInfo& set, const ASN1ObjectId& id) {
  if (id.numids && !id.subid) return nullptr;
  const auto found = std::ranges::partition_point(
      set.objects, [&](const ObjectInfo& object) { return Compare(AsField(*object.id), id) < 0; });
  const bool hit = found != set.objects.end() && id == *found->id;
  return hit ? &*found : nullptr;
}

const TypeInfo* FindType(std::span<const TypeInfo* const> catalogue, const char* name) {
  if (!name) return nullptr;
  const auto found = std::ranges::partition_point(
      catalogue, [&](const TypeInfo* type) { return std::strcmp(type->name, name) < 0; });
  return found != catalogue.end() && std::strcmp((*found)->name, name) == 0 ? *found : nullptr;
}

}  // namespace certkern
