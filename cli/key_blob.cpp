#include "key_blob.h"

#include <array>

namespace certkern::cli {
namespace {

template <typename Record>
void AppendRecord(SecretBytes& blob, const Record& record) {
  Append(blob, {reinterpret_cast<const BYTE*>(&record), sizeof(record)});
}

SecretBytes BeginBlob(BYTE type, ALG_ID algorithm) {
  SecretBytes blob;
  AppendRecord(blob, BLOBHEADER{type, CUR_BLOB_VERSION, 0, algorithm});
  return blob;
}

constexpr size_t kBlockSize = 16;

}  // namespace

KeyHandle ImportCipherKey(HCRYPTPROV provider, ALG_ID algorithm, std::span<const BYTE> key) {
  SecretBytes blob = BeginBlob(PLAINTEXTKEYBLOB, algorithm);
  AppendRecord(blob, CheckedSize(key.size()));
  Append(blob, key);
  KeyHandle handle;
  if (!CryptImportKey(provider, blob.data(), CheckedSize(blob.size()), 0, 0, handle.out()))
    ThrowLastError("a cipher key");
  const DWORD mode = CRYPT_MODE_CBC;
  if (!CryptSetKeyParam(handle.get(), KP_MODE, reinterpret_cast<const BYTE*>(&mode), 0))
    ThrowLastError("CBC");
  return handle;
}

bool DecryptCbc(HCRYPTKEY key, std::span<const BYTE> iv, SecretBytes& bytes) {
  if (!CryptSetKeyParam(key, KP_IV, iv.data(), 0)) ThrowLastError("CBC");
  DWORD size = CheckedSize(bytes.size());
  if (!CryptDecrypt(key, 0, TRUE, 0, bytes.data(), &size)) return false;
  bytes.resize(size);
  return true;
}

void ImportPrivateKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags,
                      std::span<const BYTE> privateKeyInfo) {
  SecretBytes blob = BeginBlob(PRIVATEKEYBLOB, algorithm);
  AppendRecord(blob, KEY_BLOB_INFO{KEY_BLOB_PRIVATE, 0});
  Append(blob, privateKeyInfo);
  KeyHandle key;
  if (!CryptImportKey(provider, blob.data(), CheckedSize(blob.size()), 0, flags, key.out()))
    ThrowLastError("the private key");
}

// Only a shrouded blob is the same for every kind of key, so the key goes out under one of the moment, and that is taken
// off again.
SecretBytes ExportPrivateKey(const ContainerKey& key) {
  const HCRYPTPROV provider = key.provider.get();
  SecretBytes number(32);
  std::array<BYTE, kBlockSize> iv{};
  if (!CryptGenRandom(provider, CheckedSize(number.size()), number.data())
      || !CryptGenRandom(provider, kBlockSize, iv.data()))
    ThrowLastError("random numbers");
  const KeyHandle wrapping = ImportCipherKey(provider, CALG_AES_256, number);
  if (!CryptSetKeyParam(wrapping.get(), KP_IV, iv.data(), 0)) ThrowLastError("CBC");
  SecretBytes blob;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptExportKey(key.key.get(), wrapping.get(), PKCS8_SHROUDEDKEYBLOB, 0, out, size);
  };
  if (!AskBytes(ask, blob)) ThrowLastError("the private key");
  if (blob.size() < sizeof(BLOBHEADER)) throw Failure("the private key: no blob");
  SecretBytes info(blob.begin() + sizeof(BLOBHEADER), blob.end());
  if (!DecryptCbc(wrapping.get(), iv, info)) ThrowLastError("the private key");
  return info;
}

}  // namespace certkern::cli
