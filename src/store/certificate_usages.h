// Lists of key purposes: what several certificates allow together, and how such lists are laid out for callers.
#ifndef CERTKERN_STORE_CERTIFICATE_USAGES_H
#define CERTKERN_STORE_CERTIFICATE_USAGES_H

#include <certkern/cert.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/owner.h"

namespace certkern {

// A record with all that it points to, in one block.
using UsageRecord = Owner<CERT_ENHKEY_USAGE*, LocalFree>;

// Empty for no record. The texts live in the record.
std::span<const LPSTR> PurposesOf(const UsageRecord& record);

// Strikes from a list what another one does not hold; order stays. Both may come out of foreign certificates and be as
// long as these, so the other one is sorted, not searched through for each.
void KeepCommon(std::vector<LPCSTR>& purposes, std::span<const LPSTR> others);

// Pointers, and behind them the texts that they point to.
uint64_t PackedSize(std::span<const LPCSTR> texts);
void Pack(std::span<const LPCSTR> texts, LPSTR* out);

// The purposes that none of the certificates excludes; count -1 when none of them restricts anything. One that cannot be
// read restricts nothing. count and size are written in every case but a failure to get there; a null out asks for
// no more. A failure has set the last error. May throw std::bad_alloc.
[[nodiscard]] bool GetValidUsages(std::span<const PCCERT_CONTEXT> certificates, int& count, LPSTR* out,
                                  DWORD& size);

}  // namespace certkern

#endif
