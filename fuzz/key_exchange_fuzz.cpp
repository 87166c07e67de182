// Any bytes as what a message says of a recipient, to keys that never change: the answer is a content key that decrypts, or a
// code and no key.
#include <certkern/keykern.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/extkern_msg.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// PrivateKeyInfo, made by openssl for this purpose.
struct Recipient {
  std::string_view key;
  DWORD keySpec;
};
constexpr Recipient kRecipients[] = {
    {"30820277020100300d06092a864886f70d0101010500048202613082025d02010002818100d133abf36af5b2b03cd721"
     "655e145312588ac665de8612327d59978c2317a90ca6e700152e9ca0d310bdb1e3a2ff2611f20b57675bce5bcc192c49"
     "dbf855b837819a11f3173c5202fdad589e2f4a2e6149f3a8514978b71acaadac18b18f0269c9c6f68e3312d5211bd4d1"
     "34139bf2fb21433a8e1f501793d30e1b43675d3c610203010001028180288a36dc28f20bfa930fad6d135a24eefd3187"
     "58de5264dc5be62cb3ff68ea5d854a667db456ade3b8eec9b62f33fa90a7b302f1089d68b4987c38a3e3efd88eaf568b"
     "f6427cc5f5595533aeb7bc9f679cdb08113c2c8db96885dcd85ea598db0c3e77c41b9996d3043587a53e2ca5f38414f7"
     "b1c6648765d7b6236d4d79b031024100eeac7c1834c03e302fe9db517f8f263ac12ab154ee1b32561484eef8de66ea4e"
     "0621dc198d5e2e68ce248660171fc4df5c3d34891673d51d36f954129cd48d13024100e0637afd2f059f8327db413b5c"
     "db38716f2c0a54e2391dc3b2de358a58e1cb7f3d48f171989c02a036f0a34dc8099a3ada0ee5b660dca06e14b433683f"
     "10833b02403f10ba9596d2b95bf83d1de392061c3ee82dc4bfc14ed4652474dfc448d7fecf71155f582d1f96b9c0c6ab"
     "ef160d21f33727410b7c304d3eb3f8fbbb134fa29b024100afcec1ca25516e8d4069154f018df1474f275e60eb6e7cd7"
     "9c096641a32a265ae71583b6d12f4b0f647c5e36cf085702cd5ee6b46267fa7ac555fb012e882d89024100847941f922"
     "82b1ce992efecb6078e5c9627b6d62f0ad213c6921a6433f56121d512665b47adbd03bacbc8bada3becd3217f90ef029"
     "b57cc35d2fde2213bbfc4b",                                                               AT_KEYEXCHANGE},
    {"308187020100301306072a8648ce3d020106082a8648ce3d030107046d306b02010104207e577202a49b5da35e69c382"
     "44cdc2f46c88a175af332079516f4268f5b6b8b6a144034200046f924779a470b29cb64525a95c9f744f708eb7ead4b5"
     "0d8d32a838227204d5de306168c37c153d5301528faaa18852643532f9c6eb7ad1dd748b3482fe9af1fc", AT_KEYEXCHANGE},
    {"3043020100301c06062a8503020213301206072a85030202240006072a850302021e0104202625a7f6afd5b7ef6da1a3"
     "0a62678274d2cbf85a117e57a3bbba85935d561eee",                                           AT_SIGNATURE  },
    {"3046020100301f06082a85030701010101301306072a85030202230106082a8503070101020204209ea4f9bb8c2d5d8b"
     "c42f8703a60015cd082b58f9292e9c28ede2b3fc78ba2a80",                                     AT_KEYEXCHANGE},
    {"3068020100302106082a85030701010102301506092a850307010201020106082a850307010102030440c2ae1073d9b9"
     "410804e2793a5855c89b5d5177473302f6959c25b2f9e12674ebaaca158c5311c554ec3e51f22802704343c292c4b559"
     "1432fe9dcf11e0681a54",                                                                 AT_KEYEXCHANGE},
};

constexpr const char* kContents[] = {
    "1.2.643.2.2.21",      "1.2.643.7.1.1.5.1.1",    "1.2.643.7.1.1.5.1.2",     "1.2.643.7.1.1.5.2.1",
    "1.2.643.7.1.1.5.2.2", "2.16.840.1.101.3.4.1.2", "2.16.840.1.101.3.4.1.22", "2.16.840.1.101.3.4.1.42",
    "1.2.840.113549.3.7",  "1.2.840.113549.3.2",     "1.2.840.113549.3.4",      "1.2.3"};
constexpr const char* kSchemes[] = {"1.2.643.2.2.19",       "1.2.643.7.1.1.1.1",     "1.2.643.7.1.1.1.2",
                                    "1.2.643.7.1.1.7.1.1",  "1.2.643.7.1.1.7.2.1",   "1.2.840.113549.1.1.1",
                                    "1.2.840.113549.1.1.7", "1.3.133.16.840.63.0.2", "1.3.132.1.11.1",
                                    "1.3.132.1.11.2",       "1.3.132.1.11.3",        "1.2.643.2.2.96"};
constexpr const char* kOriginators[] = {"1.2.643.2.2.19", "1.2.643.7.1.1.1.1", "1.2.643.7.1.1.1.2",
                                        "1.2.840.10045.2.1", "1.2.840.113549.1.1.1"};

