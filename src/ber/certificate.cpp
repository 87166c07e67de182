#include "ber/certificate.h"

#include "ber/algorithm.h"
#include "ber/extension.h"
#include "ber/time_text.h"

namespace certkern {
namespace {

// version [0] EXPLICIT INTEGER DEFAULT v1, in its five-octet form only; any number passes.
bool VersionDecode(BerReadCursor& in, DWORD& version) {
  version = CERT_V1;
  if (!in.nextIs(ContextConstructed(0))) return true;
  const std::span<const BYTE> octets = in.rest();
  if (octets.size() < 5 || octets[1] != 3 || octets[2] != kTagInteger || octets[3] != 1) return false;
  version = octets[4];
  in.skip(5);
  return true;
}

// Validity ::= SEQUENCE { notBefore Time, notAfter Time }
bool ValidityDecode(BerReadCursor& in, FILETIME& notBefore, FILETIME& notAfter, const BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && content.size() >= 2
      && BerDecodeTime(content, notBefore, arena) && content.size() >= 2
      && BerDecodeTime(content, notAfter, arena);
}

// [number] IMPLICIT BIT STRING OPTIONAL; the class is not looked at.
bool UniqueIdDecode(BerReadCursor& in, int number, CRYPT_BIT_BLOB& id, BerDecodeArena& arena) {
  return !in.nextIs(static_cast<BYTE>(number), 31) || BerDecodeBits(in, id, arena);
}

bool UniqueIdEncode(int number, const CRYPT_BIT_BLOB& id, BerWriteCursor& out) {
  return !id.cbData || BerEncodeBits(Context(number), id, out);
}

}  // namespace

bool CertInfoDecode(BerReadCursor& in, CERT_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (!VersionDecode(content, info.dwVersion) || !BerDecodeInteger(content, info.SerialNumber, arena)
      || !AlgorithmDecode(content, info.SignatureAlgorithm, arena)
      || !BerCaptureElement(content, info.Issuer, arena)
      || !ValidityDecode(content, info.NotBefore, info.NotAfter, arena)
      || !BerCaptureElement(content, info.Subject, arena)
      || !PublicKeyInfoDecode(content, info.SubjectPublicKeyInfo, arena)
      || !UniqueIdDecode(content, 1, info.IssuerUniqueId, arena)
      || !UniqueIdDecode(content, 2, info.SubjectUniqueId, arena)) {
    return false;
  }
  if (!content.nextIs(ContextConstructed(3))) return true;  // what else may follow is not ours to judge
  BerReadCursor extensions;
  return BerExpect(content, ContextConstructed(3), extensions)
      && BerReadSequenceOf(extensions, kTagSequence, info.cExtension, info.rgExtension, arena,
                           ExtensionDecode);
}

bool CertInfoEncode(const CERT_INFO& info, BerWriteCursor& out) {
  if (IsZero(info.NotBefore) || IsZero(info.NotAfter) || !IsComplete(info.SubjectPublicKeyInfo)) return false;
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    if (info.dwVersion != CERT_V1 && !BerEncodeConstructed(Context(0), content, [&](BerWriteCursor& version) {
          return BerEncodeInteger32(kTagInteger, info.dwVersion, version);
        })) {
      return false;
    }
    const auto validity = [&](BerWriteCursor& times) {
      return BerEncodeTime(info.NotBefore, times) && BerEncodeTime(info.NotAfter, times);
    };
    return BerEncodeInteger(kTagInteger, info.SerialNumber, content)
        && AlgorithmEncode(info.SignatureAlgorithm, content) && BerEncodeVerbatim(info.Issuer, content)
        && BerEncodeConstructed(kTagSequence, content, validity) && BerEncodeVerbatim(info.Subject, content)
        && PublicKeyInfoEncode(info.SubjectPublicKeyInfo, content)
        && UniqueIdEncode(1, info.IssuerUniqueId, content) && UniqueIdEncode(2, info.SubjectUniqueId, content)
        && TaggedExtensionListEncode(3, info.rgExtension, info.cExtension, content);
  });
}

}  // namespace certkern
