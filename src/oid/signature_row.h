// What the OID table says about a signature algorithm.
#ifndef CERTKERN_OID_SIGNATURE_ROW_H
#define CERTKERN_OID_SIGNATURE_ROW_H

#include <certkern/keykern.h>

#include <optional>

namespace certkern {

struct SignatureRow {
  explicit SignatureRow(const CRYPT_OID_INFO& info);

  ALG_ID hash;
  // The words of the extra information; 0 where the row has fewer.
  ALG_ID key;
  DWORD flags;
  DWORD providerType;  // whose default provider verifies; 0: any that has the algorithms

  // The key level's signatures are little-endian, those in an encoding big-endian, unless the row says that they are
  // the same.
  bool isReversed() const { return !(flags & CRYPT_OID_NO_REVERSE); }
};

// Nothing for an identifier that names no signature; the last error stays as it was.
std::optional<SignatureRow> FindSignatureRow(LPCSTR oid);

// The published look-up by identifier, which takes its key without const.
PCCRYPT_OID_INFO FindByOid(LPCSTR oid, DWORD group);

}  // namespace certkern

#endif
