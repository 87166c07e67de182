#include "keys/pss_parameters.h"

#include <certkern/errors.h>
#include <certkern/oids.h>

#include <limits>

#include "ber/fields.h"
#include "oid/algorithm_identifier.h"
#include "oid/signature_row.h"

namespace certkern {
namespace {

constexpr DWORD kTrailer = 1;

// --- each answers a code, 0 when all is well ---

// A field under its explicit tag; `read` must take all that stands there. An absent one keeps its default.
template <class Read>
DWORD ReadField(BerReadCursor& in, int number, const Read& read) {
  if (!in.nextIs(ContextConstructed(number))) return ERROR_SUCCESS;
  BYTE tag;
  BerReadCursor content;
  if (!in.readElement(tag, content)) return CRYPT_E_ASN1_ERROR;
  if (const DWORD code = read(content)) return code;
  return content.empty() ? ERROR_SUCCESS : CRYPT_E_ASN1_ERROR;
}

// HashAlgorithm ::= AlgorithmIdentifier, with NULL or nothing for parameters
DWORD ReadHash(BerReadCursor& in, ALG_ID& hash) {
  AlgorithmIdentifier algorithm;
  if (!ReadAlgorithmIdentifier(in, algorithm)) return CRYPT_E_ASN1_ERROR;
  BerReadCursor parameters(algorithm.parameters), null;
  if (!parameters.empty() && !BerExpect(parameters, kTagNull, null)) return CRYPT_E_ASN1_ERROR;
  if (!parameters.empty() || !null.empty()) return CRYPT_E_ASN1_ERROR;
  const PCCRYPT_OID_INFO info = FindByOid(algorithm.oid.c_str(), CRYPT_HASH_ALG_OID_GROUP_ID);
  if (!info || !info->Algid) return NTE_BAD_ALGID;
  hash = info->Algid;
  return ERROR_SUCCESS;
}

// MaskGenAlgorithm ::= AlgorithmIdentifier { id-mgf1, HashAlgorithm }; some peers leave its hash out
DWORD ReadMaskGeneration(BerReadCursor& in, ALG_ID messageHash) {
  AlgorithmIdentifier algorithm;
  if (!ReadAlgorithmIdentifier(in, algorithm)) return CRYPT_E_ASN1_ERROR;
  if (algorithm.oid != szOID_RSA_MGF1) return NTE_BAD_ALGID;
  BerReadCursor parameters(algorithm.parameters);
  if (parameters.empty()) return ERROR_SUCCESS;
  ALG_ID hash = 0;
  if (const DWORD code = ReadHash(parameters, hash)) return code;
  if (!parameters.empty()) return CRYPT_E_ASN1_ERROR;
  return hash == messageHash ? ERROR_SUCCESS : NTE_BAD_ALGID;
}

DWORD ReadSaltLength(BerReadCursor& in, DWORD& length) {
  DWORD value = 0;
  if (!BerDecodeInteger32(in, value)) return CRYPT_E_ASN1_ERROR;
  if (value > DWORD{std::numeric_limits<int32_t>::max()}) return CRYPT_E_ASN1_ERROR;  // was negative
  length = value;
  return ERROR_SUCCESS;
}

DWORD ReadTrailer(BerReadCursor& in) {
  DWORD value = 0;
  if (!BerDecodeInteger32(in, value)) return CRYPT_E_ASN1_ERROR;
  return value == kTrailer ? ERROR_SUCCESS : NTE_BAD_ALGID;
}

// RSASSA-PSS-params ::= SEQUENCE { hashAlgorithm [0] HashAlgorithm DEFAULT sha1, maskGenAlgorithm [1] MaskGenAlgorithm
// DEFAULT mgf1SHA1, saltLength [2] INTEGER DEFAULT 20, trailerField [3] INTEGER DEFAULT 1 }
DWORD ReadParameters(BerReadCursor in, PssParameters& pss) {
  BerReadCursor fields;
  if (!BerExpect(in, kTagSequence, fields)) return CRYPT_E_ASN1_ERROR;
  // the defaults are about with an octet too many: 30 00 00
  const bool stray = fields.empty() && in.size() == 1 && *in.data() == 0;
  if (!in.empty() && !stray) return CRYPT_E_ASN1_ERROR;
  DWORD code = ReadField(fields, 0, [&](BerReadCursor& field) { return ReadHash(field, pss.hash); });
  if (!code) code = ReadField(fields, 1, [&](auto& field) { return ReadMaskGeneration(field, pss.hash); });
  if (!code) code = ReadField(fields, 2, [&](auto& field) { return ReadSaltLength(field, pss.saltLength); });
  if (!code) code = ReadField(fields, 3, ReadTrailer);
  if (code) return code;
  return fields.empty() ? ERROR_SUCCESS : CRYPT_E_ASN1_ERROR;
}

}  // namespace

bool ParsePssParams(std::span<const BYTE> encoded, PssParameters& parameters) {
  PssParameters parsed;
  if (!encoded.empty()) {
    if (const DWORD code = ReadParameters(BerReadCursor(encoded), parsed)) return Fault(code);
  }
  parameters = parsed;
  return true;
}

}  // namespace certkern
