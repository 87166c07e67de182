#include "ber/policy.h"

#include "ber/name_value.h"

namespace certkern {
namespace {

// PolicyQualifierInfo ::= SEQUENCE { policyQualifierId OBJECT IDENTIFIER, qualifier ANY }
bool QualifierDecode(BerReadCursor& in, CERT_POLICY_QUALIFIER_INFO& qualifier, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content)
      && BerDecodeOidField(content, qualifier.pszPolicyQualifierId, arena)
      && (content.empty() || BerCaptureElement(content, qualifier.Qualifier, arena));
}

bool QualifierEncode(const CERT_POLICY_QUALIFIER_INFO& qualifier, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, qualifier.pszPolicyQualifierId, content)
        && BerEncodeVerbatim(qualifier.Qualifier, content);
  });
}

// PolicyInformation ::= SEQUENCE { policyIdentifier OBJECT IDENTIFIER, policyQualifiers SEQUENCE OF OPTIONAL }
bool PolicyDecode(BerReadCursor& in, CERT_POLICY_INFO& policy, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeOidField(content, policy.pszPolicyIdentifier, arena)
      && BerReadSequenceOf(content, kTagSequence, policy.cPolicyQualifier, policy.rgPolicyQualifier, arena,
                           QualifierDecode);
}

bool PolicyEncode(const CERT_POLICY_INFO& policy, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, policy.pszPolicyIdentifier, content)
        && (!policy.cPolicyQualifier
            || BerEncodeListOf(kTagSequence, policy.rgPolicyQualifier, policy.cPolicyQualifier, content,
                               QualifierEncode));
  });
}

// SEQUENCE { issuerDomainPolicy OBJECT IDENTIFIER, subjectDomainPolicy OBJECT IDENTIFIER }
bool MappingDecode(BerReadCursor& in, CERT_POLICY_MAPPING& mapping, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content)
      && BerDecodeOidField(content, mapping.pszIssuerDomainPolicy, arena)
      && BerDecodeOidField(content, mapping.pszSubjectDomainPolicy, arena);
}

bool MappingEncode(const CERT_POLICY_MAPPING& mapping, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, mapping.pszIssuerDomainPolicy, content)
        && BerEncodeOidField(kTagOid, mapping.pszSubjectDomainPolicy, content);
  });
}

// [number] IMPLICIT INTEGER OPTIONAL
bool SkipCertsDecode(BerReadCursor& in, int number, BOOL& present, DWORD& value) {
  if (!in.nextIs(Context(number), static_cast<BYTE>(~kConstructed))) return true;
  BYTE tag;
  BerReadCursor content;
  if (!in.readElement(tag, content) || !BerSignedValue(content.rest(), value)) return false;
  present = TRUE;
  return true;
}

}  // namespace

// BasicConstraints ::= SEQUENCE { cA BOOLEAN DEFAULT FALSE, pathLenConstraint INTEGER OPTIONAL }
bool BasicConstraintsDecode(BerReadCursor& in, CERT_BASIC_CONSTRAINTS2_INFO& info, BerDecodeArena&) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (content.empty()) return true;
  if (!content.nextIs(kTagBoolean)) SetLastError(CRYPT_E_ASN1_BADTAG);
  if (!BerDecodeBoolean(content, info.fCA)) return false;
  if (content.empty()) return true;
  if (!content.nextIs(kTagInteger)) {
    SetLastError(CRYPT_E_ASN1_BADTAG);
    return true;
  }
  if (!BerDecodeInteger32(content, info.dwPathLenConstraint)) return false;
  info.fPathLenConstraint = TRUE;
  return true;
}

bool BasicConstraintsEncode(const CERT_BASIC_CONSTRAINTS2_INFO& info, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return (!info.fCA || BerEncodeTrue(kTagBoolean, content))
        && (!info.fPathLenConstraint || BerEncodeInteger32(kTagInteger, info.dwPathLenConstraint, content));
  });
}

bool PoliciesDecode(BerReadCursor& in, CERT_POLICIES_INFO& info, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, info.cPolicyInfo, info.rgPolicyInfo, arena, PolicyDecode);
}

bool PoliciesEncode(const CERT_POLICIES_INFO& info, BerWriteCursor& out) {
  return BerEncodeListOf(kTagSequence, info.rgPolicyInfo, info.cPolicyInfo, out, PolicyEncode);
}

// UserNotice ::= SEQUENCE { noticeRef SEQUENCE OPTIONAL, explicitText DisplayText OPTIONAL }
bool UserNoticeDecode(BerReadCursor& in, CERT_POLICY_QUALIFIER_USER_NOTICE& notice, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && DisplayTextDecode(content, notice.pszDisplayText, arena);
}

bool UserNoticeEncode(const CERT_POLICY_QUALIFIER_USER_NOTICE& notice, BerWriteCursor& out) {
  if (notice.pNoticeReference) return false;
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return !notice.pszDisplayText || BerEncodeBmpText(notice.pszDisplayText, content);
  });
}

bool PolicyMappingsDecode(BerReadCursor& in, CERT_POLICY_MAPPINGS_INFO& info, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, info.cPolicyMapping, info.rgPolicyMapping, arena, MappingDecode);
}

bool PolicyMappingsEncode(const CERT_POLICY_MAPPINGS_INFO& info, BerWriteCursor& out) {
  return BerEncodeListOf(kTagSequence, info.rgPolicyMapping, info.cPolicyMapping, out, MappingEncode);
}

// PolicyConstraints ::= SEQUENCE { requireExplicitPolicy [0] OPTIONAL, inhibitPolicyMapping [1] OPTIONAL }
bool PolicyConstraintsDecode(BerReadCursor& in, CERT_POLICY_CONSTRAINTS_INFO& info, BerDecodeArena&) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content)
      && SkipCertsDecode(content, 0, info.fRequireExplicitPolicy, info.dwRequireExplicitPolicySkipCerts)
      && SkipCertsDecode(content, 1, info.fInhibitPolicyMapping, info.dwInhibitPolicyMappingSkipCerts);
}

}  // namespace certkern
