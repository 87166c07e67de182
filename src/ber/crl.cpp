#include "ber/algorithm.h"
#include "ber/certificate.h"
#include "ber/extension.h"
#include "ber/time_text.h"

#include <array>
#include <cstring>

namespace certkern {
namespace {

// Extension { id-ce-cRLReasons, ENUMERATED } up to the code itself: most entries of a large list hold just this.
constexpr std::array<BYTE, 11> kReasonExtension = {0x30, 0x0A, 0x06, 0x03, 0x55, 0x1D,
                                                   0x15, 0x04, 0x03, 0x0A, 0x01};
// The same inside its SEQUENCE OF.
constexpr std::array<BYTE, 13> kReasonExtensions = {0x30, 0x0C, 0x30, 0x0A, 0x06, 0x03, 0x55,
                                                    0x1D, 0x15, 0x04, 0x03, 0x0A, 0x01};
constexpr BYTE kLastReason = CRL_REASON_AA_COMPROMISE;

// What the records of such an extension point to; shared by all of them, and never written.
constexpr char kReasonOid[] = "2.5.29.21";
constexpr BYTE kReasonValues[kLastReason + 1][3] = {
    {10, 1, 0 },
    {10, 1, 1 },
    {10, 1, 2 },
    {10, 1, 3 },
    {10, 1, 4 },
    {10, 1, 5 },
    {10, 1, 6 },
    {10, 1, 7 },
    {10, 1, 8 },
    {10, 1, 9 },
    {10, 1, 10},
};

template <size_t kSize>
bool IsReason(std::span<const BYTE> octets, const std::array<BYTE, kSize>& shape) {
  return octets.size() == kSize + 1 && std::memcmp(octets.data(), shape.data(), kSize) == 0;
}

CERT_EXTENSION ReasonExtension(BYTE reason) {
  return {
      const_cast<char*>(kReasonOid),
      FALSE,
      {sizeof(kReasonValues[reason]), const_cast<BYTE*>(kReasonValues[reason])}
  };
}

bool CrlEntryExtensionDecode(BerReadCursor& in, CERT_EXTENSION& extension, BerDecodeArena& arena) {
  BerReadCursor ahead = in;
  std::span<const BYTE> element;
  if (ahead.readWhole(element) && IsReason(element, kReasonExtension) && element.back() <= kLastReason) {
    extension = ReasonExtension(element.back());
    in = ahead;
    return true;
  }
  return ExtensionDecode(in, extension, arena);
}

bool EntryExtensionsDecode(BerReadCursor& content, CRL_ENTRY& entry, BerDecodeArena& arena) {
  if (!IsReason(content.rest(), kReasonExtensions)) {
    return BerReadSequenceOf(content, kTagSequence, entry.cExtension, entry.rgExtension, arena,
                             CrlEntryExtensionDecode);
  }
  const BYTE reason = content.rest().back();
  if (reason > kLastReason || !arena.reserveRecords(1, entry.rgExtension)) return false;
  entry.cExtension = 1;
  if (entry.rgExtension) *entry.rgExtension = ReasonExtension(reason);
  return true;
}

// SEQUENCE { userCertificate INTEGER, revocationDate Time, crlEntryExtensions Extensions OPTIONAL }
bool CrlEntryDecode(BerReadCursor& in, CRL_ENTRY& entry, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor serial;
  return BerExpect(in, kTagSequence, content) && !content.empty() && BerExpect(content, kTagInteger, serial)
      && BerCopyReversed(serial.rest(), entry.SerialNumber, arena)
      && BerDecodeTime(content, entry.RevocationDate, arena) && EntryExtensionsDecode(content, entry, arena);
}

bool CrlEntryEncode(const CRL_ENTRY& entry, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeInteger(kTagInteger, entry.SerialNumber, content)
        && BerEncodeTime(entry.RevocationDate, content)
        && (!entry.cExtension || ExtensionListEncode(entry.rgExtension, entry.cExtension, content));
  });
}

}  // namespace

// TBSCertList ::= SEQUENCE { version INTEGER, signature AlgorithmIdentifier, issuer Name, thisUpdate Time,
//     nextUpdate Time OPTIONAL, revokedCertificates SEQUENCE OF ... OPTIONAL, crlExtensions [0] EXPLICIT OPTIONAL }
bool CrlInfoDecode(BerReadCursor& in, CRL_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (!BerDecodeVersion(content, info.dwVersion) || !AlgorithmDecode(content, info.SignatureAlgorithm, arena)
      || !BerCaptureElement(content, info.Issuer, arena) || !BerDecodeTime(content, info.ThisUpdate, arena)) {
    return false;
  }
  if (BerNextIsTime(content) && !BerDecodeTime(content, info.NextUpdate, arena)) return false;
  // a list with neither entries nor extensions is not a v2 list
  if (content.empty()) return false;
  if (content.nextIs(kTagSequence)
      && !BerReadSequenceOf(content, kTagSequence, info.cCRLEntry, info.rgCRLEntry, arena, CrlEntryDecode)) {
    return false;
  }
  if (content.empty()) return true;
  BerReadCursor extensions;
  return BerExpect(content, ContextConstructed(0), extensions)
      && BerReadSequenceOf(extensions, kTagSequence, info.cExtension, info.rgExtension, arena,
                           ExtensionDecode);
}

bool CrlInfoEncode(const CRL_INFO& info, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return (!info.dwVersion || BerEncodeInteger32(kTagInteger, info.dwVersion, content))
        && AlgorithmEncode(info.SignatureAlgorithm, content) && BerEncodeVerbatim(info.Issuer, content)
        && BerEncodeTime(info.ThisUpdate, content)
        && (IsZero(info.NextUpdate) || BerEncodeTime(info.NextUpdate, content))
        && (!info.cCRLEntry
            || BerEncodeListOf(kTagSequence, info.rgCRLEntry, info.cCRLEntry, content, CrlEntryEncode))
        && TaggedExtensionListEncode(0, info.rgExtension, info.cExtension, content);
  });
}

}  // namespace certkern
