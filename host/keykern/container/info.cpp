#include "keykern/container/info.h"

#include "common/der.h"
#include "keykern/crypto_library.h"
#include "platform/limits.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

namespace keykern {
namespace {

namespace der = certkern::der;

constexpr std::string_view kVersion = "certkern-container 1";
constexpr std::string_view kExportable = "exportable";
constexpr std::string_view kFixed = "fixed";
constexpr size_t kIdSize = 16;

bool IsSpec(DWORD spec) { return spec == AT_KEYEXCHANGE || spec == AT_SIGNATURE; }

// Up to the next separator, which has to be there.
bool TakeUpTo(char separator, std::string_view& rest, std::string_view& part) {
  const size_t end = rest.find(separator);
  if (end == std::string_view::npos) return false;
  part = rest.substr(0, end);
  rest.remove_prefix(end + 1);
  return true;
}

// The value of a line that begins with a word.
bool TakeLine(std::string_view word, std::string_view& rest, std::string& value) {
  std::string_view line;
  if (!rest.starts_with(word) || !TakeUpTo('\n', rest, line)) return false;
  value = line.substr(word.size());
  return true;
}

bool IsPattern(std::string_view text, std::string_view pattern) {
  return std::ranges::equal(text, pattern, [](char c, char wanted) {
    const bool isDigit = c >= '0' && c <= '9';
    if (wanted == 'd') return isDigit;
    if (wanted == 'x') return isDigit || (c >= 'a' && c <= 'f');
    return c == wanted;
  });
}

bool ReadKeyRow(std::string_view line, KeyRow& row) {
  std::string_view spec, algorithm;
  if (!TakeUpTo(' ', line, spec) || !TakeUpTo(' ', line, algorithm) || !algorithm.starts_with("0x"))
    return false;
  algorithm.remove_prefix(2);
  std::from_chars(spec.data(), spec.data() + spec.size(), row.spec);
  std::from_chars(algorithm.data(), algorithm.data() + algorithm.size(), row.algorithm, 16);
  row.exportable = line == kExportable;
  return IsSpec(row.spec) && FindFamily(row.algorithm);
}

std::string Text(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

std::string Now() {
  std::array<char, 32> text{};
  const time_t now = time(nullptr);
  tm parts{};
  if (!gmtime_r(&now, &parts)) return {};
  return {text.data(), strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace

const KeyRow* ContainerInfo::find(DWORD spec) const {
  const auto row = std::ranges::find(keys, spec, &KeyRow::spec);
  return row == keys.end() ? nullptr : &*row;
}

void ContainerInfo::replace(const KeyRow& row) {
  std::erase_if(keys, [&](const KeyRow& old) { return old.spec == row.spec; });
  keys.insert(std::ranges::upper_bound(keys, row.spec, {}, &KeyRow::spec), row);
}

bool RandomDigits(size_t bytes, std::string& digits) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::vector<BYTE> random(bytes);
  if (!RandomBytes(random)) return false;
  digits.clear();
  for (const BYTE octet : random) digits.append({kDigits[octet >> 4], kDigits[octet & 15]});
  return true;
}

bool NewContainerInfo(const std::string& name, ContainerInfo& info) {
  info = {};
  if (!RandomDigits(kIdSize, info.id)) return false;
  info.name = name;
  info.created = Now();
  return true;
}

SecretBytes WriteInfo(const ContainerInfo& info) {
  std::string text(kVersion);
  text += "\nid " + info.id + "\nname " + info.name + "\ncreated " + info.created + '\n';
  for (const KeyRow& row : info.keys) {
    char numbers[40];
    std::snprintf(numbers, sizeof numbers, "key %u 0x%04X ", static_cast<unsigned>(row.spec),
                  static_cast<unsigned>(row.algorithm));
    text.append(numbers).append(row.exportable ? kExportable : kFixed).append("\n");
  }
  return {text.begin(), text.end()};
}

bool ReadInfo(std::span<const BYTE> text, ContainerInfo& info) {
  const std::string whole = Text(text);
  std::string_view rest = whole;
  std::string line;
  ContainerInfo found;
  if (!TakeLine(kVersion, rest, line) || !TakeLine("id ", rest, found.id)
      || !TakeLine("name ", rest, found.name) || !TakeLine("created ", rest, found.created)
      || !IsPattern(found.created, "dddd-dd-ddTdd:dd:ddZ")
      || !IsPattern(found.id, std::string(2 * kIdSize, 'x'))) {
    return false;
  }
  while (!rest.empty()) {
    KeyRow row;
    if (!TakeLine("key ", rest, line) || !ReadKeyRow(line, row)) return false;
    found.replace(row);
  }
  // what reads alike but is written otherwise was not written here
  if (!std::ranges::equal(WriteInfo(found), text)) return false;
  info = std::move(found);
  return true;
}

SecretBytes WriteExtensions(const std::vector<ContainerExtension>& all) {
  constexpr BYTE kTrue[] = {0xFF};
  SecretBytes list;
  for (const ContainerExtension& extension : all) {
    const SecretBytes critical = extension.critical ? der::Element(der::kBoolean, {kTrue}) : SecretBytes();
    certkern::Append(list,
                     der::Sequence({der::Oid(extension.oid), critical, der::OctetString(extension.value)}));
  }
  return der::Sequence({list});
}

bool ReadExtensions(std::span<const BYTE> encoded, std::vector<ContainerExtension>& all) {
  der::Reader in(encoded), list;
  if (!in.take(der::kSequence, list) || !in.empty()) return false;
  std::vector<ContainerExtension> found;
  while (!list.empty()) {
    der::Reader body;
    ContainerExtension extension;
    std::span<const BYTE> critical, value;
    if (!list.take(der::kSequence, body) || !body.takeOid(extension.oid)) return false;
    extension.critical = body.take(der::kBoolean, critical);
    if (extension.critical && (critical.size() != 1 || critical[0] != 0xFF)) return false;
    if (!body.take(der::kOctetString, value) || !body.empty() || value.empty()) return false;
    extension.value = certkern::ToSecret(value);
    found.push_back(std::move(extension));
  }
  all = std::move(found);
  return true;
}

DWORD PutExtension(std::vector<ContainerExtension>& all, const ContainerExtension& extension) {
  // an OID has several spellings; the encoding knows one
  const SecretBytes encoded = der::Oid(extension.oid);
  std::string oid;
  if (encoded.empty() || !der::Reader(encoded).takeOid(oid)) return NTE_BAD_DATA;
  std::vector<ContainerExtension> changed = all;
  std::erase_if(changed, [&](const ContainerExtension& old) { return old.oid == oid; });
  if (!extension.value.empty()) changed.push_back({oid, extension.critical, extension.value});
  if (WriteExtensions(changed).size() > certkern::kMaxContainerFile) return NTE_BAD_LEN;
  all = std::move(changed);
  return ERROR_SUCCESS;
}

DWORD JudgeRecord(DWORD spec, const KeyRecord& record) {
  const FamilyRow* family = FindFamily(record.algorithm);
  return IsSpec(spec) && record.key && family && family->family == record.key->family() ? ERROR_SUCCESS
                                                                                        : NTE_BAD_KEY;
}

}  // namespace keykern
