#include "key_fields.h"

#include "decoded.h"
#include "grammar.h"
#include "oid_names.h"

#include <certkern/oids.h>

#include <algorithm>
#include <bit>
#include <string_view>

namespace certkern::cli {
namespace {

Bytes Copy(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

// Parameters that only name something: one identifier (a curve) or a sequence of them (GOST parameter sets).
bool AddNamedParameters(Field& field, std::span<const BYTE> encoded) {
  if (encoded[0] == kOidTag) {
    const auto oid = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, encoded);
    if (oid) field.add("Parameter set", NamedOid(*oid));
    return oid != nullptr;
  }
  if (encoded[0] != kSequenceTag) return false;
  static constexpr std::string_view kLabels[] = {"Parameter set", "Digest parameter set",
                                                 "Cipher parameter set"};
  const auto sequence = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, encoded);
  if (!sequence || !sequence->cValue || sequence->cValue > std::size(kLabels)) return false;
  Field sets;
  for (DWORD i = 0; i < sequence->cValue; ++i) {
    const std::span<const BYTE> element = BytesOf(sequence->rgValue[i]);
    if (element.empty() || element[0] != kOidTag) return false;
    const auto oid = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, element);
    if (!oid) return false;
    sets.add(kLabels[i], NamedOid(*oid));
  }
  std::move(sets.children.begin(), sets.children.end(), std::back_inserter(field.children));
  return true;
}

// The curve that the parameters name, or the algorithm itself where it is one.
int BitsOfCurve(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
  const std::span<const BYTE> encoded = BytesOf(algorithm.Parameters);
  if (encoded.empty()) return CurveBits(algorithm.pszObjId);
  if (encoded[0] == kOidTag) {
    const auto oid = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, encoded);
    return oid ? CurveBits(*oid) : 0;
  }
  const auto sequence = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, encoded);
  if (!sequence || !sequence->cValue || !sequence->rgValue[0].cbData) return 0;
  const auto oid = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, BytesOf(sequence->rgValue[0]));
  return oid ? CurveBits(*oid) : 0;
}

// Bits of a positive number that is one element.
int BitsOfNumber(std::span<const BYTE> encoded) {
  if (encoded.empty()) return 0;
  const auto number = Decode<CRYPT_UINT_BLOB>(X509_MULTI_BYTE_UINT, encoded);
  if (!number || !number->cbData) return 0;
  const std::span<const BYTE> little = BytesOf(*number);
  return static_cast<int>((little.size() - 1) * 8) + std::bit_width(little.back());
}

// RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }. RFC 8017, A.1.1.
int BitsOfModulus(std::span<const BYTE> key) {
  if (key.empty()) return 0;
  const auto numbers = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, key);
  return numbers && numbers->cValue == 2 ? BitsOfNumber(BytesOf(numbers->rgValue[0])) : 0;
}

// Dss-Parms ::= SEQUENCE { p INTEGER, q INTEGER, g INTEGER }. RFC 3279, 2.3.2.
int BitsOfPrime(std::span<const BYTE> parameters) {
  if (parameters.empty()) return 0;
  const auto numbers = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, parameters);
  return numbers && numbers->cValue ? BitsOfNumber(BytesOf(numbers->rgValue[0])) : 0;
}

// 0 when the key is of a kind that has no known size.
int KeyBits(const CERT_PUBLIC_KEY_INFO& key) {
  const std::string_view oid = key.Algorithm.pszObjId ? key.Algorithm.pszObjId : "";
  if (oid == szOID_RSA_RSA || oid == szOID_RSA_SSA_PSS || oid == szOID_RSAES_OAEP) {
    return BitsOfModulus(BytesOf(key.PublicKey));
  }
  if (oid == szOID_X957_DSA) return BitsOfPrime(BytesOf(key.Algorithm.Parameters));
  return BitsOfCurve(key.Algorithm);
}

}  // namespace

void AddAlgorithm(Field& parent, std::string_view label, const CRYPT_ALGORITHM_IDENTIFIER& algorithm,
                  DWORD group) {
  static constexpr BYTE kNull[] = {kNullTag, 0};
  Field& field = parent.add(label, NamedOid(algorithm.pszObjId, group));
  const std::span<const BYTE> parameters = BytesOf(algorithm.Parameters);
  if (parameters.empty()) return;
  if (std::equal(parameters.begin(), parameters.end(), std::begin(kNull), std::end(kNull))) return;
  if (!AddNamedParameters(field, parameters)) field.add("Parameters", Copy(parameters));
}

Field PublicKeyField(const CERT_PUBLIC_KEY_INFO& key) {
  Field field("Public key");
  AddAlgorithm(field, "Algorithm", key.Algorithm, CRYPT_PUBKEY_ALG_OID_GROUP_ID);
  if (const int bits = KeyBits(key)) field.add("Size in bits", int64_t{bits});
  field.add("Key", Copy(BytesOf(key.PublicKey)));
  if (key.PublicKey.cUnusedBits) field.add("Unused bits", int64_t{key.PublicKey.cUnusedBits});
  return field;
}

}  // namespace certkern::cli
