// Keys into the key level.
#include "common/der.h"
#include "keykern/agreed_key.h"
#include "keykern/blob_reader.h"
#include "keykern/key/key_codec.h"
#include "keykern/key_blob.h"
#include "keykern/key_pair.h"
#include "keykern/key_transport.h"
#include "keykern/rsa_blob.h"
#include "keykern/session_key.h"
#include "platform/limits.h"

#include <certkern/types.h>

namespace keykern {
namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the DER tools

constexpr DWORD kImportFlags = CRYPT_EXPORTABLE | CRYPT_USER_PROTECTED | CRYPT_NO_SALT | CRYPT_OAEP
    | CRYPT_ARCHIVABLE | CRYPT_FORCE_KEY_PROTECTION_HIGH | CRYPT_PUBLIC_IMPORT;

// What an import is about.
struct Import {
  const Pinned<Provider>& provider;
  ALG_ID algorithm;  // of the header
  BlobReader body;
  KeyObject* wrapping;
  DWORD flags;

  bool exportable() const { return (flags & (CRYPT_EXPORTABLE | CRYPT_ARCHIVABLE)) != 0; }
};

// --- public keys ---

// The header's word counts when it is one of the key's family; a blob that names none takes the signature's.
ALG_ID AlgorithmFor(ALG_ID named, Family family, ALG_ID usual) {
  const FamilyRow* row = FindFamily(named);
  return row && row->family == family ? named : usual;
}

DWORD ReadPublic(BlobReader body, PublicKeyPtr& key) {
  SecretBytes info;
  if (RsaPublicFromBlob(body.rest(), info)) return ParsePublicKeyInfo(info, key);
  KEY_BLOB_INFO head;
  if (!body.take(head) || head.dwMagic != KEY_BLOB_PUBLIC) return NTE_BAD_DATA;
  return ParsePublicKeyInfo(body.rest(), key);
}

DWORD ImportPublic(const Import& import, std::unique_ptr<KeyObject>& result) {
  PublicKeyPtr key;
  if (const DWORD code = ReadPublic(import.body, key)) return code;
  const FamilyRow& row = RowOf(key->family());
  const ALG_ID algorithm = AlgorithmFor(import.algorithm, row.family, row.signature);
  if (import.algorithm && algorithm != import.algorithm) return NTE_BAD_ALGID;
  if (!import.wrapping) {
    auto pair = std::make_unique<KeyPair>(import.provider, algorithm, 0, true);
    pair->holdPublic(std::move(key));
    result = std::move(pair);
    return ERROR_SUCCESS;
  }
  KeyPair* own = import.wrapping->pair();
  if (!own) return NTE_BAD_KEY;
  PrivateKeyPtr half;
  if (const DWORD code = own->privateKey(half)) return code;
  const bool agrees = IsGost(row.family) || row.family == Family::Ec;
  if (half->family() != row.family || !agrees) return NTE_BAD_KEY;
  result = std::make_unique<AgreedKey>(std::move(half), std::move(key), algorithm);
  return ERROR_SUCCESS;
}

// --- private keys ---

// Signing and agreeing both work with either; the exchange key is what other programs ask a container for. Keys of 2001
// are an exception: only their signature form goes into a PFX again.
ALG_ID UsualAlgorithm(Family family) {
  const FamilyRow& row = RowOf(family);
  return row.exchange && family != Family::Gost2001 ? row.exchange : row.signature;
}

DWORD Keep(const Import& import, PrivateKeyPtr key, std::unique_ptr<KeyObject>& result) {
  const Family family = key->family();
  const ALG_ID algorithm = AlgorithmFor(import.algorithm, family, UsualAlgorithm(family));
  if (import.algorithm && algorithm != import.algorithm) return NTE_BAD_ALGID;
  const DWORD spec = SpecOf(algorithm);
  if (spec) {
    if (const DWORD code = import.provider->storeKey(spec, {key, algorithm, import.exportable()}))
      return code;
  }
  auto pair = std::make_unique<KeyPair>(import.provider, algorithm, spec, import.exportable());
  pair->holdPrivate(std::move(key));
  result = std::move(pair);
  return ERROR_SUCCESS;
}

// SEQUENCE { AlgorithmIdentifier, OCTET STRING wrapped } under a wrap of GOST 28147-89.
DWORD UnwrapNumber(const Import& import, ALG_ID method, std::span<const BYTE> encoded, SecretBytes& info) {
  der::Reader in(encoded);
  der::Reader body;
  std::span<const BYTE> algorithm;
  std::span<const BYTE> octets;
  if (!in.take(der::kSequence, body) || !body.takeWhole(algorithm) || !body.take(der::kOctetString, octets)
      || !body.empty())
    return NTE_BAD_DATA;
  SecretBytes number;
  const WrappedKey wrapped{method, ToSecret(octets)};
  if (const DWORD code = UnwrapKey(*import.wrapping, 0, wrapped, 0, number)) return code;
  info = der::Sequence({der::Small(0), algorithm, der::OctetString(number)});
  return ERROR_SUCCESS;
}

// SEQUENCE { OCTET STRING initial value, OCTET STRING encrypted } under any other cipher.
DWORD UnsealInfo(const Import& import, std::span<const BYTE> encoded, SecretBytes& info) {
  SessionKey* session = import.wrapping->session();
  if (!session) return NTE_BAD_KEY;
  der::Reader in(encoded);
  der::Reader body;
  std::span<const BYTE> iv;
  std::span<const BYTE> octets;
  if (!in.take(der::kSequence, body) || !body.take(der::kOctetString, iv)
      || !body.take(der::kOctetString, octets) || !body.empty())
    return NTE_BAD_DATA;
  WrappedKey wrapped{session->algorithm(), ToSecret(iv)};
  Append(wrapped.bytes, octets);
  return UnwrapKey(*import.wrapping, 0, wrapped, 0, info);
}

DWORD ImportPrivate(const Import& import, std::unique_ptr<KeyObject>& result) {
  SecretBytes info;
  if (!RsaPrivateFromBlob(import.body.rest(), info)) {
    BlobReader body = import.body;
    KEY_BLOB_INFO head;
    if (!body.take(head)) return NTE_BAD_DATA;
    if (head.dwMagic == KEY_BLOB_PRIVATE) {
      info = ToSecret(body.rest());
    } else if (head.dwMagic == KEY_BLOB_WRAPPED) {
      if (!import.wrapping) return NTE_BAD_KEY;
      const ALG_ID method = GostWrapOf(*import.wrapping);
      const DWORD code =
          method ? UnwrapNumber(import, method, body.rest(), info) : UnsealInfo(import, body.rest(), info);
      if (code) return code;
    } else {
      return NTE_BAD_DATA;
    }
  }
  PrivateKeyPtr key;
  if (const DWORD code = ParsePrivateKeyInfo(info, key)) return code;
  return Keep(import, std::move(key), result);
}

DWORD ImportShrouded(const Import& import, std::unique_ptr<KeyObject>& result) {
  if (!import.wrapping) return NTE_BAD_KEY;
  SecretBytes info;
  if (const DWORD code = OpenUnder(*import.wrapping, import.body.rest(), info)) return code;
  PrivateKeyPtr key;
  if (const DWORD code = ParsePrivateKeyInfo(info, key)) return code;
  return Keep(import, std::move(key), result);
}

// --- session keys ---

// The text that the blob ends with, NUL included.
bool TakeText(BlobReader& body, std::string& text) {
  const std::span<const BYTE> rest = body.rest();
  const auto end = std::find(rest.begin(), rest.end(), BYTE{0});
  if (end == rest.end() || end + 1 != rest.end()) return false;
  text.assign(rest.begin(), end);
  return true;
}

DWORD SetBox(KeyObject& key, const std::string& box) {
  return box.empty() ? DWORD{ERROR_SUCCESS}
                     : key.setParam(KP_CIPHEROID, reinterpret_cast<const BYTE*>(box.c_str()));
}

DWORD ImportSimple(const Import& import, std::unique_ptr<KeyObject>& result) {
  if (!import.wrapping) return NTE_BAD_KEY;
  BlobReader body = import.body;
  WrappedKey wrapped;
  std::string box;
  if (!body.take(wrapped.method)) return NTE_BAD_DATA;
  std::span<const BYTE> bytes = body.rest();
  if (wrapped.method != CALG_RSA_KEYX) {
    DWORD size;
    if (!body.take(size) || !body.take(size, bytes) || !TakeText(body, box)) return NTE_BAD_DATA;
  }
  wrapped.bytes = ToSecret(bytes);
  const CipherRow* cipher = FindCipher(import.algorithm);
  if (!cipher && import.algorithm != CALG_HMAC_KEY) return NTE_BAD_ALGID;
  const bool padded = wrapped.method == CALG_RSA_KEYX && !(import.flags & CRYPT_OAEP);
  if (padded && !cipher) return NTE_BAD_KEY;
  // RC2 and RC4 come in several sizes: the padding tells which, and a wrong one must not be told
  const bool fixed = cipher && cipher->minimumBits == cipher->maximumBits;
  const size_t size = fixed || padded ? cipher->keyBits / 8 : 0;
  SecretBytes key;
  if (const DWORD code = UnwrapKey(*import.wrapping, import.flags, wrapped, size, key)) return code;
  if (const DWORD code = MakeSessionKey(import.algorithm, std::move(key), import.exportable(), result))
    return code;
  return SetBox(*result, box);
}

DWORD ImportPlain(const Import& import, std::unique_ptr<KeyObject>& result) {
  BlobReader body = import.body;
  DWORD size;
  std::span<const BYTE> key;
  if (!body.take(size) || !body.take(size, key) || !body.rest().empty()) return NTE_BAD_DATA;
  return MakeSessionKey(import.algorithm, ToSecret(key), import.exportable(), result);
}

DWORD ImportOpaque(const Import& import, std::unique_ptr<KeyObject>& result) {
  BlobReader body = import.body;
  DWORD mode, keySize, ivSize;
  std::span<const BYTE> key, iv;
  std::string box;
  if (!body.take(mode) || !body.take(keySize) || !body.take(ivSize) || !body.take(keySize, key)
      || !body.take(ivSize, iv) || !TakeText(body, box))
    return NTE_BAD_DATA;
  if (const DWORD code = MakeSessionKey(import.algorithm, ToSecret(key), import.exportable(), result))
    return code;
  const CipherRow* cipher = FindCipher(import.algorithm);
  if (!cipher) return ERROR_SUCCESS;
  if (mode) {
    if (const DWORD code = result->setParam(KP_MODE, reinterpret_cast<const BYTE*>(&mode))) return code;
  }
  if (ivSize) {
    if (ivSize != IvSize(*cipher, mode ? mode : cipher->defaultMode)) return NTE_BAD_DATA;
    if (const DWORD code = result->setParam(KP_IV, iv.data())) return code;
  }
  return SetBox(*result, box);
}

struct BlobRow {
  BYTE type;
  DWORD (*import)(const Import& import, std::unique_ptr<KeyObject>& result);
};
constexpr BlobRow kBlobs[] = {
    {SIMPLEBLOB,            ImportSimple  },
    {PUBLICKEYBLOB,         ImportPublic  },
    {PRIVATEKEYBLOB,        ImportPrivate },
    {PLAINTEXTKEYBLOB,      ImportPlain   },
    {OPAQUEKEYBLOB,         ImportOpaque  },
    {PKCS8_SHROUDEDKEYBLOB, ImportShrouded},
};

}  // namespace

