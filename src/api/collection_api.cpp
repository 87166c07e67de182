// Collections of stores, system stores, and the locations of these.
#include <certkern/errors.h>
#include <certkern/store.h>

#include "api/frame.h"
#include "store/collection.h"
#include "store/location.h"
#include "store/system_store.h"

using certkern::AsStore;
using certkern::Frame;
using certkern::Plain;

namespace {

HCERTSTORE OpenByName(Frame& frame, LPCSTR provider, HCRYPTPROV cryptProvider, const void* name) {
  certkern::StoreHandle store = certkern::OpenUserStore(provider, cryptProvider, name);
  if (!store) return frame.failed();
  const HCERTSTORE handle = store.release();
  return frame.result(handle, "returned: hCertStore = %p", handle);
}

BOOL AddByName(Frame& frame, LPCSTR provider, const void* name, const BYTE* bytes, DWORD size) {
  if (!certkern::AddToUserStore(provider, name, {bytes, bytes ? size : 0})) return frame.failed();
  return frame.result(TRUE);
}

}  // namespace

extern "C" {

BOOL CertAddStoreToCollection(HCERTSTORE hCollectionStore, HCERTSTORE hSiblingStore, DWORD dwUpdateFlags,
                              DWORD dwPriority) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCollectionStore = %p, hSiblingStore = %p, dwUpdateFlags = 0x%.8X, dwPriority = %u)",
                hCollectionStore, hSiblingStore, dwUpdateFlags, dwPriority);
    if (!hCollectionStore) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!hSiblingStore) return frame.result(TRUE);
    if (!certkern::AddStoreToCollection(*AsStore(hCollectionStore), *AsStore(hSiblingStore), dwUpdateFlags,
                                        dwPriority)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

void CertRemoveStoreFromCollection(HCERTSTORE hCollectionStore, HCERTSTORE hSiblingStore) {
  Plain([&](Frame& frame) -> void {
    frame.entry("(hCollectionStore = %p, hSiblingStore = %p)", hCollectionStore, hSiblingStore);
    if (!hCollectionStore) {
      frame.invalidArguments();
    } else if (hSiblingStore
               && !certkern::RemoveStoreFromCollection(*AsStore(hCollectionStore), *AsStore(hSiblingStore))) {
      frame.failed();
    } else {
      frame.done();
    }
  });
}

HCERTSTORE CertOpenSystemStoreA(HCRYPTPROV_LEGACY hProv, LPCSTR szSubsystemProtocol) {
  return Plain([&](Frame& frame) -> HCERTSTORE {
    frame.entry("(hProv = 0x%lx, szSubsystemProtocol = %p)", hProv,
                static_cast<const void*>(szSubsystemProtocol));
    return OpenByName(frame, CERT_STORE_PROV_SYSTEM_A, hProv, szSubsystemProtocol);
  });
}

HCERTSTORE CertOpenSystemStore(HCRYPTPROV_LEGACY hProv, LPCSTR szSubsystemProtocol) {
  return Plain([&](Frame& frame) -> HCERTSTORE {
    frame.entry("(hProv = 0x%lx, szSubsystemProtocol = %p)", hProv,
                static_cast<const void*>(szSubsystemProtocol));
    return OpenByName(frame, CERT_STORE_PROV_SYSTEM_A, hProv, szSubsystemProtocol);
  });
}

HCERTSTORE CertOpenSystemStoreW(HCRYPTPROV_LEGACY hProv, LPCWSTR szSubsystemProtocol) {
  return Plain([&](Frame& frame) -> HCERTSTORE {
    frame.entry("(hProv = 0x%lx, szSubsystemProtocol = %p)", hProv,
                static_cast<const void*>(szSubsystemProtocol));
    return OpenByName(frame, CERT_STORE_PROV_SYSTEM_W, hProv, szSubsystemProtocol);
  });
}

BOOL CertAddEncodedCertificateToSystemStoreA(LPCSTR szCertStoreName, const BYTE* pbCertEncoded,
                                             DWORD cbCertEncoded) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(szCertStoreName = %p, pbCertEncoded = %p, cbCertEncoded = %u)",
                static_cast<const void*>(szCertStoreName), pbCertEncoded, cbCertEncoded);
    return AddByName(frame, CERT_STORE_PROV_SYSTEM_A, szCertStoreName, pbCertEncoded, cbCertEncoded);
  });
}

BOOL CertAddEncodedCertificateToSystemStoreW(LPCWSTR szCertStoreName, const BYTE* pbCertEncoded,
                                             DWORD cbCertEncoded) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(szCertStoreName = %p, pbCertEncoded = %p, cbCertEncoded = %u)",
                static_cast<const void*>(szCertStoreName), pbCertEncoded, cbCertEncoded);
    return AddByName(frame, CERT_STORE_PROV_SYSTEM_W, szCertStoreName, pbCertEncoded, cbCertEncoded);
  });
}

BOOL CertEnumSystemStoreLocation(DWORD dwFlags, void* pvArg, PFN_CERT_ENUM_SYSTEM_STORE_LOCATION pfnEnum) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(dwFlags = 0x%.8X, pvArg = %p, pfnEnum = %p)", dwFlags, pvArg,
                reinterpret_cast<void*>(pfnEnum));
    if (dwFlags || !pfnEnum) return frame.failed(E_INVALIDARG);
    if (!certkern::EnumerateLocations(pvArg, pfnEnum)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertEnumSystemStore(DWORD dwFlags, void* pvSystemStoreLocationPara, void* pvArg,
                         PFN_CERT_ENUM_SYSTEM_STORE pfnEnum) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(dwFlags = 0x%.8X, pvSystemStoreLocationPara = %p, pvArg = %p, pfnEnum = %p)", dwFlags,
                pvSystemStoreLocationPara, pvArg, reinterpret_cast<void*>(pfnEnum));
    if (!pfnEnum) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::EnumerateSystemStores(dwFlags, pvArg, pfnEnum)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertEnumPhysicalStore(const void* pvSystemStore, DWORD dwFlags, void* pvArg,
                           PFN_CERT_ENUM_PHYSICAL_STORE pfnEnum) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pvSystemStore = %p, dwFlags = 0x%.8X, pvArg = %p, pfnEnum = %p)", pvSystemStore, dwFlags,
                pvArg, reinterpret_cast<void*>(pfnEnum));
    if (!certkern::EnumeratePhysicalStores(static_cast<LPCWSTR>(pvSystemStore), dwFlags, pvArg, pfnEnum)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

}  // extern "C"