HCRYPTPROV Open(std::string_view hex) {
  const BLOBHEADER header = {PRIVATEKEYBLOB, CUR_BLOB_VERSION, 0, 0};
  const KEY_BLOB_INFO info = {KEY_BLOB_PRIVATE, 0};
  std::vector<BYTE> blob(sizeof(header) + sizeof(info));
  std::memcpy(blob.data(), &header, sizeof(header));
  std::memcpy(blob.data() + sizeof(header), &info, sizeof(info));
  for (size_t i = 0; i < hex.size(); i += 2)
    blob.push_back(static_cast<BYTE>(std::strtoul(std::string(hex.substr(i, 2)).c_str(), nullptr, 16)));
  HCRYPTPROV provider = 0;
  HCRYPTKEY key = 0;
  Require(CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  Require(CryptImportKey(provider, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key));
  CryptDestroyKey(key);
  return provider;
}

HCRYPTPROV ProviderOf(const Recipient& recipient) {
  static HCRYPTPROV providers[std::size(kRecipients)];
  HCRYPTPROV& provider = providers[&recipient - kRecipients];
  if (!provider) provider = Open(recipient.key);
  return provider;
}

// Pieces of the input, each behind its length on two bytes; whatever is left when that does not fit. Each is copied, so
// that the sanitizer sees the first byte too many.
class Pieces {
 public:
  explicit Pieces(std::span<const uint8_t> input) : rest_(input) {}
  uint8_t byte() {
    if (rest_.empty()) return 0;
    const uint8_t value = rest_[0];
    rest_ = rest_.subspan(1);
    return value;
  }
  std::vector<BYTE> piece() {
    size_t size = size_t{byte()} << 8;
    size |= byte();
    if (size > rest_.size()) size = rest_.size();
    const std::vector<BYTE> bytes(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(size));
    rest_ = rest_.subspan(size);
    return bytes;
  }

 private:
  std::span<const uint8_t> rest_;
};

template <size_t kCount>
LPSTR Choose(const char* const (&rows)[kCount], uint8_t index) {
  return const_cast<LPSTR>(rows[index % kCount]);
}
CRYPT_DATA_BLOB Blob(std::vector<BYTE>& bytes) { return {static_cast<DWORD>(bytes.size()), bytes.data()}; }

void Check(BOOL done, const HCRYPTKEY& key) {
  Require(done ? key != 0 : key == 0 && GetLastError() != 0);
  if (!done) return;
  BYTE data[32] = {};
  DWORD size = sizeof(data);
  Require(CryptDecrypt(key, 0, FALSE, 0, data, &size));
  CryptDestroyKey(key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Pieces input({data, size});
  const uint8_t function = input.byte();
  const Recipient& recipient = kRecipients[input.byte() % std::size(kRecipients)];
  const LPSTR contentOid = Choose(kContents, input.byte());
  const LPSTR schemeOid = Choose(kSchemes, input.byte());
  const LPSTR originatorOid = Choose(kOriginators, input.byte());
  const DWORD originatorChoice = 1 + input.byte() % 2;
  std::vector<BYTE> contentParameters = input.piece(), schemeParameters = input.piece(), ukm = input.piece(),
                    originatorParameters = input.piece(), originatorKey = input.piece(),
                    encryptedKey = input.piece();
  CRYPT_ALGORITHM_IDENTIFIER content = {contentOid, Blob(contentParameters)};
  const CRYPT_ALGORITHM_IDENTIFIER scheme = {schemeOid, Blob(schemeParameters)};
  const CRYPT_BIT_BLOB key = {static_cast<DWORD>(originatorKey.size()), originatorKey.data(), 0};
  HCRYPTKEY contentKey = 0;
  SetLastError(0);
  if (function % 6 < 3) {
    constexpr XnImportKeyTrans* kFunctions[] = {XnMsgDllImportKeyTrans, XnMsgDllImportKeyTrans_GR3412,
                                                XnMsgDllImportKeyTransRSA};
    CMSG_KEY_TRANS_RECIPIENT_INFO info = {};
    info.KeyEncryptionAlgorithm = scheme;
    info.EncryptedKey = Blob(encryptedKey);
    CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {
        sizeof(para), {ProviderOf(recipient)}, recipient.keySpec, &info, 0};
    Check(kFunctions[function % 6](&content, &para, 0, nullptr, &contentKey), contentKey);
    return 0;
  }
  constexpr XnImportKeyAgree* kFunctions[] = {XnMsgDllImportKeyAgree, XnMsgDllImportKeyAgree_GR3412,
                                              XnMsgDllImportKeyAgreeECDH};
  CMSG_RECIPIENT_ENCRYPTED_KEY_INFO one = {};
  one.EncryptedKey = Blob(encryptedKey);
  PCMSG_RECIPIENT_ENCRYPTED_KEY_INFO ones[] = {&one};
  CMSG_KEY_AGREE_RECIPIENT_INFO info = {};
  info.dwOriginatorChoice = originatorChoice;
  if (originatorChoice == CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY)
    info.OriginatorPublicKeyInfo = {
        {originatorOid, Blob(originatorParameters)},
        key
    };
  info.UserKeyingMaterial = Blob(ukm);
  info.KeyEncryptionAlgorithm = scheme;
  info.cRecipientEncryptedKeys = 1;
  info.rgpRecipientEncryptedKeys = ones;
  CMSG_CTRL_KEY_AGREE_DECRYPT_PARA para = {
      sizeof(para), {ProviderOf(recipient)}, recipient.keySpec, &info, 0, 0, key};
  Check(kFunctions[function % 6 - 3](&content, &para, 0, nullptr, &contentKey), contentKey);
  return 0;
}
