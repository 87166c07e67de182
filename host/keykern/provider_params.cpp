#include "keykern/provider_params.h"

#include "keykern/algorithms.h"
#include "keykern/results.h"
#include "platform/limits.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace keykern {
namespace {

// --- enumeration of the algorithms ---

template <class Record>
void PutNames(const Algorithm& row, Record& record) {
  record.dwNameLen = static_cast<DWORD>(row.name.size() + 1);
  std::copy(row.name.begin(), row.name.end(), record.szName);
}

void Put(const Algorithm& row, PROV_ENUMALGS& record) {
  record.dwBitLen = row.defaultBits;
  PutNames(row, record);
}

void Put(const Algorithm& row, PROV_ENUMALGS_EX& record) {
  record.dwDefaultLen = row.defaultBits;
  record.dwMinLen = row.minimumBits;
  record.dwMaxLen = row.maximumBits;
  PutNames(row, record);
  record.dwLongNameLen = static_cast<DWORD>(row.longName.size() + 1);
  std::copy(row.longName.begin(), row.longName.end(), record.szLongName);
}

// Does a type's enumeration begin with it? The types of ECDSA and EdDSA have no hash of their own, and list first what
// their signatures are made with.
bool IsOwn(const Algorithm& row, DWORD type) {
  if (row.providerType == type) return true;
  const bool hashless = type == PROV_EC_ECDSA_FULL || type == PROV_EDDSA;
  return hashless && row.kind == AlgorithmKind::Hash && row.providerType == PROV_RSA_AES;
}

// The row at a place of a type's enumeration, which begins with the algorithms that the type is the default for. Moves
// on over those that this host does not have. Null at the end.
const Algorithm* AlgorithmAt(DWORD type, uint32_t& place) {
  const std::span<const Algorithm> rows = Algorithms();
  for (; place < 2 * rows.size(); ++place) {
    const Algorithm& row = rows[place % rows.size()];
    const bool own = IsOwn(row, type);
    if (own == (place < rows.size()) && IsAvailable(row)) return &row;
  }
  return nullptr;
}

template <class Record>
DWORD NextAlgorithm(Provider& provider, bool first, BYTE* out, DWORD* size) {
  std::atomic<uint32_t>& reached = provider.algorithmPlace();
  uint32_t place = first ? 0 : reached.load(std::memory_order_relaxed);
  const Algorithm* row = AlgorithmAt(provider.row().type, place);
  if (!row) return ERROR_NO_MORE_ITEMS;
  Record record{};
  record.aiAlgid = row->id;
  Put(*row, record);
  const DWORD code = GiveRecord(record, out, size);
  // the question for the size, and a buffer that was too small, are asked again
  if (code == ERROR_SUCCESS && out) reached.store(place + 1, std::memory_order_relaxed);
  return code;
}

// --- enumeration of what changes: a list is taken at its begin ---

DWORD ListNames(Provider& provider, std::vector<SecretBytes>& items) {
  std::vector<std::string> names;
  if (const DWORD code = ListContainers(provider.scope(), names)) return code;
  for (const std::string& name : names) items.emplace_back(name.c_str(), name.c_str() + name.size() + 1);
  return ERROR_SUCCESS;
}

DWORD ListExtensions(Provider& provider, std::vector<SecretBytes>& items) {
  std::vector<ContainerExtension> all;
  if (const DWORD code = provider.keySet().extensions(all)) return code;
  for (const ContainerExtension& extension : all) {
    const CONTAINER_EXTENSION head{extension.critical, static_cast<DWORD>(extension.oid.size() + 1),
                                   static_cast<DWORD>(extension.value.size())};
    const auto* bytes = reinterpret_cast<const BYTE*>(&head);
    SecretBytes item(bytes, bytes + sizeof(head));
    item.insert(item.end(), extension.oid.c_str(), extension.oid.c_str() + head.cbOid);
    certkern::Append(item, extension.value);
    items.push_back(std::move(item));
  }
  return ERROR_SUCCESS;
}

using Lister = DWORD (*)(Provider& provider, std::vector<SecretBytes>& items);

DWORD NextListed(Provider& provider, Provider::Listing& listing, Lister list, bool first, BYTE* out,
                 DWORD* size) {
  const std::lock_guard lock(listing.mutex);
  if (first) {
    listing.items.clear();
    listing.next = 0;
    if (const DWORD code = list(provider, listing.items)) return code;
  }
  if (listing.next >= listing.items.size()) return ERROR_NO_MORE_ITEMS;
  const DWORD code = GiveBytes(listing.items[listing.next], out, size);
  if (code == ERROR_SUCCESS && out) ++listing.next;
  return code;
}

// --- the container ---

DWORD GiveContainerName(const Provider& provider, std::string_view prefix, BYTE* out, DWORD* size) {
  if (!provider.keySet().persistent()) return NTE_BAD_TYPE;
  const std::string name = std::string(prefix) + provider.keySet().name();
  // UTF-8, byte by byte
  return GiveBytes({reinterpret_cast<const BYTE*>(name.c_str()), name.size() + 1}, out, size);
}

std::span<const BYTE> TextBytes(const BYTE* text) {
  return {text, std::strlen(reinterpret_cast<const char*>(text))};
}

DWORD SetExtension(Provider& provider, const BYTE* data) {
  CONTAINER_EXTENSION head;
  std::memcpy(&head, data, sizeof(head));
  if (head.cbOid < 2 || head.cbOid > certkern::kMaxAltNameText) return NTE_BAD_DATA;
  if (head.cbExtension > certkern::kMaxContainerFile) return NTE_BAD_LEN;
  const BYTE* oid = data + sizeof(head);
  if (oid[head.cbOid - 1] != 0) return NTE_BAD_DATA;
  ContainerExtension extension{reinterpret_cast<const char*>(oid), head.bCritical != FALSE, {}};
  const BYTE* value = oid + head.cbOid;
  extension.value.assign(value, value + head.cbExtension);
  return provider.keySet().setExtension(extension);
}

}  // namespace

