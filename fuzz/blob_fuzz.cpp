// Any bytes as a key blob, under no wrapping key and under one of each kind: what is read exports in exactly the room that
// was asked for, and that reads as the same key again.
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<BYTE>;

void Require(bool condition) {
  if (!condition) std::abort();
}

// Of exactly this size even when that is 0, so that the sanitizer sees the first byte too many.
struct Exact {
  explicit Exact(size_t count) : data(std::make_unique<BYTE[]>(count)), size(static_cast<DWORD>(count)) {}
  explicit Exact(std::span<const BYTE> bytes) : Exact(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), data.get());
  }
  std::unique_ptr<BYTE[]> data;
  DWORD size;
  std::span<const BYTE> bytes() const { return {data.get(), size}; }
};

class Key {
 public:
  explicit Key(HCRYPTKEY handle = 0) : handle_(handle) {}
  Key(Key&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  Key& operator=(Key&&) = delete;
  ~Key() {
    if (handle_) Require(CryptDestroyKey(handle_));
  }
  HCRYPTKEY get() const { return handle_; }
  explicit operator bool() const { return handle_ != 0; }

 private:
  HCRYPTKEY handle_;
};

// A key set of its own for each input, so that none depends on those before.
class Provider {
 public:
  Provider() {
    Require(CryptAcquireContextA(&handle_, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  }
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;
  ~Provider() { CryptReleaseContext(handle_, 0); }
  HCRYPTPROV get() const { return handle_; }

 private:
  HCRYPTPROV handle_ = 0;
};

Key Import(HCRYPTPROV provider, std::span<const BYTE> bytes, HCRYPTKEY wrapping, DWORD flags) {
  const Exact blob(bytes);
  HCRYPTKEY key = 0;
  SetLastError(ERROR_SUCCESS);
  if (CryptImportKey(provider, blob.data.get(), blob.size, wrapping, flags, &key)) {
    Require(key != 0);
    return Key(key);
  }
  Require(key == 0 && GetLastError() != ERROR_SUCCESS);
  return Key();
}

Bytes FromHex(std::string_view digits) {
  Bytes bytes(digits.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, bytes[i], 16);
  }
  return bytes;
}

// --- wrapping keys, the same in every run, but for RSA's ---

// PrivateKeyInfo of either kind, with the usual parameters
constexpr char kGostPrivate[] =
    "0702000000000000434B505600010000303E020100301706082A85030701010101300B06092A85030701020101010420"
    "283BEC9198CE191DEE7E39491F96601BC1729AD39D35ED10BEB99B78DE9A923A";
constexpr char kEcPrivate[] =
    "0702000000000000434B5056000100003041020100301306072A8648CE3D020106082A8648CE3D030107042730250201"
    "0104200102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F20";

struct SessionRow {
  ALG_ID algorithm;
  DWORD bytes;
  ALG_ID wrap;  // of the key itself; 0: it encrypts
  DWORD mode;   // 0: the usual
};
constexpr SessionRow kSessions[] = {
    {CALG_G28147,        32, 0,                       0                        },
    {CALG_G28147,        32, CALG_EXPORT_SIMPLE,      0                        },
    {CALG_G28147,        32, CALG_EXPORT_DIVERSIFIED, 0                        },
    {CALG_G28147,        32, CALG_EXPORT_KDF,         0                        },
    {CALG_GR3412_2015_M, 32, 0,                       CRYPT_MODE_CTR_ACPKM_OMAC},
    {CALG_GR3412_2015_K, 32, 0,                       0                        },
    {CALG_AES_256,       32, 0,                       0                        },
    {CALG_3DES,          24, 0,                       0                        },
    {CALG_RC4,           16, 0,                       0                        },
    {CALG_HMAC_KEY,      16, 0,                       0                        },
};

template <class Record>
void AppendRecord(Bytes& out, const Record& record) {
  const auto* bytes = reinterpret_cast<const BYTE*>(&record);
  out.insert(out.end(), bytes, bytes + sizeof(record));
}

Key MakeSession(HCRYPTPROV provider, const SessionRow& row) {
  Bytes blob;
  AppendRecord(blob, BLOBHEADER{PLAINTEXTKEYBLOB, CUR_BLOB_VERSION, 0, row.algorithm});
  AppendRecord(blob, row.bytes);
  blob.resize(blob.size() + row.bytes, 0x5A);
  Key key = Import(provider, blob, 0, CRYPT_EXPORTABLE);
  Require(static_cast<bool>(key));
  const auto set = [&](DWORD param, const DWORD& value) {
    Require(!value || CryptSetKeyParam(key.get(), param, reinterpret_cast<const BYTE*>(&value), 0));
  };
  set(KP_ALGID, row.wrap);
  set(KP_MODE, row.mode);
  return key;
}

// What an agreement of the key with another of its curve gives.
Key Agree(HCRYPTPROV provider, const Key& own, ALG_ID family, ALG_ID method) {
  HCRYPTKEY generated = 0;
  Require(CryptGenKey(provider, family, CRYPT_EXPORTABLE, &generated));
  const Key peer(generated);
  BYTE blob[512];
  DWORD size = sizeof blob;
  Require(CryptExportKey(peer.get(), 0, PUBLICKEYBLOB, 0, blob, &size));
  Key agreed = Import(provider, {blob, size}, own.get(), 0);
  Require(agreed && CryptSetKeyParam(agreed.get(), KP_ALGID, reinterpret_cast<const BYTE*>(&method), 0));
  return agreed;
}

const std::vector<Key>& WrappingKeys() {
  static const Provider* const provider = new Provider;
  static const std::vector<Key>* const keys = [] {
    auto* all = new std::vector<Key>;
    const HCRYPTPROV prov = provider->get();
    all->emplace_back();  // none
    for (const SessionRow& row : kSessions) all->push_back(MakeSession(prov, row));
    const size_t gost = all->size();
    all->push_back(Import(prov, FromHex(kGostPrivate), 0, CRYPT_EXPORTABLE));
    all->push_back(Import(prov, FromHex(kEcPrivate), 0, CRYPT_EXPORTABLE | CRYPT_FORCE_KEY_PROTECTION_HIGH));
    HCRYPTKEY rsa = 0;
    Require(CryptGenKey(prov, CALG_RSA_KEYX, 1024u << 16, &rsa));
    all->push_back(Key(rsa));
    all->push_back(Agree(prov, (*all)[gost], CALG_DH_GR3410_12_256_EPHEM, CALG_EXPORT_DIVERSIFIED));
    all->push_back(Agree(prov, (*all)[gost], CALG_DH_GR3410_12_256_EPHEM, CALG_EXPORT_KEXP15_K));
    all->push_back(Agree(prov, (*all)[gost + 1], CALG_ECDH_EPHEM, CALG_AES_128));
    return all;
  }();
  return *keys;
}

// --- what an imported key must stand ---

constexpr DWORD kParams[] = {KP_IV,          KP_SALT,      KP_PADDING,   KP_MODE,      KP_PERMISSIONS,
                             KP_ALGID,       KP_BLOCKLEN,  KP_KEYLEN,    KP_MODE_WORD, KP_EFFECTIVE_KEYLEN,
                             KP_CERTIFICATE, KP_CIPHEROID, KP_CURVEOID,  KP_FP,        KP_AUTH_TAG,
                             KP_KEY_LABEL,   KP_KDF_HASH,  KP_OAEP_HASH, KP_OAEP_LABEL};

void AskParams(const Key& key) {
  for (const DWORD param : kParams) {
    DWORD size = 0;
    if (!CryptGetKeyParam(key.get(), param, nullptr, &size, 0)) continue;
    const Exact value(size);
    Require(CryptGetKeyParam(key.get(), param, value.data.get(), &size, 0) && size == value.size);
    if (size == 0) continue;
    const Exact small(size - 1);
    Require(!CryptGetKeyParam(key.get(), param, small.data.get(), &--size, 0) && size == value.size);
  }
}

std::unique_ptr<Exact> Export(const Key& key, HCRYPTKEY wrapping, DWORD type) {
  DWORD size = 0;
  SetLastError(ERROR_SUCCESS);
  if (!CryptExportKey(key.get(), wrapping, type, 0, nullptr, &size)) {
    Require(GetLastError() != ERROR_SUCCESS);
    return nullptr;
  }
  auto blob = std::make_unique<Exact>(size);
  Require(CryptExportKey(key.get(), wrapping, type, 0, blob->data.get(), &size) && size == blob->size);
  return blob;
}

void ExportAgain(HCRYPTPROV provider, const Key& key) {
  for (const DWORD type : {PUBLICKEYBLOB, PRIVATEKEYBLOB, PLAINTEXTKEYBLOB, OPAQUEKEYBLOB}) {
    const std::unique_ptr<Exact> blob = Export(key, 0, type);
    if (!blob) continue;
    const Key twin = Import(provider, blob->bytes(), 0, CRYPT_EXPORTABLE | CRYPT_FORCE_KEY_PROTECTION_HIGH);
    Require(static_cast<bool>(twin));
    const std::unique_ptr<Exact> again = Export(twin, 0, type);
    Require(again && std::ranges::equal(blob->bytes(), again->bytes()));
  }
}

// Under a key of its own kind of wrap a session key comes back as it was.
void WrapAndUnwrap(HCRYPTPROV provider, const Key& key) {
  const std::unique_ptr<Exact> plain = Export(key, 0, PLAINTEXTKEYBLOB);
  for (const Key& wrapping : WrappingKeys()) {
    const std::unique_ptr<Exact> blob = plain && wrapping ? Export(key, wrapping.get(), SIMPLEBLOB) : nullptr;
    if (!blob) continue;
    const Key twin = Import(provider, blob->bytes(), wrapping.get(), CRYPT_EXPORTABLE);
    if (!twin) continue;  // an agreed key wraps for the other side, RSA's padding tells one size
    const std::unique_ptr<Exact> again = Export(twin, 0, PLAINTEXTKEYBLOB);
    Require(again && std::ranges::equal(plain->bytes().first(8), again->bytes().first(8)));
  }
}

void EncryptAndDecrypt(const Key& key) {
  HCRYPTKEY handle = 0;
  if (!CryptDuplicateKey(key.get(), nullptr, 0, &handle)) return;
  const Key twin(handle);
  constexpr DWORD kSize = 21;
  DWORD size = kSize;
  if (!CryptEncrypt(twin.get(), 0, TRUE, 0, nullptr, &size, 0)) return;
  const Exact piece(size);
  std::fill_n(piece.data.get(), std::min(kSize, size), BYTE{7});
  size = kSize;
  if (size > piece.size || !CryptEncrypt(twin.get(), 0, TRUE, 0, piece.data.get(), &size, piece.size)) return;
  if (!CryptDecrypt(twin.get(), 0, TRUE, 0, piece.data.get(), &size)) return;
  Require(size >= kSize && piece.data[kSize - 1] == 7);
}

}  // namespace

// The first byte picks the wrapping key, the second the flags.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::vector<Key>& wrappings = WrappingKeys();
  const Key& wrapping = wrappings[data[0] % wrappings.size()];
  DWORD flags = data[1] & 1 ? 0 : CRYPT_EXPORTABLE;
  if (data[1] & 2) flags |= CRYPT_OAEP;
  if (data[1] & 4) flags |= CRYPT_FORCE_KEY_PROTECTION_HIGH;
  const Provider provider;
  const Key key = Import(provider.get(), {data + 2, size - 2}, wrapping.get(), flags);
  if (!key) return 0;
  AskParams(key);
  ExportAgain(provider.get(), key);
  WrapAndUnwrap(provider.get(), key);
  EncryptAndDecrypt(key);
  return 0;
}
