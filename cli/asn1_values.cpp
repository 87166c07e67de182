#include "asn1_values.h"

#include "oid_names.h"
#include "text.h"

#include "asn1data/catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace certkern::cli {
namespace {

// The universal tag number that content is read by: an implicit tag hides it, but the type knows.
uint32_t ReadAs(Asn1Tag tag, const TypeInfo* type) {
  if (ClassOf(tag) == TagClass::Universal) return NumberOf(tag);
  if (!type) return 0;
  if (!type->tags.empty() && ClassOf(type->tags.back()) == TagClass::Universal)
    return NumberOf(type->tags.back());
  switch (type->kind) {
    case TypeKind::Boolean:
      return 1;
    case TypeKind::Int32:
    case TypeKind::BigInteger:
    case TypeKind::Enumerated:
      return 2;
    case TypeKind::BitString:
      return 3;
    case TypeKind::ObjectId:
      return 6;
    case TypeKind::Text:
      return 12;
    default:
      return 0;
  }
}

Bytes ToBytes(std::span<const BYTE> content) { return {content.begin(), content.end()}; }

std::optional<int64_t> SmallNumber(std::span<const BYTE> content) {
  if (content.empty() || content.size() > sizeof(int64_t)) return std::nullopt;
  uint64_t number = content[0] & 0x80 ? ~uint64_t{0} : 0;
  for (const BYTE octet : content) number = number << 8 | octet;
  return static_cast<int64_t>(number);
}

void ReadInteger(std::span<const BYTE> content, const TypeInfo* type, ElementValue& out) {
  const std::optional<int64_t> number = SmallNumber(content);
  if (!number) {
    if (content.empty()) return;
    Bytes little = ToBytes(content);
    std::reverse(little.begin(), little.end());
    out.value = Words{NumberText(little)};
    return;
  }
  // beyond these, readers of JSON may round
  constexpr int64_t kExact = int64_t{1} << 53;
  out.value = -kExact < *number && *number < kExact ? Value(*number) : Value(Words{std::to_string(*number)});
  if (!type) return;
  for (const NameInfo& name : type->names) {
    if (name.value == *number) out.names.emplace_back(name.name);
  }
}

void ReadBits(std::span<const BYTE> content, const TypeInfo* type, ElementValue& out) {
  if (content.empty() || content[0] > 7 || (content.size() == 1 && content[0])) return;
  out.unusedBits = content[0];
  const std::span<const BYTE> bits = content.subspan(1);
  out.value = ToBytes(bits);
  if (!type) return;
  for (const NameInfo& name : type->names) {
    const auto at = static_cast<size_t>(name.value);
    if (at / 8 < bits.size() && bits[at / 8] >> (7 - at % 8) & 1) out.names.emplace_back(name.name);
  }
}

// Empty when an arc is malformed, or needs more than 64 bits.
std::string DottedOf(std::span<const BYTE> content) {
  if (content.empty() || content.back() >= 0x80) return {};
  std::string dotted;
  uint64_t arc = 0;
  bool starts = true;
  for (const BYTE octet : content) {
    if ((starts && octet == 0x80) || arc > std::numeric_limits<uint64_t>::max() >> 7) return {};
    arc = arc << 7 | (octet & 0x7Fu);
    starts = octet < 0x80;
    if (!starts) continue;
    if (dotted.empty()) {
      const uint64_t first = std::min<uint64_t>(arc / 40, 2);
      dotted = std::to_string(first);
      arc -= first * 40;
    }
    dotted += fmt::format(".{}", arc);
    arc = 0;
  }
  return dotted;
}

// What neither the key library nor the tool has a name for, the schema may have.
const char* SchemaName(const std::string& dotted) {
  static const auto kNames = [] {
    std::map<std::string, const char*> names;
    for (const asn1data::NamedOid& row : asn1data::AllOids()) {
      std::string text;
      for (const uint32_t arc : AsField(*row.id).arcs())
        text += fmt::format("{}{}", text.empty() ? "" : ".", arc);
      names.emplace(std::move(text), row.name);
    }
    return names;
  }();
  const auto found = kNames.find(dotted);
  return found == kNames.end() ? "" : found->second;
}

Oid OidOf(const std::string& dotted) {
  Oid oid = NamedOid(dotted.c_str());
  if (oid.name.empty()) oid.name = SchemaName(dotted);
  return oid;
}

std::string WideText(std::span<const BYTE> content, size_t width) {
  std::wstring text;
  for (size_t i = 0; i < content.size(); i += width) {
    uint32_t character = 0;
    for (const BYTE octet : content.subspan(i, width)) character = character << 8 | octet;
    text += static_cast<wchar_t>(character);
  }
  return Utf8Of(std::wstring_view(text));
}

void ReadCharacters(std::span<const BYTE> content, size_t width, ElementValue& out) {
  if (content.size() % width) return;
  const std::string_view narrow(reinterpret_cast<const char*>(content.data()), content.size());
  out.value = Text{width == 1 ? Utf8Of(narrow) : WideText(content, width)};
}

void ReadContent(uint32_t as, std::span<const BYTE> content, const TypeInfo* type, ElementValue& out) {
  switch (as) {
    case 1:
      if (content.size() == 1) out.value = content[0] != 0;
      return;
    case 2:
    case 10:
      return ReadInteger(content, type, out);
    case 3:
      return ReadBits(content, type, out);
    case 5:
      if (content.empty()) out.value = std::monostate();
      return;
    case 6:
      if (const std::string dotted = DottedOf(content); !dotted.empty()) out.value = OidOf(dotted);
      return;
    case 28:
      return ReadCharacters(content, 4, out);
    case 30:
      return ReadCharacters(content, 2, out);
    case 12:
    case 18:
    case 19:
    case 20:
    case 22:
    case 23:
    case 24:
    case 26:
      return ReadCharacters(content, 1, out);
    default:
      return;
  }
}

}  // namespace

ElementValue ValueOf(Asn1Tag tag, std::span<const BYTE> content, const TypeInfo* type) {
  ElementValue result;
  result.value = ToBytes(content);
  ReadContent(ReadAs(tag, type), content, type, result);
  return result;
}

}  // namespace certkern::cli
