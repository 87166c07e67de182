#include "keykern/key/libcrypto_key.h"

#include "keykern/crypto_library.h"

#include <array>
#include <new>
#include <utility>

namespace keykern {
namespace {

struct DigestRow {
  ALG_ID hash;
  const char* name;
};
constexpr DigestRow kDigests[] = {
    {CALG_SHA_256, "SHA256"},
    {CALG_SHA_384, "SHA384"},
    {CALG_SHA_512, "SHA512"},
    {CALG_SHA1,    "SHA1"  },
    {CALG_MD5,     "MD5"   },
};
using Digests = std::array<const EVP_MD*, std::size(kDigests)>;

// A host may lack one of them; its row is null then.
Digests FetchDigests() {
  const ErrorMark mark;
  Digests digests{};
  OSSL_LIB_CTX* context = LibcryptoContext();
  for (size_t i = 0; context && i < digests.size(); ++i) {
    digests[i] = EVP_MD_fetch(context, kDigests[i].name, nullptr);
  }
  return digests;
}

// The digest of an input whose value has its length; null otherwise.
const EVP_MD* DigestOf(const SignatureInput& input) {
  const EVP_MD* digest = FindDigest(input.hash);
  return digest && input.value.size() == static_cast<size_t>(EVP_MD_get_size(digest)) ? digest : nullptr;
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
  static const Digests digests = FetchDigests();
  for (size_t i = 0; i < digests.size(); ++i) {
    if (kDigests[i].hash == hash) return digests[i];
  }
  return nullptr;
}

DWORD VerifyHash(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input,
                 std::span<const BYTE> signature, Prepare prepare) {
  const EVP_MD* digest = DigestOf(input);
  if (!digest) return NTE_BAD_HASH;
  const ErrorMark mark;
  auto prepared = PrepareContext(key, spare, EVP_PKEY_verify_init, input, digest, prepare);
  if (!prepared) return NTE_BAD_SIGNATURE;
  const SecretBytes standard = Reversed(signature);
  const bool valid = EVP_PKEY_verify(prepared->context.get(), standard.data(), standard.size(),
                                     input.value.data(), input.value.size())
      == 1;
  spare.giveBack(std::move(prepared));
  return valid ? ERROR_SUCCESS : NTE_BAD_SIGNATURE;
}

DWORD SignHash(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input, SecretBytes& signature,
               Prepare prepare) {
  const EVP_MD* digest = DigestOf(input);
  if (!digest) return NTE_BAD_HASH;
  const ErrorMark mark;
  auto prepared = PrepareContext(key, spare, EVP_PKEY_sign_init, input, digest, prepare);
  if (!prepared) return NTE_FAIL;
  SecretBytes made(static_cast<size_t>(EVP_PKEY_get_size(key.get())));
  size_t size = made.size();
  const int status =
      EVP_PKEY_sign(prepared->context.get(), made.data(), &size, input.value.data(), input.value.size());
  // without memory libcrypto may call a signature made whose size it could not tell
  if (status != 1 || size > made.size()) return NTE_FAIL;
  spare.giveBack(std::move(prepared));
  signature = Reversed(std::span(made).first(size));
  return ERROR_SUCCESS;
}

SecretBytes Reversed(std::span<const BYTE> bytes) { return {bytes.rbegin(), bytes.rend()}; }

}  // namespace keykern