DWORD GetProviderParam(Provider& provider, DWORD param, BYTE* out, DWORD* size, DWORD flags) {
  if (!size) return ERROR_INVALID_PARAMETER;
  // containers are listed with the flag that says whose; otherwise the provider's own scope decides
  if (flags & ~(DWORD{CRYPT_FIRST} | CRYPT_NEXT | CRYPT_MACHINE_KEYSET)) return NTE_BAD_FLAGS;
  const bool first = flags & CRYPT_FIRST;
  switch (param) {
    case PP_ENUMALGS:
      return NextAlgorithm<PROV_ENUMALGS>(provider, first, out, size);
    case PP_ENUMALGS_EX:
      return NextAlgorithm<PROV_ENUMALGS_EX>(provider, first, out, size);
    case PP_ENUMCONTAINERS:
      return NextListed(provider, provider.containers(), ListNames, first, out, size);
    case PP_ENUM_CONTAINER_EXTENSION:
      return NextListed(provider, provider.extensions(), ListExtensions, first, out, size);
    case PP_NAME:
      return GiveText(provider.row().name, reinterpret_cast<char*>(out), size);
    case PP_PROVTYPE:
      return GiveRecord(provider.row().type, out, size);
    case PP_CONTAINER:
      return GiveContainerName(provider, "", out, size);
    case PP_CONTAINER_PATH:
      if (!provider.keySet().persistent()) return GiveText("", reinterpret_cast<char*>(out), size);
      [[fallthrough]];
    case PP_UNIQUE_CONTAINER:
      return GiveContainerName(provider, kReaderPrefix, out, size);
    case PP_KEYSET_TYPE:
      return GiveRecord(provider.scope() == Scope::Machine ? DWORD{CRYPT_MACHINE_KEYSET} : DWORD{0}, out,
                        size);
    case PP_EPHEMERAL_ATTRIBUTE:
      return GiveRecord(DWORD{0}, out, size);
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD SetProviderParam(Provider& provider, DWORD param, const BYTE* data) {
  if (!data) return ERROR_INVALID_PARAMETER;
  switch (param) {
    case PP_KEYEXCHANGE_PIN:
    case PP_SIGNATURE_PIN:  // one PIN for both keys
      return provider.keySet().presentPin(TextBytes(data));
    case PP_CHANGE_PIN:
      return provider.keySet().changePin(TextBytes(data));
    case PP_CONTAINER_EXTENSION:
      return SetExtension(provider, data);
    default:
      return NTE_BAD_TYPE;
  }
}

}  // namespace keykern
