// Which algorithms go together, as the OID table and a few rules of GOST keys have it. Rows belong to the table and are
// never freed. What is not there is null or 0; no look-up sets the last error, and a null identifier is not there.
#ifndef CERTKERN_OID_ALGORITHM_LOOKUP_H
#define CERTKERN_OID_ALGORITHM_LOOKUP_H

#include <certkern/keykern.h>

namespace certkern {

ALG_ID AlgIdOfOid(LPCSTR oid);
// A hash is found before anything else of the same number.
LPCSTR OidOfAlgId(ALG_ID algorithm);

// The hash that a GOST key signs; 0 for any other key.
ALG_ID DefaultGostHash(LPCSTR publicKeyOid);
PCCRYPT_OID_INFO DefaultHashInfo(LPCSTR publicKeyOid);
// With the key's GOST hash, else with SHA-1, else the first signature of the table that the key can make.
PCCRYPT_OID_INFO DefaultSignatureInfo(LPCSTR publicKeyOid);
PCCRYPT_OID_INFO SignatureInfo(LPCSTR publicKeyOid, LPCSTR hashOid);
// @param keySpec  AT_KEYEXCHANGE or AT_SIGNATURE
PCCRYPT_OID_INFO PublicKeyInfoFor(LPCSTR publicKeyOid, DWORD keySpec);
// A hash of the provider that goes with the key; a null key: the provider's first hash.
ALG_ID ProviderHash(HCRYPTPROV provider, LPCSTR publicKeyOid);

}  // namespace certkern

#endif
