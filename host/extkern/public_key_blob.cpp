#include "extkern/public_key_blob.h"

#include <certkern/oids.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "ber/algorithm.h"
#include "common/der.h"
#include "extkern/record_codec.h"
#include "platform/limits.h"

namespace extkern {
namespace {

namespace der = certkern::der;

// Of a magnitude that is not zero.
DWORD BitLength(std::span<const BYTE> magnitude) {
  return static_cast<DWORD>(8 * (magnitude.size() - 1) + std::bit_width(magnitude[0]));
}

template <class Record>
bool TakeRecord(std::span<const BYTE>& in, Record& record) {
  if (in.size() < sizeof(record)) return false;
  std::memcpy(&record, in.data(), sizeof(record));
  in = in.subspan(sizeof(record));
  return true;
}

bool IsPublicKeyHeader(const BLOBHEADER& header) {
  return header.bType == PUBLICKEYBLOB && header.bVersion == CUR_BLOB_VERSION;
}

// The header, the record behind it, and the key.
template <class Record>
Bytes KeyBlob(ALG_ID algorithm, const Record& record, std::span<const BYTE> key) {
  const BLOBHEADER header = {PUBLICKEYBLOB, CUR_BLOB_VERSION, 0, algorithm};
  Bytes blob(sizeof(header) + sizeof(record));
  std::memcpy(blob.data(), &header, sizeof(header));
  std::memcpy(blob.data() + sizeof(header), &record, sizeof(record));
  certkern::Append(blob, key);
  return blob;
}

Bytes Reversed(std::span<const BYTE> bytes) { return {bytes.rbegin(), bytes.rend()}; }

// The pieces are only read, though the records of the interface have no const.
CERT_PUBLIC_KEY_INFO InfoOf(LPCSTR oid, std::span<const BYTE> parameters, std::span<const BYTE> key) {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<LPSTR>(oid);
  info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), const_cast<BYTE*>(parameters.data())};
  info.PublicKey = {static_cast<DWORD>(key.size()), const_cast<BYTE*>(key.data()), 0};
  return info;
}

DWORD RsaInfo(std::span<const BYTE> rsaPublicKey, LPCSTR objectId, Bytes& publicKeyInfo) {
  publicKeyInfo = WritePublicKeyInfo(InfoOf(objectId ? objectId : szOID_RSA_RSA, {}, rsaPublicKey));
  return publicKeyInfo.empty() ? DWORD{CRYPT_E_OID_FORMAT} : ERROR_SUCCESS;
}

// SubjectPublicKeyInfo with another identifier. What stands beside an RSA identifier belongs to that one alone, while
// the parameters of other keys are a part of the key.
DWORD RenamedInfo(std::span<const BYTE> whole, bool rsa, LPCSTR objectId, Bytes& publicKeyInfo) {
  der::Reader outer(whole);
  der::Reader body;
  der::Algorithm algorithm;
  std::span<const BYTE> bits;
  if (!outer.take(der::kSequence, body) || !outer.empty() || !der::TakeAlgorithm(body, algorithm)
      || !body.takeBits(bits) || !body.empty()) {
    return NTE_BAD_DATA;
  }
  if (rsa && objectId) return RsaInfo(bits, objectId, publicKeyInfo);
  publicKeyInfo =
      WritePublicKeyInfo(InfoOf(objectId ? objectId : algorithm.oid.c_str(), algorithm.parameters, bits));
  return publicKeyInfo.empty() ? DWORD{CRYPT_E_OID_FORMAT} : ERROR_SUCCESS;
}

}  // namespace

DWORD ReadRsaPublicKey(std::span<const BYTE> der, RsaPublicKey& key) {
  der::Reader outer(der);
  der::Reader body;
  if (!outer.take(der::kSequence, body) || !outer.empty() || !body.takeUnsigned(key.modulus)
      || !body.takeUnsigned(key.exponent) || !body.empty()) {
    return CRYPT_E_ASN1_CORRUPT;
  }
  if (key.modulus.empty() || key.exponent.empty()) return CRYPT_E_ASN1_CORRUPT;  // zero
  if (BitLength(key.modulus) > certkern::kMaxRsaBits) return CRYPT_E_ASN1_LARGE;
  return key.exponent.size() > key.modulus.size() ? DWORD{CRYPT_E_ASN1_LARGE} : ERROR_SUCCESS;
}

Bytes RsaKeyBlob(ALG_ID algorithm, const RsaPublicKey& key) {
  RSAPUBKEY record = {RSA1, BitLength(key.modulus), 0};
  for (const BYTE octet : key.exponent) record.pubexp = record.pubexp << 8 | octet;
  return KeyBlob(algorithm, record, Reversed(key.modulus));
}

Bytes InfoKeyBlob(ALG_ID algorithm, std::span<const BYTE> publicKeyInfo) {
  return KeyBlob(algorithm, KEY_BLOB_INFO{KEY_BLOB_PUBLIC, 0}, publicKeyInfo);
}

size_t RsaBlobSize(std::span<const BYTE, kRsaBlobHead> head) {
  std::span<const BYTE> in = head;
  BLOBHEADER header;
  RSAPUBKEY key;
  if (!TakeRecord(in, header) || !TakeRecord(in, key)) return 0;
  if (!IsPublicKeyHeader(header) || !IsRsa(header.aiKeyAlg) || key.magic != RSA1) return 0;
  if (key.bitlen == 0 || key.bitlen > certkern::kMaxRsaBits) return 0;
  return kRsaBlobHead + (key.bitlen + 7) / 8;
}

Bytes RsaPublicKeyOfBlob(std::span<const BYTE> blob) {
  if (blob.size() < kRsaBlobHead || RsaBlobSize(blob.first<kRsaBlobHead>()) != blob.size()) return {};
  std::span<const BYTE> in = blob.subspan(sizeof(BLOBHEADER));
  RSAPUBKEY key;
  if (!TakeRecord(in, key)) return {};
  if (std::all_of(in.begin(), in.end(), [](BYTE octet) { return octet == 0; })) return {};
  return der::Sequence({der::Unsigned(Reversed(in)), der::Small(key.pubexp)});
}

DWORD PublicKeyInfoOfBlob(std::span<const BYTE> blob, LPCSTR objectId, Bytes& publicKeyInfo) {
  const Bytes rsaPublicKey = RsaPublicKeyOfBlob(blob);
  if (!rsaPublicKey.empty()) return RsaInfo(rsaPublicKey, objectId, publicKeyInfo);
  BLOBHEADER header;
  KEY_BLOB_INFO info;
  if (!TakeRecord(blob, header) || !IsPublicKeyHeader(header)) return NTE_BAD_DATA;
  if (!TakeRecord(blob, info) || info.dwMagic != KEY_BLOB_PUBLIC) return NTE_BAD_DATA;
  return RenamedInfo(blob, IsRsa(header.aiKeyAlg), objectId, publicKeyInfo);
}

Bytes WritePublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info) {
  BerWriteCursor counter;
  if (!certkern::PublicKeyInfoEncode(info, counter)) return {};
  Bytes out(counter.count());
  BerWriteCursor cursor(out.data(), out.size());
  if (!certkern::PublicKeyInfoEncode(info, cursor)) return {};
  return out;
}

}  // namespace extkern
