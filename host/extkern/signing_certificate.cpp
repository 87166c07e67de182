// The attributes that bind a signature to certificates: their hashes, and issuer and serial number beside them. The three
// forms differ only in how they name the hash.
#include <cstring>

#include "extkern/record_codec.h"
#include "platform/extkern.h"

namespace extkern {
namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the grammars below are written in its words

constexpr char kSha1[] = "1.3.14.3.2.26";
constexpr char kSha256[] = "2.16.840.1.101.3.4.2.1";
constexpr size_t kSha1Size = 20;
constexpr size_t kSha256Size = 32;

// --- the name of the hash ---

bool IsPlain(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, const char* oid) {
  return !algorithm.pszObjId || (!algorithm.Parameters.cbData && std::strcmp(algorithm.pszObjId, oid) == 0);
}

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
bool HashAlgorithmDecode(BerReadCursor& in, CRYPT_ALGORITHM_IDENTIFIER& algorithm, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor oid;
  if (!Expect(in, kTagSequence, content) || !Expect(content, kTagOid, oid)) return false;
  if (!BerCopyOidText(oid.rest(), algorithm.pszObjId, arena)) return false;
  return content.empty() || (BerCaptureElement(content, algorithm.Parameters, arena) && Finished(content));
}

bool HashAlgorithmEncode(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, BerWriteCursor& out) {
  std::span<const BYTE> parameters;
  if (!BlobBytes(algorithm.Parameters, parameters)) return false;
  if (!parameters.empty() && !IsElement(parameters)) return false;
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, algorithm.pszObjId, content) && content.write(parameters);
  });
}

// size: of a default algorithm; of others nothing is known but that the hash is not empty, and the size is 0.
bool Fits(size_t hashSize, size_t size) { return size ? hashSize == size : hashSize != 0; }

bool HashDecode(BerReadCursor& in, SV_CERT_HASH_ID& id, size_t size, BerDecodeArena& arena) {
  BerReadCursor hash;
  return Expect(in, kTagOctetString, hash) && Fits(hash.size(), size)
      && BerCopyBytes(hash.rest(), id.CertHash, arena);
}

bool HashEncode(const SV_CERT_HASH_ID& id, size_t size, BerWriteCursor& out) {
  return Fits(id.CertHash.cbData, size) && BerEncodeOctets(kTagOctetString, id.CertHash, out);
}

// RFC 2634: certHash OCTET STRING, by SHA-1.
struct Sha1Form {
  static bool decode(BerReadCursor& in, SV_CERT_HASH_ID& id, BerDecodeArena& arena) {
    return HashDecode(in, id, kSha1Size, arena);
  }
  static bool encode(const SV_CERT_HASH_ID& id, BerWriteCursor& out) {
    return IsPlain(id.HashAlgorithm, kSha1) && HashEncode(id, kSha1Size, out);
  }
};

// RFC 5035: hashAlgorithm AlgorithmIdentifier DEFAULT {algorithm id-sha256}, certHash OCTET STRING
struct DefaultForm {
  static bool decode(BerReadCursor& in, SV_CERT_HASH_ID& id, BerDecodeArena& arena) {
    if (!in.nextIs(kTagSequence)) return HashDecode(in, id, kSha256Size, arena);
    return HashAlgorithmDecode(in, id.HashAlgorithm, arena) && HashDecode(in, id, 0, arena);
  }
  static bool encode(const SV_CERT_HASH_ID& id, BerWriteCursor& out) {
    if (IsPlain(id.HashAlgorithm, kSha256)) return HashEncode(id, kSha256Size, out);
    return HashAlgorithmEncode(id.HashAlgorithm, out) && HashEncode(id, 0, out);
  }
};

// RFC 5126: CHOICE { sha1Hash OCTET STRING, otherHash SEQUENCE { hashAlgorithm AlgorithmIdentifier,
//                                                               hashValue OCTET STRING } }
struct ChoiceForm {
  static bool decode(BerReadCursor& in, SV_CERT_HASH_ID& id, BerDecodeArena& arena) {
    BerReadCursor other;
    if (!in.nextIs(kTagSequence)) return HashDecode(in, id, kSha1Size, arena);
    return Expect(in, kTagSequence, other) && HashAlgorithmDecode(other, id.HashAlgorithm, arena)
        && HashDecode(other, id, 0, arena) && Finished(other);
  }
  static bool encode(const SV_CERT_HASH_ID& id, BerWriteCursor& out) {
    if (IsPlain(id.HashAlgorithm, kSha1)) return HashEncode(id, kSha1Size, out);
    return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
      return HashAlgorithmEncode(id.HashAlgorithm, content) && HashEncode(id, 0, content);
    });
  }
};

// --- issuer and serial number ---

constexpr BYTE kTagClass = 0xC0;
constexpr BYTE kTagContextClass = 0x80;
constexpr BYTE kTagDirectoryName = ContextConstructed(4);

