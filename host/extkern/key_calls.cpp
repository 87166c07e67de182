#include "extkern/key_calls.h"

#include "platform/limits.h"

namespace extkern {
namespace {

// Names and identifiers: nothing longer is asked for.
constexpr DWORD kLongestText = 256;
// Room for every blob but unusually long keys.
constexpr DWORD kUsualBlob = 4096;

DWORD Code(BOOL done) {
  if (done) return ERROR_SUCCESS;
  const DWORD code = GetLastError();
  return code ? code : DWORD{NTE_FAIL};  // a failure must not pass for success, whoever forgot its code
}

}  // namespace

DWORD TakeDefaultProvider(ALG_ID algorithm, ProviderHandle& provider) {
  const HCRYPTPROV borrowed = SVAPI_I_CryptGetDefaultCryptProv(algorithm);
  if (const DWORD code = Code(borrowed && CryptContextAddRef(borrowed, nullptr, 0))) return code;
  provider.reset(borrowed);
  return ERROR_SUCCESS;
}

DWORD FillRandom(HCRYPTPROV provider, std::span<BYTE> bytes) {
  return Code(CryptGenRandom(provider, static_cast<DWORD>(bytes.size()), bytes.data()));
}

DWORD GenerateKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, KeyHandle& key) {
  return Code(CryptGenKey(provider, algorithm, flags, key.out()));
}

DWORD TakeOwnKey(HCRYPTPROV provider, DWORD keySpec, KeyHandle& key) {
  return Code(CryptGetUserKey(provider, keySpec ? keySpec : AT_KEYEXCHANGE, key.out()));
}

DWORD ImportBlob(HCRYPTPROV provider, std::span<const BYTE> blob, HCRYPTKEY wrapping, DWORD flags,
                 KeyHandle& key) {
  if (blob.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  const auto size = static_cast<DWORD>(blob.size());
  return Code(CryptImportKey(provider, blob.data(), size, wrapping, flags, key.out()));
}

// Not asked twice: a wrapping key encrypts anew each time, and with another initial value at that.
DWORD ExportBlob(HCRYPTKEY key, HCRYPTKEY wrapping, DWORD type, DWORD flags, Bytes& blob) {
  DWORD size = kUsualBlob;
  blob.resize(size);
  DWORD code = Code(CryptExportKey(key, wrapping, type, flags, blob.data(), &size));
  if (code == ERROR_MORE_DATA && size <= certkern::kMaxKeyBlob) {
    blob.resize(size);
    code = Code(CryptExportKey(key, wrapping, type, flags, blob.data(), &size));
  }
  if (code) return code;
  if (size > blob.size()) return NTE_BAD_DATA;
  blob.resize(size);
  return ERROR_SUCCESS;
}

DWORD DecryptWhole(HCRYPTKEY key, DWORD flags, Bytes& data) {
  auto size = static_cast<DWORD>(data.size());
  if (const DWORD code = Code(CryptDecrypt(key, 0, TRUE, flags, data.data(), &size))) return code;
  data.resize(size);
  return ERROR_SUCCESS;
}

DWORD GetNumber(HCRYPTKEY key, DWORD param, DWORD& number) {
  DWORD size = sizeof(number);
  return Code(CryptGetKeyParam(key, param, reinterpret_cast<BYTE*>(&number), &size, 0));
}

DWORD GetText(HCRYPTKEY key, DWORD param, std::string& text) {
  char buffer[kLongestText] = {};
  DWORD size = sizeof(buffer) - 1;
  const DWORD code = Code(CryptGetKeyParam(key, param, reinterpret_cast<BYTE*>(buffer), &size, 0));
  if (!code) text = buffer;
  return code;
}

DWORD SetNumber(HCRYPTKEY key, DWORD param, DWORD number) {
  return Code(CryptSetKeyParam(key, param, reinterpret_cast<const BYTE*>(&number), 0));
}

DWORD SetText(HCRYPTKEY key, DWORD param, const std::string& text) {
  return Code(CryptSetKeyParam(key, param, reinterpret_cast<const BYTE*>(text.c_str()), 0));
}

DWORD SetBlob(HCRYPTKEY key, DWORD param, std::span<const BYTE> bytes) {
  const CRYPT_DATA_BLOB blob = {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
  return Code(CryptSetKeyParam(key, param, reinterpret_cast<const BYTE*>(&blob), 0));
}

DWORD SetIv(HCRYPTKEY key, std::span<const BYTE> iv) {
  return Code(CryptSetKeyParam(key, KP_IV, iv.data(), 0));
}

}  // namespace extkern
