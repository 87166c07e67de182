#include "keykern/key/libcrypto_key.h"

#include "common/der.h"
#include "keykern/crypto_library.h"

#include <algorithm>
#include <new>
#include <utility>

namespace keykern {
namespace {

namespace der = certkern::der;

struct DigestRow {
  ALG_ID hash;
  const char* name;
  const char* oid;
};
constexpr DigestRow kDigests[] = {
    {CALG_SHA_256, "SHA256", "2.16.840.1.101.3.4.2.1"},
    {CALG_SHA_384, "SHA384", "2.16.840.1.101.3.4.2.2"},
    {CALG_SHA_512, "SHA512", "2.16.840.1.101.3.4.2.3"},
    {CALG_SHA1,    "SHA1",   "1.3.14.3.2.26"         },
    {CALG_MD5,     "MD5",    "1.2.840.113549.2.5"    },
};

const DigestRow* FindRow(ALG_ID hash) {
  const auto* row = std::ranges::find(kDigests, hash, &DigestRow::hash);
  return row == std::end(kDigests) ? nullptr : row;
}

// Null where the host lacks it.
EVP_MD* Fetch(const DigestRow& row) {
  const ErrorMark mark;
  OSSL_LIB_CTX* context = LibcryptoContext();
  EVP_MD* digest = context ? EVP_MD_fetch(context, row.name, nullptr) : nullptr;
  if (!digest && mark.failure() == NTE_NO_MEMORY) throw std::bad_alloc();
  return digest;
}

// libcrypto answers the same to a signature that is no DER and to a lack of memory, so the former is found out here.
bool IsPairOfNumbers(std::span<const BYTE> signature) {
  der::Reader in(signature), body;
  std::span<const BYTE> r, s;
  if (!in.take(der::kSequence, body) || !body.takeUnsigned(r) || !body.takeUnsigned(s)) return false;
  return std::ranges::equal(der::Sequence({der::Unsigned(r), der::Unsigned(s)}), signature);
}

template <class T>
T OrNoMemory(T object) {
  if (!object) throw std::bad_alloc();
  return object;
}

using PreparedPtr = std::unique_ptr<SpareContext::Prepared>;

// Ready for this input; null when libcrypto refuses.
PreparedPtr PrepareContext(const PkeyPtr& key, SpareContext& spare, int (*init)(EVP_PKEY_CTX*),
                           const SignatureInput& input, const EVP_MD* digest, Prepare prepare) {
  PreparedPtr prepared = spare.take();
  if (!prepared) {
    prepared = std::make_unique<SpareContext::Prepared>();
    prepared->context = NewContext(key);
    if (!prepared->context || init(prepared->context.get()) != 1) return nullptr;
  }
  EVP_PKEY_CTX* const context = prepared->context.get();
  if (prepared->suits(input, digest)) return prepared;
  if (EVP_PKEY_CTX_set_signature_md(context, digest) != 1 || (prepare && !prepare(context, input, digest))) {
    return nullptr;
  }
  prepared->digest = digest;
  prepared->pss = input.pss;
  prepared->saltLength = input.saltLength;
  return prepared;
}

}  // namespace

PkeyPtr WithSizes(PkeyPtr key) {
  if (EVP_PKEY_get_bits(key.get()) <= 0 || EVP_PKEY_get_size(key.get()) <= 0) throw std::bad_alloc();
  return key;
}

PkeyPtr Share(const PkeyPtr& key) {
  if (!EVP_PKEY_up_ref(key.get())) throw std::bad_alloc();
  return PkeyPtr(key.get());
}

PkeyContextPtr NewContext(const PkeyPtr& key) {
  return PkeyContextPtr(EVP_PKEY_CTX_new_from_pkey(LibcryptoContext(), key.get(), nullptr));
}

BnPtr NewNumber() {
  BnPtr number = OrNoMemory(BnPtr(BN_secure_new()));
  BN_set_flags(number.get(), BN_FLG_CONSTTIME);
  return number;
}

BnPtr ToNumber(std::span<const BYTE> magnitude) {
  BnPtr number = NewNumber();
  if (!BN_bin2bn(magnitude.data(), static_cast<int>(magnitude.size()), number.get())) throw std::bad_alloc();
  return number;
}

SecretBytes NumberOf(const PkeyPtr& key, const char* name) {
  const ErrorMark mark;
  BIGNUM* found = nullptr;
  // every key here has its numbers, so that only memory can be short; an answer without them would be another key
  if (!EVP_PKEY_get_bn_param(key.get(), name, &found)) throw std::bad_alloc();
  const BnPtr number(found);
  SecretBytes bytes(static_cast<size_t>(BN_num_bytes(number.get())));
  BN_bn2bin(number.get(), bytes.data());
  return bytes;
}

KeyPieces::KeyPieces() : builder_(OrNoMemory(OSSL_PARAM_BLD_new())) {}

KeyPieces& KeyPieces::number(const char* name, const BnPtr& value) {
  ok_ = ok_ && OSSL_PARAM_BLD_push_BN(builder_.get(), name, value.get());
  return *this;
}

KeyPieces& KeyPieces::octets(const char* name, std::span<const BYTE> value) {
  ok_ = ok_ && OSSL_PARAM_BLD_push_octet_string(builder_.get(), name, value.data(), value.size());
  return *this;
}

KeyPieces& KeyPieces::text(const char* name, const char* value) {
  ok_ = ok_ && OSSL_PARAM_BLD_push_utf8_string(builder_.get(), name, value, 0);
  return *this;
}

PkeyPtr KeyPieces::build(const char* type, int selection) {
  if (!ok_) return nullptr;
  const std::unique_ptr<OSSL_PARAM, LibcryptoFree<OSSL_PARAM_free>> pieces(
      OSSL_PARAM_BLD_to_param(builder_.get()));
  const PkeyContextPtr context(EVP_PKEY_CTX_new_from_name(LibcryptoContext(), type, nullptr));
  EVP_PKEY* key = nullptr;
  if (!pieces || !context || EVP_PKEY_fromdata_init(context.get()) != 1
      || EVP_PKEY_fromdata(context.get(), &key, selection, pieces.get()) != 1) {
    return nullptr;
  }
  return PkeyPtr(key);
}

const EVP_MD* FindDigest(ALG_ID hash) {
  static constinit MadeOnce<EVP_MD_free> digests[std::size(kDigests)];
  const DigestRow* row = FindRow(hash);
  return row ? digests[row - kDigests].get([row] { return Fetch(*row); }) : nullptr;
}

const char* DigestOid(ALG_ID hash) {
  const DigestRow* row = FindRow(hash);
  return row ? row->oid : nullptr;
}

const EVP_MD* DigestOf(const SignatureInput& input) {
  const EVP_MD* digest = FindDigest(input.hash);
  return digest && input.value.size() == static_cast<size_t>(EVP_MD_get_size(digest)) ? digest : nullptr;
}

DWORD VerifyHash(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input,
                 std::span<const BYTE> standard, Prepare prepare) {
  const EVP_MD* digest = DigestOf(input);
  if (!digest) return NTE_BAD_HASH;
  const ErrorMark mark;
  auto prepared = PrepareContext(key, spare, EVP_PKEY_verify_init, input, digest, prepare);
  if (!prepared) return mark.failure();
  const int status = EVP_PKEY_verify(prepared->context.get(), standard.data(), standard.size(),
                                     input.value.data(), input.value.size());
  spare.giveBack(std::move(prepared));
  if (status == 1) return ERROR_SUCCESS;
  // 0 is a mismatch; what kept libcrypto from finding out is negative
  return status == 0 ? DWORD{NTE_BAD_SIGNATURE} : mark.failure();
}

DWORD VerifyPair(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input,
                 std::span<const BYTE> signature) {
  if (!DigestOf(input)) return NTE_BAD_HASH;
  const SecretBytes standard = Reversed(signature);
  return IsPairOfNumbers(standard) ? VerifyHash(key, spare, input, standard) : DWORD{NTE_BAD_SIGNATURE};
}

DWORD SignHash(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input, SecretBytes& signature,
               Prepare prepare) {
  const EVP_MD* digest = DigestOf(input);
  if (!digest) return NTE_BAD_HASH;
  const ErrorMark mark;
  auto prepared = PrepareContext(key, spare, EVP_PKEY_sign_init, input, digest, prepare);
  if (!prepared) return mark.failure();
  SecretBytes made(static_cast<size_t>(EVP_PKEY_get_size(key.get())));
  size_t size = made.size();
  const int status =
      EVP_PKEY_sign(prepared->context.get(), made.data(), &size, input.value.data(), input.value.size());
  // without memory libcrypto may call a signature made whose size it could not tell
  if (status != 1 || size > made.size()) return mark.failure();
  spare.giveBack(std::move(prepared));
  signature = Reversed(std::span(made).first(size));
  return ERROR_SUCCESS;
}

SecretBytes Reversed(std::span<const BYTE> bytes) { return {bytes.rbegin(), bytes.rend()}; }

}  // namespace keykern
