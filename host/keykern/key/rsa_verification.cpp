#include "keykern/key/rsa_verification.h"

#include "common/der.h"

#include <openssl/rsa.h>

#include <algorithm>
#include <bit>
#include <new>

namespace keykern {
namespace {

namespace der = certkern::der;

constexpr BYTE kPssTrailer = 0xBC;
constexpr size_t kPssZeros = 8;  // in front of what is hashed

// signature^e mod n. The signature is as long as n, and smaller.
DWORD Open(const PkeyPtr& key, std::span<const BYTE> signature, SecretBytes& opened) {
  const ErrorMark mark;
  const PkeyContextPtr context = NewContext(key);
  if (!context || EVP_PKEY_verify_recover_init(context.get()) != 1
      || EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) != 1) {
    return mark.failure();
  }
  size_t size = signature.size();
  opened.resize(size);
  const int status =
      EVP_PKEY_verify_recover(context.get(), opened.data(), &size, signature.data(), signature.size());
  return status == 1 && size == opened.size() ? DWORD{ERROR_SUCCESS} : mark.failure();
}

// EMSA-PKCS1-v1_5 of RFC 8017, 9.2. The whole encoding is compared, so that nothing can hide in it.
bool IsPkcs1Of(std::span<const BYTE> encoded, const SignatureInput& input) {
  const SecretBytes info = der::Sequence(
      {der::AlgorithmIdentifier(DigestOid(input.hash), der::Null()), der::OctetString(input.value)});
  constexpr size_t kAround = 3 + 8;  // 00 01, eight octets of FF at least, 00
  if (encoded.size() < info.size() + kAround) return false;
  SecretBytes wanted(encoded.size() - info.size(), 0xFF);
  wanted.front() = 0;
  wanted[1] = 1;
  wanted.back() = 0;
  certkern::Append(wanted, info);
  return std::ranges::equal(wanted, encoded);
}

// --- EMSA-PSS ---

SecretBytes HashOf(const EVP_MD* digest, std::span<const BYTE> bytes) {
  SecretBytes value(static_cast<size_t>(EVP_MD_get_size(digest)));
  if (EVP_Digest(bytes.data(), bytes.size(), value.data(), nullptr, digest, nullptr) != 1)
    throw std::bad_alloc();
  return value;
}

// MGF1 of RFC 8017, B.2.1
void Unmask(std::span<BYTE> masked, const EVP_MD* digest, std::span<const BYTE> seed) {
  uint32_t counter = 0;
  for (std::span<BYTE> rest = masked; !rest.empty(); ++counter) {
    SecretBytes hashed = certkern::ToSecret(seed);
    for (int shift = 24; shift >= 0; shift -= 8) hashed.push_back(static_cast<BYTE>(counter >> shift));
    const SecretBytes mask = HashOf(digest, hashed);
    const size_t count = std::min(mask.size(), rest.size());
    for (size_t i = 0; i < count; ++i) rest[i] ^= mask[i];
    rest = rest.subspan(count);
  }
}

// RFC 8017, 9.1.2. opened: as long as the modulus; bits: of the modulus.
bool IsPssOf(std::span<BYTE> opened, size_t bits, const SignatureInput& input, const EVP_MD* digest) {
  std::span<BYTE> encoded = opened;
  if ((bits - 1) % 8 == 0) {  // the encoding has one octet less than the modulus
    if (encoded[0] != 0) return false;
    encoded = encoded.subspan(1);
  }
  const size_t hashSize = input.value.size();
  if (encoded.size() < hashSize + input.saltLength + 2 || encoded.back() != kPssTrailer) return false;
  const std::span<BYTE> block = encoded.first(encoded.size() - hashSize - 1);
  const std::span<const BYTE> hash = encoded.subspan(block.size(), hashSize);
  const BYTE unused = static_cast<BYTE>(0xFF00u >> (8 * encoded.size() - (bits - 1)));  // bits at the top
  if (block[0] & unused) return false;
  Unmask(block, digest, hash);
  block[0] &= static_cast<BYTE>(~unused);
  const size_t padding = block.size() - input.saltLength - 1;
  if (block[padding] != 1
      || !std::ranges::all_of(block.first(padding), [](BYTE octet) { return octet == 0; }))
    return false;
  SecretBytes hashed(kPssZeros);
  certkern::Append(hashed, input.value);
  certkern::Append(hashed, block.last(input.saltLength));
  return std::ranges::equal(HashOf(digest, hashed), hash);
}

size_t BitsOf(std::span<const BYTE> modulus) {
  return 8 * (modulus.size() - 1) + static_cast<size_t>(std::bit_width(modulus[0]));
}

}  // namespace

DWORD VerifyRsa(const PkeyPtr& key, std::span<const BYTE> modulus, SpareContext& spare, Prepare prepare,
                const SignatureInput& input, std::span<const BYTE> signature) {
  const EVP_MD* digest = DigestOf(input);
  if (!digest) return NTE_BAD_HASH;
  const SecretBytes standard = Reversed(signature);
  if (standard.size() != modulus.size() || !std::ranges::lexicographical_compare(standard, modulus))
    return NTE_BAD_SIGNATURE;
  if (VerifyHash(key, spare, input, standard, prepare) == ERROR_SUCCESS) return ERROR_SUCCESS;
  SecretBytes opened;
  if (const DWORD code = Open(key, standard, opened)) return code;
  const bool fits = input.pss ? IsPssOf(opened, BitsOf(modulus), input, digest) : IsPkcs1Of(opened, input);
  // the numbers agree, so something else stopped libcrypto, and may not do so again
  return fits ? DWORD{NTE_FAIL} : DWORD{NTE_BAD_SIGNATURE};
}

}  // namespace keykern
