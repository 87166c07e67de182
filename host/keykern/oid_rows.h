// The rows of the OID table. The order is part of the interface: a search without a group takes the first row that
// fits, so groups stand in their order, GOST before the rest, and of a public key's rows the first is what its OID
// stands for.
#ifndef CERTKERN_KEYKERN_OID_ROWS_H
#define CERTKERN_KEYKERN_OID_ROWS_H

#include <certkern/keykern.h>

#include <cstdint>
#include <span>

namespace keykern {

std::span<const CRYPT_OID_INFO> OidRows();
// Numbers of the rows in the order of their OIDs as text, rows of one OID in the order of the table.
std::span<const uint16_t> OidRowsByOid();

}  // namespace keykern

#endif