// GeneralNames, of which exactly one is a directoryName. RFC 5035 has that one alone; others beside it say nothing of
// the certificate's own issuer field and are passed over.
bool IssuerDecode(BerReadCursor& in, CERT_NAME_BLOB& issuer, BerDecodeArena& arena) {
  BerReadCursor names;
  BerReadCursor directoryName;
  if (!Expect(in, kTagSequence, names)) return false;
  while (!names.empty()) {
    BYTE tag;
    BerReadCursor content;
    if (!names.nextIs(kTagContextClass, kTagClass)) return Fault(CRYPT_E_ASN1_BADTAG);
    if (!names.readElement(tag, content)) return false;
    if (tag != kTagDirectoryName) continue;
    if (!directoryName.empty()) return Fault(CRYPT_E_ASN1_CONSTRAINT);
    if (!IsElement(content.rest(), kTagSequence)) return Fault(CRYPT_E_ASN1_CORRUPT);
    directoryName = content;
  }
  if (directoryName.empty()) return Fault(CRYPT_E_ASN1_CONSTRAINT);
  return BerCopyBytes(directoryName.rest(), issuer, arena);
}

// IssuerSerial ::= SEQUENCE { issuer GeneralNames, serialNumber INTEGER }
bool IssuerSerialDecode(BerReadCursor& in, SV_ISSUER_SERIAL& record, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor serial;
  return Expect(in, kTagSequence, content) && IssuerDecode(content, record.Issuer, arena)
      && Expect(content, kTagInteger, serial) && !serial.empty()
      && BerCopyReversed(serial.rest(), record.SerialNumber, arena) && Finished(content);
}

bool IssuerSerialEncode(const SV_ISSUER_SERIAL& record, BerWriteCursor& out) {
  const auto name = [&](BerWriteCursor& wrapper) {
    return WriteElement(record.Issuer, kTagSequence, wrapper);
  };
  const auto names = [&](BerWriteCursor& list) {
    return BerEncodeConstructed(kTagDirectoryName, list, name);
  };
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeConstructed(kTagSequence, content, names) && record.SerialNumber.cbData != 0
        && BerEncodeInteger(kTagInteger, record.SerialNumber, content);
  });
}

// --- the attribute ---

// SEQUENCE { the hash as the form has it, issuerSerial IssuerSerial OPTIONAL }
template <typename Form>
bool HashIdDecode(BerReadCursor& in, SV_CERT_HASH_ID& id, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!Expect(in, kTagSequence, content) || !Form::decode(content, id, arena)) return false;
  if (content.empty()) return true;
  if (!arena.reserveRecords(1, id.pIssuerSerial)) return false;
  SV_ISSUER_SERIAL serial = {};
  if (!IssuerSerialDecode(content, serial, arena) || !Finished(content)) return false;
  if (id.pIssuerSerial) *id.pIssuerSerial = serial;
  return true;
}

template <typename Form>
bool HashIdEncode(const SV_CERT_HASH_ID& id, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return Form::encode(id, content) && (!id.pIssuerSerial || IssuerSerialEncode(*id.pIssuerSerial, content));
  });
}

// PolicyInformation ::= SEQUENCE { policyIdentifier OBJECT IDENTIFIER, policyQualifiers SEQUENCE OPTIONAL }
bool SkipPolicies(BerReadCursor& in) {
  BerReadCursor policies;
  if (!Expect(in, kTagSequence, policies)) return false;
  while (!policies.empty()) {
    BerReadCursor policy;
    BerReadCursor part;
    if (!Expect(policies, kTagSequence, policy) || !Expect(policy, kTagOid, part)) return false;
    if (!policy.empty() && !Expect(policy, kTagSequence, part)) return false;
    if (!Finished(policy)) return false;
  }
  return true;
}

// SEQUENCE { certs SEQUENCE OF ..., policies SEQUENCE OF PolicyInformation OPTIONAL }
template <typename Form>
bool SigningCertificateDecode(BerReadCursor& in, SV_SIGNING_CERTIFICATE& record, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor certificates;
  if (!Expect(in, kTagSequence, content) || !Expect(content, kTagSequence, certificates)) return false;
  if (certificates.empty()) return Fault(CRYPT_E_ASN1_CONSTRAINT);
  if (!BerReadElements(certificates, record.cCert, record.rgCert, arena, HashIdDecode<Form>)) return false;
  return (content.empty() || SkipPolicies(content)) && Finished(content);
}

template <typename Form>
bool SigningCertificateEncode(const SV_SIGNING_CERTIFICATE& record, BerWriteCursor& out) {
  if (!record.cCert) return false;
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeListOf(kTagSequence, record.rgCert, record.cCert, content, HashIdEncode<Form>);
  });
}

template <typename Form>
constexpr const RecordType& kType =
    kRecordType<SV_SIGNING_CERTIFICATE, SigningCertificateEncode<Form>, SigningCertificateDecode<Form>>;

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnDllSigningCertificateEncode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded,
                                   DWORD* pcbEncoded) {
  return EncodeRecord(kType<Sha1Form>, pvStructInfo, pbEncoded, pcbEncoded);
}
BOOL XnDllSigningCertificateDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                   void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kType<Sha1Form>, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
}

BOOL XnDllSigningCertificateV2Encode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded,
                                     DWORD* pcbEncoded) {
  return EncodeRecord(kType<DefaultForm>, pvStructInfo, pbEncoded, pcbEncoded);
}
BOOL XnDllSigningCertificateV2Decode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                     void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kType<DefaultForm>, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
}

BOOL XnDllOtherSigningCertificateEncode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded,
                                        DWORD* pcbEncoded) {
  return EncodeRecord(kType<ChoiceForm>, pvStructInfo, pbEncoded, pcbEncoded);
}
BOOL XnDllOtherSigningCertificateDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                        void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kType<ChoiceForm>, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
}

}  // extern "C"
