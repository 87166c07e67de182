#include "keykern/rsa_blob.h"

#include "common/der.h"
#include "keykern/blob_reader.h"
#include "platform/limits.h"

#include <certkern/keykern.h>

#include <array>
#include <bit>

namespace keykern {
namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the DER tools

constexpr std::string_view kRsa = "1.2.840.113549.1.1.1";

SecretBytes RsaAlgorithm() { return der::AlgorithmIdentifier(kRsa, der::Null()); }

DWORD BitsOf(std::span<const BYTE> magnitude) {
  if (magnitude.empty()) return 0;
  return static_cast<DWORD>((magnitude.size() - 1) * 8 + std::bit_width(magnitude[0]));
}

bool ExponentOf(std::span<const BYTE> magnitude, DWORD& exponent) {
  if (magnitude.size() > sizeof(exponent)) return false;
  exponent = 0;
  for (const BYTE octet : magnitude) exponent = exponent << 8 | octet;
  return true;
}

SecretBytes ExponentBytes(DWORD exponent) {
  return {static_cast<BYTE>(exponent >> 24), static_cast<BYTE>(exponent >> 16),
          static_cast<BYTE>(exponent >> 8), static_cast<BYTE>(exponent)};
}

bool TakeHead(BlobReader& in, DWORD magic, RSAPUBKEY& head) {
  return in.take(head) && head.magic == magic && head.bitlen && head.bitlen <= kMaxRsaBits;
}

}  // namespace

bool RsaPublicToBlob(std::span<const BYTE> publicKeyInfo, SecretBytes& body) {
  der::Reader in(publicKeyInfo);
  der::Reader info;
  der::Algorithm algorithm;
  std::span<const BYTE> bits;
  if (!in.take(der::kSequence, info) || !der::TakeAlgorithm(info, algorithm) || !info.takeBits(bits))
    return false;
  if (algorithm.oid != kRsa) return false;
  der::Reader key(bits);
  der::Reader numbers;
  std::span<const BYTE> modulus;
  std::span<const BYTE> exponent;
  if (!key.take(der::kSequence, numbers) || !numbers.takeUnsigned(modulus) || !numbers.takeUnsigned(exponent))
    return false;
  RSAPUBKEY head{RSA1, BitsOf(modulus), 0};
  if (!ExponentOf(exponent, head.pubexp)) return false;
  AppendRecord(body, head);
  return AppendNumber(body, modulus, (head.bitlen + 7) / 8);
}

bool RsaPublicFromBlob(std::span<const BYTE> body, SecretBytes& publicKeyInfo) {
  BlobReader in(body);
  RSAPUBKEY head;
  SecretBytes modulus;
  if (!TakeHead(in, RSA1, head) || !in.takeNumber((head.bitlen + 7) / 8, modulus) || !in.rest().empty())
    return false;
  const SecretBytes key = der::Sequence({der::Unsigned(modulus), der::Unsigned(ExponentBytes(head.pubexp))});
  publicKeyInfo = der::Sequence({RsaAlgorithm(), der::BitString(key)});
  return true;
}

// RSAPrivateKey ::= SEQUENCE { version, n, e, d, p, q, dP, dQ, qInv }; the blob has n, p, q, dP, dQ, qInv, d.
bool RsaPrivateToBlob(std::span<const BYTE> privateKeyInfo, SecretBytes& body) {
  der::Reader in(privateKeyInfo);
  der::Reader info;
  der::Algorithm algorithm;
  uint32_t version;
  std::span<const BYTE> octets;
  if (!in.take(der::kSequence, info) || !info.takeSmall(version) || !der::TakeAlgorithm(info, algorithm)
      || !info.take(der::kOctetString, octets) || algorithm.oid != kRsa)
    return false;
  der::Reader key(octets);
  der::Reader numbers;
  if (!key.take(der::kSequence, numbers) || !numbers.takeSmall(version) || version != 0) return false;
  std::array<std::span<const BYTE>, 8> number;
  for (std::span<const BYTE>& each : number) {
    if (!numbers.takeUnsigned(each)) return false;
  }
  const auto& [n, e, d, p, q, dP, dQ, qInv] = number;
  RSAPUBKEY head{RSA2, BitsOf(n), 0};
  if (!ExponentOf(e, head.pubexp)) return false;
  const size_t whole = (head.bitlen + 7) / 8;
  const size_t half = (head.bitlen + 15) / 16;
  AppendRecord(body, head);
  return AppendNumber(body, n, whole) && AppendNumber(body, p, half) && AppendNumber(body, q, half)
      && AppendNumber(body, dP, half) && AppendNumber(body, dQ, half) && AppendNumber(body, qInv, half)
      && AppendNumber(body, d, whole);
}

bool RsaPrivateFromBlob(std::span<const BYTE> body, SecretBytes& privateKeyInfo) {
  BlobReader in(body);
  RSAPUBKEY head;
  if (!TakeHead(in, RSA2, head)) return false;
  const size_t whole = (head.bitlen + 7) / 8;
  const size_t half = (head.bitlen + 15) / 16;
  SecretBytes n, p, q, dP, dQ, qInv, d;
  if (!in.takeNumber(whole, n) || !in.takeNumber(half, p) || !in.takeNumber(half, q)
      || !in.takeNumber(half, dP) || !in.takeNumber(half, dQ) || !in.takeNumber(half, qInv)
      || !in.takeNumber(whole, d) || !in.rest().empty())
    return false;
  const SecretBytes key = der::Sequence(
      {der::Small(0), der::Unsigned(n), der::Unsigned(ExponentBytes(head.pubexp)), der::Unsigned(d),
       der::Unsigned(p), der::Unsigned(q), der::Unsigned(dP), der::Unsigned(dQ), der::Unsigned(qInv)});
  privateKeyInfo = der::Sequence({der::Small(0), RsaAlgorithm(), der::OctetString(key)});
  return true;
}

}  // namespace keykern
