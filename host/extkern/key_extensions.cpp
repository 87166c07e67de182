// What stands with a key, in a certificate or in its container: how long it may be used, how often it was derived from,
// how its validity is watched over, and the certificates that are kept with it.
#include <algorithm>
#include <string_view>

#include "ber/time_text.h"
#include "extkern/record_codec.h"
#include "platform/extkern.h"

namespace extkern {
namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the grammars below are written in its words

// --- the period ---

constexpr std::string_view kTimeForm = "YYYYMMDDHHMMSSZ";

bool IsWholeSecond(std::string_view text) {
  return text.size() == kTimeForm.size() && text.back() == 'Z'
      && std::all_of(text.begin(), text.end() - 1, [](char c) { return c >= '0' && c <= '9'; });
}

// [tag] IMPLICIT GeneralizedTime OPTIONAL
bool BoundDecode(BerReadCursor& in, BYTE tag, LPFILETIME& bound, BerDecodeArena& arena) {
  BerReadCursor content;
  FILETIME unkept;
  if (!in.nextIs(tag)) return true;
  if (!Expect(in, tag, content) || !arena.reserveRecord(bound, unkept)) return false;
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  return IsWholeSecond(text) && BerParseGeneralizedTime(text, *bound);
}

bool BoundEncode(const FILETIME* bound, BYTE tag, BerWriteCursor& out) {
  if (!bound) return true;
  BYTE element[2 + kTimeForm.size()];
  BerWriteCursor time(element, sizeof(element));
  if (!BerEncodeGeneralizedTime(*bound, time)) return false;
  element[0] = tag;
  return out.write(element);
}

// PrivateKeyUsagePeriod ::= SEQUENCE { notBefore [0] GeneralizedTime OPTIONAL, notAfter [1] GeneralizedTime OPTIONAL }
bool UsagePeriodDecode(BerReadCursor& in, SV_PRIVATE_KEY_USAGE_PERIOD& period, BerDecodeArena& arena) {
  BerReadCursor content;
  return Expect(in, kTagSequence, content) && BoundDecode(content, Context(0), period.pNotBefore, arena)
      && BoundDecode(content, Context(1), period.pNotAfter, arena) && Finished(content);
}

bool UsagePeriodEncode(const SV_PRIVATE_KEY_USAGE_PERIOD& period, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BoundEncode(period.pNotBefore, Context(0), content)
        && BoundEncode(period.pNotAfter, Context(1), content);
  });
}

// --- numbers ---

bool UnsignedValue(std::span<const BYTE> content, DWORD& value) {
  if (content.empty()) return false;
  if (content[0] & 0x80) return Fault(CRYPT_E_ASN1_CONSTRAINT);
  if (content.size() > 1 && content[0] == 0) content = content.subspan(1);
  if (content.size() > sizeof(value)) return Fault(CRYPT_E_ASN1_LARGE);
  value = 0;
  for (const BYTE octet : content) value = value << 8 | octet;
  return true;
}

bool CounterDecode(BerReadCursor& in, DWORD& counter, BerDecodeArena&) {
  BerReadCursor content;
  return Expect(in, kTagInteger, content) && UnsignedValue(content.rest(), counter);
}

bool ControlModeDecode(BerReadCursor& in, DWORD& mode, BerDecodeArena&) {
  BerReadCursor content;
  return Expect(in, in.nextIs(kTagEnumerated) ? kTagEnumerated : kTagInteger, content)
      && UnsignedValue(content.rest(), mode);
}

// --- certificates ---

// Certificate ::= SEQUENCE { tbsCertificate SEQUENCE, signatureAlgorithm SEQUENCE, signature BIT STRING }: that much is
// looked at, so that what comes out can be told from padding.
bool IsCertificate(std::span<const BYTE> element) {
  BerReadCursor in(element);
  BerReadCursor content;
  BerReadCursor part;
  return Expect(in, kTagSequence, content) && Expect(content, kTagSequence, part)
      && Expect(content, kTagSequence, part) && Expect(content, kTagBitString, part) && Finished(content)
      && Finished(in);
}

bool CertificateDecode(BerReadCursor& in, CERT_BLOB& certificate, BerDecodeArena& arena) {
  std::span<const BYTE> element;
  return in.readWhole(element) && IsCertificate(element) && BerCopyBytes(element, certificate, arena);
}

bool CertificateEncode(const CERT_BLOB& certificate, BerWriteCursor& out) {
  std::span<const BYTE> bytes;
  return BlobBytes(certificate, bytes) && IsCertificate(bytes) && out.write(bytes);
}

bool CertificateStoreDecode(BerReadCursor& in, SV_PRIVATE_CERTIFICATE_STORE& store, BerDecodeArena& arena) {
  BerReadCursor content;
  return Expect(in, kTagSequence, content)
      && BerReadElements(content, store.cCertificate, store.rgCertificate, arena, CertificateDecode);
}

bool CertificateStoreEncode(const SV_PRIVATE_CERTIFICATE_STORE& store, BerWriteCursor& out) {
  return BerEncodeListOf(kTagSequence, store.rgCertificate, store.cCertificate, out, CertificateEncode);
}

constexpr const RecordType& kUsagePeriod =
    kRecordType<SV_PRIVATE_KEY_USAGE_PERIOD, UsagePeriodEncode, UsagePeriodDecode>;
constexpr const RecordType& kCertificateStore =
    kRecordType<SV_PRIVATE_CERTIFICATE_STORE, CertificateStoreEncode, CertificateStoreDecode>;

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnDllPrivateKeyUsagePeriodEncode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded,
                                      DWORD* pcbEncoded) {
  return EncodeRecord(kUsagePeriod, pvStructInfo, pbEncoded, pcbEncoded);
}
BOOL XnDllPrivateKeyUsagePeriodDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                      void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kUsagePeriod, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
}

BOOL XnDllPrivateKeyDeriveCounterDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                        void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kReadOnlyType<DWORD, CounterDecode>, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo,
                      pcbStructInfo);
}
BOOL XnDllGostPrivateKeyTimeValidityControlModeDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded,
                                                      DWORD dwFlags, void* pvStructInfo,
                                                      DWORD* pcbStructInfo) {
  return DecodeRecord(kReadOnlyType<DWORD, ControlModeDecode>, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo,
                      pcbStructInfo);
}

BOOL XnDllGostPrivateCertificateStoreEncode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded,
                                            DWORD* pcbEncoded) {
  return EncodeRecord(kCertificateStore, pvStructInfo, pbEncoded, pcbEncoded);
}
BOOL XnDllGostPrivateCertificateStoreDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded,
                                            DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kCertificateStore, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
}

}  // extern "C"