DWORD SpecOf(ALG_ID algorithm) {
  const FamilyRow* row = FindFamily(algorithm);
  if (!row || row->ephemeral == algorithm) return 0;
  return row->exchange == algorithm ? AT_KEYEXCHANGE : AT_SIGNATURE;
}

DWORD ImportKey(const Pinned<Provider>& provider, std::span<const BYTE> blob, KeyObject* wrapping,
                DWORD flags, std::unique_ptr<KeyObject>& key) {
  if (flags & ~kImportFlags) return NTE_BAD_FLAGS;
  BlobReader in(blob);
  BLOBHEADER header;
  if (blob.size() > kMaxKeyBlob || !in.take(header)) return NTE_BAD_DATA;
  if (header.bVersion != CUR_BLOB_VERSION) return NTE_BAD_VER;
  const auto* row = std::find_if(std::begin(kBlobs), std::end(kBlobs),
                                 [&](const BlobRow& candidate) { return candidate.type == header.bType; });
  if (row == std::end(kBlobs)) return NTE_BAD_TYPE;
  std::unique_ptr<KeyObject> made;
  if (const DWORD code = row->import({provider, header.aiKeyAlg, in, wrapping, flags}, made)) return code;
  key = std::move(made);
  return ERROR_SUCCESS;
}

}  // namespace keykern
