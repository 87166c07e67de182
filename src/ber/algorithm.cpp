#include "ber/algorithm.h"

#include <cstring>

namespace certkern {
namespace {

// The flag word of an OID's row; where it stands in the extra information differs from group to group.
bool RowOmitsNull(LPCSTR oid, DWORD group, size_t flagWord) {
  const PCCRYPT_OID_INFO row = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(oid), group);
  if (!row || row->ExtraInfo.cbData < (flagWord + 1) * sizeof(DWORD)) return false;
  DWORD flags;
  std::memcpy(&flags, row->ExtraInfo.pbData + flagWord * sizeof(DWORD), sizeof(flags));
  return flags & CRYPT_OID_NO_NULL_ALGORITHM_PARA_FLAG;
}

bool OmitsNull(LPCSTR oid) {
  return RowOmitsNull(oid, CRYPT_SIGN_ALG_OID_GROUP_ID, 1)
      || RowOmitsNull(oid, CRYPT_PUBKEY_ALG_OID_GROUP_ID, 0);
}

}  // namespace

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
bool AlgorithmDecode(BerReadCursor& in, CRYPT_ALGORITHM_IDENTIFIER& algorithm, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (!BerDecodeOidField(content, algorithm.pszObjId, arena)) return false;
  return content.empty() || BerCopyBytes(content.rest(), algorithm.Parameters, arena);
}

bool AlgorithmEncode(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, BerWriteCursor& out) {
  if (!algorithm.pszObjId) return false;
  const bool omit = !algorithm.Parameters.cbData && OmitsNull(algorithm.pszObjId);
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, algorithm.pszObjId, content)
        && (omit || BerEncodeVerbatim(algorithm.Parameters, content));
  });
}

// SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier, subjectPublicKey BIT STRING }
bool PublicKeyInfoDecode(BerReadCursor& in, CERT_PUBLIC_KEY_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && AlgorithmDecode(content, info.Algorithm, arena)
      && BerDecodeBits(content, info.PublicKey, arena);
}

bool PublicKeyInfoEncode(const CERT_PUBLIC_KEY_INFO& info, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return AlgorithmEncode(info.Algorithm, content) && BerEncodeBits(kTagBitString, info.PublicKey, content);
  });
}

// SEQUENCE { toBeSigned ANY, signatureAlgorithm AlgorithmIdentifier, signature BIT STRING }
bool SignedContentDecode(BerReadCursor& in, CERT_SIGNED_CONTENT_INFO& record, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerCaptureElement(content, record.ToBeSigned, arena)
      && AlgorithmDecode(content, record.SignatureAlgorithm, arena)
      && BerDecodeBits(content, record.Signature, arena);
}

bool SignedContentEncode(const CERT_SIGNED_CONTENT_INFO& record, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeVerbatim(record.ToBeSigned, content)
        && AlgorithmEncode(record.SignatureAlgorithm, content)
        && BerEncodeBits(kTagBitString, record.Signature, content);
  });
}

}  // namespace certkern
