#include "ber/sequences.h"

namespace certkern {

bool ContentInfoDecode(BerReadCursor& in, CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY& info, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content) || !BerDecodeOidField(content, info.pszObjId, arena))
    return false;
  if (content.empty()) return true;
  BerReadCursor wrapper;
  return BerExpect(content, ContextConstructed(0), wrapper)
      && BerReadSequenceOf(wrapper, kTagSequence, info.cValue, info.rgValue, arena, BerCaptureElement);
}

bool ContentInfoEncode(const CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY& info, BerWriteCursor& out) {
  if (!info.pszObjId || !info.cValue || !info.rgValue) return false;
  const auto values = [&](BerWriteCursor& wrapper) {
    return BerEncodeListOf(kTagSequence, info.rgValue, info.cValue, wrapper, BerEncodeVerbatim);
  };
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, info.pszObjId, content)
        && BerEncodeConstructed(Context(0), content, values);
  });
}

bool SequenceOfAnyDecode(BerReadCursor& in, CRYPT_SEQUENCE_OF_ANY& sequence, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, sequence.cValue, sequence.rgValue, arena, BerCaptureElement);
}

bool SequenceOfAnyEncode(const CRYPT_SEQUENCE_OF_ANY& sequence, BerWriteCursor& out) {
  return BerEncodeListOf(kTagSequence, sequence.rgValue, sequence.cValue, out, BerEncodeVerbatim);
}

bool EnhancedKeyUsageDecode(BerReadCursor& in, CERT_ENHKEY_USAGE& usage, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, usage.cUsageIdentifier, usage.rgpszUsageIdentifier, arena,
                           BerDecodeOidField);
}

bool EnhancedKeyUsageEncode(const CERT_ENHKEY_USAGE& usage, BerWriteCursor& out) {
  return BerEncodeListOf(
      kTagSequence, usage.rgpszUsageIdentifier, usage.cUsageIdentifier, out,
      [](LPCSTR oid, BerWriteCursor& list) { return BerEncodeOidField(kTagOid, oid, list); });
}

bool DhParametersDecode(BerReadCursor& in, CERT_DH_PARAMETERS& parameters, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeUint(content, parameters.p, arena)
      && BerDecodeUint(content, parameters.g, arena);
}

bool DhParametersEncode(const CERT_DH_PARAMETERS& parameters, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeUint(kTagInteger, parameters.p, content)
        && BerEncodeUint(kTagInteger, parameters.g, content);
  });
}

bool TemplateDecode(BerReadCursor& in, CERT_TEMPLATE_EXT& record, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor oid;
  if (!BerExpect(in, kTagSequence, content)) return Fault(CRYPT_E_ASN1_EOD);
  if (!BerExpect(content, kTagOid, oid)) return Fault(CRYPT_E_ASN1_EOD);
  if (!BerCopyOidText(oid.rest(), record.pszObjId, arena)) return false;
  if (content.empty()) return true;
  if (!BerDecodeInteger32(content, record.dwMajorVersion)) return Fault(CRYPT_E_ASN1_EOD);
  if (content.empty()) return true;
  if (!BerDecodeInteger32(content, record.dwMinorVersion)) return Fault(CRYPT_E_ASN1_EOD);
  record.fMinorVersion = TRUE;
  return true;
}

bool TemplateEncode(const CERT_TEMPLATE_EXT& record, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, record.pszObjId, content)
        && BerEncodeInteger32(kTagInteger, record.dwMajorVersion, content)
        && (!record.fMinorVersion || BerEncodeInteger32(kTagInteger, record.dwMinorVersion, content));
  });
}

bool NameValuePairDecode(BerReadCursor& in, CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeBmpText(content, pair.pwszName, arena)
      && BerDecodeBmpText(content, pair.pwszValue, arena);
}

bool NameValuePairEncode(const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeBmpText(pair.pwszName, content) && BerEncodeBmpText(pair.pwszValue, content);
  });
}

bool CspProviderDecode(BerReadCursor& in, CRYPT_CSP_PROVIDER& provider, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor keySpec;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (content.empty()) return true;
  if (!BerExpect(content, kTagInteger, keySpec) || keySpec.empty()) return false;
  // a longer number than the field holds keeps its low 32 bits
  const std::span<const BYTE> octets = keySpec.rest();
  if (!BerSignedValue(octets.last(octets.size() < 4 ? octets.size() : 4), provider.dwKeySpec)) return false;
  return BerDecodeBmpText(content, provider.pwszProviderName, arena)
      && BerDecodeSomeBits(content, provider.Signature, arena);
}

bool CspProviderEncode(const CRYPT_CSP_PROVIDER& provider, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeInteger32(kTagInteger, provider.dwKeySpec, content)
        && BerEncodeBmpText(provider.pwszProviderName, content)
        && BerEncodeBits(kTagBitString, provider.Signature, content);
  });
}

}  // namespace certkern
