#include "keys/private_key.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <cstring>
#include <span>

#include "ber/read_cursor.h"
#include "keys/pin_callback.h"
#include "keys/public_key.h"
#include "keys/public_key_comparison.h"
#include "platform/trace.h"
#include "store/context_property.h"

namespace certkern {
namespace {

constexpr char kFunction[] = "CryptAcquireCertificatePrivateKey";
constexpr DWORD kCacheFlags = CRYPT_ACQUIRE_CACHE_FLAG | CRYPT_ACQUIRE_USE_PROV_INFO_FLAG;

using ProviderInfoOwner = MallocOwner<CRYPT_KEY_PROV_INFO>;
using PublicKeyOwner = MallocOwner<CERT_PUBLIC_KEY_INFO>;

// What a failure of the key level is called in the trace; its code stays.
bool Failed(TraceTextFor<> text) {
  TraceAs(kFunction, TRACE_ERROR, text);
  return false;
}

bool Failed(DWORD code, TraceTextFor<> text) {
  SetLastError(code);
  return Failed(text);
}

// Where the key is; null with a code.
ProviderInfoOwner ReadProviderInfo(ContextRecord& certificate) {
  DWORD size = 0;
  if (!CertGetCertificateContextPropertyWithLock(certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) {
    return {};
  }
  ProviderInfoOwner info(static_cast<CRYPT_KEY_PROV_INFO*>(std::calloc(1, size)));
  if (!info) {
    SetLastError(NTE_NO_MEMORY);
    return {};
  }
  if (!CertGetCertificateContextPropertyWithLock(certificate, CERT_KEY_PROV_INFO_PROP_ID, info.get(),
                                                 &size)) {
    return {};
  }
  return info;
}

bool WantsCache(DWORD flags, const CRYPT_KEY_PROV_INFO& info) {
  if (flags & CRYPT_ACQUIRE_CACHE_FLAG) return true;
  return (flags & CRYPT_ACQUIRE_USE_PROV_INFO_FLAG) && (info.dwFlags & CERT_SET_KEY_CONTEXT_PROP_ID);
}

bool UseKept(const PropertyBlock& block, PrivateKey& key) {
  const CERT_KEY_CONTEXT& kept = block.keyContext;
  if (!kept.hCryptProv) return false;
  key.owned.reset();
  key.provider = kept.hCryptProv;
  key.keySpec = kept.dwKeySpec;
  return true;
}

bool OpenContainer(const CRYPT_KEY_PROV_INFO& info, DWORD flags, PrivateKey& key) {
  DWORD acquire = info.dwFlags & ~CERT_SET_KEY_CONTEXT_PROP_ID;
  if (acquire & CRYPT_DELETEKEYSET) {  // to open a key must not be the end of it, whatever a file says
    return Failed(NTE_BAD_FLAGS, "() AcquireContext failed!");
  }
  if (flags & CRYPT_ACQUIRE_SILENT_FLAG) acquire |= CRYPT_SILENT;
  if (!CryptAcquireContextW(key.owned.out(), info.pwszContainerName, info.pwszProvName, info.dwProvType,
                            acquire)) {
    return Failed("() AcquireContext failed!");
  }
  key.provider = key.owned.get();
  key.keySpec = info.dwKeySpec;
  return true;
}

// The certificate owns the provider from here on. Opening may have run code of the application's, which may have set a
// key context of its own: then that one counts.
void Keep(PropertyBlock& block, PrivateKey& key) {
  if (UseKept(block, key)) return;
  CERT_KEY_CONTEXT kept{};
  kept.cbSize = sizeof kept;
  kept.hCryptProv = key.owned.release();
  kept.dwKeySpec = key.keySpec;
  SetKeyContext(block, kept);
}

bool ApplyParameters(const CRYPT_KEY_PROV_INFO& info, HCRYPTPROV provider) {
  for (const CRYPT_KEY_PROV_PARAM& each : std::span(info.rgProvParam, info.cProvParam)) {
    if (!CryptSetProvParam(provider, each.dwParam, each.pbData, 0)) {
      return Failed("() CryptSetProvParam() failed!");
    }
  }
  return true;
}

// --- comparison ---

struct Pin {
  static constexpr DWORD kSize = 32;  // bytes that a callback may write
  char text[kSize + 1] = {};          // ends in a NUL, whatever the callback writes
  Pin() = default;
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;
  ~Pin() { explicit_bzero(text, sizeof text); }
};

bool PassOnPin(HCRYPTPROV provider) {
  Pin pin;
  if (!AskForPin(pin.text, Pin::kSize)) return Failed(NTE_FAIL, "() could not get pin code!");
  if (!pin.text[0]) return true;
  if (!CryptSetProvParam(provider, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.text), 0)) {
    return Failed("() could not set pin code!");
  }
  return true;
}

bool IsKeyOf(const CERT_CONTEXT& certificate, const PrivateKey& key) {
  if (!PassOnPin(key.provider)) return false;
  CERT_PUBLIC_KEY_INFO& expected = certificate.pCertInfo->SubjectPublicKeyInfo;
  const auto exportTo = [&](CERT_PUBLIC_KEY_INFO* out, DWORD* size) {
    return ExportPublicKey(key.provider, key.keySpec, certificate.dwCertEncodingType,
                           expected.Algorithm.pszObjId, 0, nullptr, out, size)
        || Failed("() export public key failed!");
  };
  DWORD size = 0;
  if (!exportTo(nullptr, &size)) return false;
  const PublicKeyOwner exported(static_cast<CERT_PUBLIC_KEY_INFO*>(std::malloc(size)));
  if (!exported) {
    TraceAs(kFunction, TRACE_ERROR, "() could not allocate %ld bytes!", static_cast<long>(size));
    return Fault(NTE_NO_MEMORY);
  }
  if (!exportTo(exported.get(), &size)) return false;
  return SamePublicKey(exported.get(), &expected)
      || Failed(NTE_BAD_PUBLIC_KEY, "() key does not match certificate!");
}

bool OpenKey(const CRYPT_KEY_PROV_INFO& info, PropertyBlock& block, DWORD flags, PrivateKey& key) {
  if (!OpenContainer(info, flags, key)) return false;
  if (WantsCache(flags, info)) Keep(block, key);
  return true;
}

}  // namespace

bool AcquirePrivateKey(ContextRecord& certificate, DWORD flags, PrivateKey& key) {
  AddContextReference(certificate);  // the PIN's callback may give the caller's back
  const ContextOwner pinned(&certificate);
  PropertyBlock& block = *certificate.element().properties;
  const PropertyLock guard(block.lock);
  const ProviderInfoOwner info = ReadProviderInfo(certificate);
  const bool kept = (flags & kCacheFlags) && UseKept(block, key);
  if (!kept && !info) {
    const DWORD code = GetLastError() == NTE_NO_MEMORY ? NTE_NO_MEMORY : CRYPT_E_NO_KEY_PROPERTY;
    return Failed(code, "() CertGetCertificateContextPropertyWithLock(CERT_KEY_PROV_INFO_PROP_ID) failed!");
  }
  if (!kept && !OpenKey(*info.get(), block, flags, key)) return false;
  if (info && !ApplyParameters(*info.get(), key.provider)) return false;
  return !(flags & CRYPT_ACQUIRE_COMPARE_KEY_FLAG) || IsKeyOf(certificate.certificate, key);
}

}  // namespace certkern
