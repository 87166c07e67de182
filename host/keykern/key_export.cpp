// Keys out of the key level.
#include "common/der.h"
#include "keykern/blob_reader.h"
#include "keykern/key_blob.h"
#include "keykern/key_pair.h"
#include "keykern/key_transport.h"
#include "keykern/rsa_blob.h"
#include "keykern/session_key.h"

#include "keykern/derive/key_wrap.h"

namespace keykern {
namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the DER tools

SecretBytes BeginBlob(DWORD type, ALG_ID algorithm) {
  SecretBytes blob;
  AppendRecord(blob, BLOBHEADER{static_cast<BYTE>(type), CUR_BLOB_VERSION, 0, algorithm});
  return blob;
}

void AppendInfo(SecretBytes& blob, DWORD magic, DWORD bits) {
  AppendRecord(blob, KEY_BLOB_INFO{magic, bits});
}

// --- key pairs ---

DWORD ExportPublic(KeyPair& pair, SecretBytes& blob) {
  PublicKeyPtr key;
  if (const DWORD code = pair.publicKey(key)) return code;
  blob = BeginBlob(PUBLICKEYBLOB, pair.algorithm());
  const SecretBytes info = key->publicKeyInfo();
  SecretBytes body;
  if (key->family() == Family::Rsa && RsaPublicToBlob(info, body)) {
    Append(blob, body);
    return ERROR_SUCCESS;
  }
  AppendInfo(blob, KEY_BLOB_PUBLIC, key->bits());
  Append(blob, info);
  return ERROR_SUCCESS;
}

DWORD ExportPlainPrivate(const PrivateKey& key, SecretBytes& blob) {
  const SecretBytes info = key.privateKeyInfo();
  SecretBytes body;
  if (key.family() == Family::Rsa && RsaPrivateToBlob(info, body)) {
    Append(blob, body);
    return ERROR_SUCCESS;
  }
  AppendInfo(blob, KEY_BLOB_PRIVATE, key.publicKey()->bits());
  Append(blob, info);
  return ERROR_SUCCESS;
}

SecretBytes AlgorithmOf(const PublicKey& key) {
  const SecretBytes encoded = key.publicKeyInfo();
  der::Reader in(encoded);
  der::Reader info;
  std::span<const BYTE> algorithm;
  if (!in.take(der::kSequence, info) || !info.takeWhole(algorithm)) return {};
  return ToSecret(algorithm);
}

// The number of a GOST key under a key of GOST 28147-89. Which wrap, the wrapping key says, or else the wrapped one.
DWORD ExportWrappedNumber(const PrivateKey& key, KeyObject& wrapping, ALG_ID method, SecretBytes& blob) {
  std::unique_ptr<KeyObject> twin;
  if (const DWORD code = wrapping.copy(twin)) return code;
  if (const DWORD code = twin->setParam(KP_ALGID, reinterpret_cast<const BYTE*>(&method))) return code;
  WrappedKey wrapped;
  if (const DWORD code = WrapKey(*twin, 0, key.number(), wrapped)) return code;
  Append(blob, der::Sequence({AlgorithmOf(*key.publicKey()), der::OctetString(wrapped.bytes)}));
  return ERROR_SUCCESS;
}

DWORD ExportSealedInfo(const PrivateKey& key, KeyObject& wrapping, SecretBytes& blob) {
  if (!wrapping.session()) return NTE_BAD_KEY;
  WrappedKey wrapped;
  if (const DWORD code = WrapKey(wrapping, 0, key.privateKeyInfo(), wrapped)) return code;
  const CipherSettings settings = wrapping.session()->settings();
  const size_t ivSize = IvSize(*FindCipher(settings.algorithm), settings.mode);
  const std::span<const BYTE> bytes = wrapped.bytes;
  Append(blob,
         der::Sequence({der::OctetString(bytes.first(ivSize)), der::OctetString(bytes.subspan(ivSize))}));
  return ERROR_SUCCESS;
}

DWORD ExportPrivate(KeyPair& pair, KeyObject* wrapping, SecretBytes& blob) {
  PrivateKeyPtr key;
  if (const DWORD code = pair.exportableKey(key)) return code;
  blob = BeginBlob(PRIVATEKEYBLOB, pair.algorithm());
  if (!wrapping) return ExportPlainPrivate(*key, blob);
  AppendInfo(blob, KEY_BLOB_WRAPPED, key->publicKey()->bits());
  ALG_ID method = GostWrapOf(*wrapping);
  if (!method && wrapping->session() && wrapping->session()->algorithm() == CALG_G28147) method = pair.wrap();
  if (method && IsGost(key->family())) return ExportWrappedNumber(*key, *wrapping, method, blob);
  // a wrapping key of the short wraps holds nothing longer than a number
  return method ? NTE_BAD_KEY : ExportSealedInfo(*key, *wrapping, blob);
}

DWORD ExportShrouded(KeyPair& pair, KeyObject* wrapping, SecretBytes& blob) {
  if (!wrapping) return NTE_BAD_KEY;
  PrivateKeyPtr key;
  if (const DWORD code = pair.exportableKey(key)) return code;
  SecretBytes sealed;
  if (const DWORD code = SealUnder(*wrapping, key->privateKeyInfo(), sealed)) return code;
  blob = BeginBlob(PKCS8_SHROUDEDKEYBLOB, 0);
  Append(blob, sealed);
  return ERROR_SUCCESS;
}

// --- session keys ---

void AppendText(SecretBytes& blob, const std::string& text) {
  blob.insert(blob.end(), text.c_str(), text.c_str() + text.size() + 1);
}

DWORD ExportSimple(const CipherSettings& settings, KeyObject* wrapping, DWORD flags, SecretBytes& blob) {
  if (!wrapping) return NTE_BAD_KEY;
  // a carrier has no size of its own, and under RSAES-PKCS1-v1_5 the padding must not be what tells it
  if (wrapping->pair() && !(flags & CRYPT_OAEP) && !FindCipher(settings.algorithm)) return NTE_BAD_KEY;
  WrappedKey wrapped;
  if (const DWORD code = WrapKey(*wrapping, flags, settings.key, wrapped)) return code;
  blob = BeginBlob(SIMPLEBLOB, settings.algorithm);
  AppendRecord(blob, wrapped.method);
  if (wrapped.method == CALG_RSA_KEYX) {  // as published: the rest of the blob is the encrypted key
    Append(blob, wrapped.bytes);
    return ERROR_SUCCESS;
  }
  AppendRecord(blob, static_cast<DWORD>(wrapped.bytes.size()));
  Append(blob, wrapped.bytes);
  AppendText(blob, settings.parameters);
  return ERROR_SUCCESS;
}

SecretBytes PlainBlob(const CipherSettings& settings) {
  SecretBytes blob = BeginBlob(PLAINTEXTKEYBLOB, settings.algorithm);
  AppendRecord(blob, static_cast<DWORD>(settings.key.size()));
  Append(blob, settings.key);
  return blob;
}

// Sizes first, then what has them: mode, key, initial value, substitution box.
SecretBytes OpaqueBlob(const CipherSettings& settings) {
  SecretBytes blob = BeginBlob(OPAQUEKEYBLOB, settings.algorithm);
  AppendRecord(blob, settings.mode);
  AppendRecord(blob, static_cast<DWORD>(settings.key.size()));
  AppendRecord(blob, static_cast<DWORD>(settings.iv.size()));
  Append(blob, settings.key);
  Append(blob, settings.iv);
  AppendText(blob, settings.parameters);
  return blob;
}

DWORD ExportSession(SessionKey& key, KeyObject* wrapping, DWORD type, DWORD flags, SecretBytes& blob) {
  if (type != SIMPLEBLOB && type != PLAINTEXTKEYBLOB && type != OPAQUEKEYBLOB) return NTE_BAD_TYPE;
  if (!key.exportable()) return NTE_BAD_KEY_STATE;
  const CipherSettings settings = key.settings();
  if (type == SIMPLEBLOB) return ExportSimple(settings, wrapping, flags, blob);
  if (wrapping) return NTE_BAD_KEY;
  blob = type == PLAINTEXTKEYBLOB ? PlainBlob(settings) : OpaqueBlob(settings);
  return ERROR_SUCCESS;
}

}  // namespace

DWORD ExportKey(KeyObject& key, KeyObject* wrapping, DWORD type, DWORD flags, SecretBytes& blob) {
  if (flags & ~CRYPT_OAEP) return NTE_BAD_FLAGS;
  if (SessionKey* session = key.session()) return ExportSession(*session, wrapping, type, flags, blob);
  KeyPair* pair = key.pair();
  if (!pair) return NTE_BAD_TYPE;  // an agreed key stays here
  switch (type) {
    case PUBLICKEYBLOB:
      return wrapping ? NTE_BAD_KEY : ExportPublic(*pair, blob);
    case PRIVATEKEYBLOB:
      return ExportPrivate(*pair, wrapping, blob);
    case PKCS8_SHROUDEDKEYBLOB:
      return ExportShrouded(*pair, wrapping, blob);
    default:
      return NTE_BAD_TYPE;
  }
}

}  // namespace keykern
