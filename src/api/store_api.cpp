// Stores: opening, closing and controlling them, adding objects and taking them out.
#include <certkern/errors.h>
#include <certkern/store.h>

#include "api/frame.h"
#include "ber/read_cursor.h"
#include "store/context_record.h"
#include "store/element_addition.h"
#include "store/store_kind.h"
#include "store/store_record.h"

using certkern::AsStore;
using certkern::ContextOwner;
using certkern::ContextRecord;
using certkern::ElementType;
using certkern::Fault;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Plain;
using certkern::StoreHandle;

namespace {

// The published form of an added object: the certificate's and the CRL's differ in nothing but their type.
template <class Context>
constexpr ElementType kTypeOf =
    std::is_same_v<Context, CERT_CONTEXT> ? ElementType::Certificate : ElementType::Crl;

using AddFunction = bool (*)(certkern::CertStore*, ContextRecord&, DWORD, ContextRecord**);

// Adds and hands the store's own context out. Whoever calls it has set *out to null, which is what a failure leaves there.
template <class Context>
bool AddRecord(AddFunction add, HCERTSTORE store, ContextRecord& source, DWORD disposition,
               const Context** out) {
  ContextRecord* added = nullptr;
  const bool done = add(AsStore(store), source, disposition, out ? &added : nullptr);
  if (added) *out = static_cast<const Context*>(added->published());
  return done;
}

template <class Context>
bool AddLive(HCERTSTORE store, const Context* context, DWORD disposition, const Context** out) {
  if (out) *out = nullptr;
  ContextRecord* const record = FindLiveContext(context, kTypeOf<Context>);
  return record ? AddRecord(certkern::AddContext, store, *record, disposition, out)
                : Fault(ERROR_INVALID_PARAMETER);
}

template <class Context>
bool AddLiveLink(HCERTSTORE store, const Context* context, DWORD disposition, const Context** out) {
  if (out) *out = nullptr;
  if (!store || certkern::IsCollection(*AsStore(store))) return Fault(E_INVALIDARG);
  ContextRecord* const record = FindLiveContext(context, kTypeOf<Context>);
  return record ? AddRecord(certkern::AddLink, store, *record, disposition, out)
                : Fault(ERROR_INVALID_PARAMETER);
}

template <class Context>
bool AddEncoded(HCERTSTORE store, DWORD encoding, const BYTE* bytes, DWORD size, DWORD disposition,
                const Context** out) {
  if (out) *out = nullptr;
  if (!bytes || !size) return Fault(E_INVALIDARG);
  const ContextOwner context(certkern::CreateContext(kTypeOf<Context>, encoding, {bytes, size}));
  return context && AddRecord(certkern::AddContext, store, *context.get(), disposition, out);
}

template <class Context>
BOOL Delete(Frame& frame, const Context* context) {
  ContextRecord* const record = FindLiveContext(context, kTypeOf<Context>);
  if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
  if (!certkern::DeleteContext(record)) return frame.failed();
  return frame.result(TRUE);
}

}  // namespace

extern "C" {

HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType, HCRYPTPROV_LEGACY hCryptProv,
                         DWORD dwFlags, const void* pvPara) {
  return Plain([&](Frame& frame) -> HCERTSTORE {
    frame.entry("(Provider = %p, dwEncodingType = 0x%X, hCryptProv = %p, Flags = 0x%.8X, pvPara = %p)",
                static_cast<const void*>(lpszStoreProvider), dwEncodingType,
                reinterpret_cast<const void*>(hCryptProv), dwFlags, pvPara);
    StoreHandle store = certkern::OpenStore(
        {certkern::StoreNumber(lpszStoreProvider), dwEncodingType, hCryptProv, dwFlags, pvPara});
    if (!store) return frame.failed();
    const HCERTSTORE handle = store.release();
    return frame.result(handle, "returned: hCertStore = %p", handle);
  });
}

BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, Flags = 0x%.8X)", hCertStore, dwFlags);
    if (!certkern::CloseStore(AsStore(hCertStore), dwFlags)) return frame.failed();
    return frame.result(TRUE);
  });
}

HCERTSTORE CertDuplicateStore(HCERTSTORE hCertStore) {
  return Plain([&](Frame& frame) -> HCERTSTORE {
    frame.entry("(hCertStore = %p)", hCertStore);
    if (!hCertStore) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::AddStoreHandle(*AsStore(hCertStore));
    return frame.result(hCertStore, "returned: hCertStore = %p", hCertStore);
  });
}

BOOL CertControlStore(HCERTSTORE hCertStore, DWORD dwFlags, DWORD dwCtrlType, const void* pvCtrlPara) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, dwFlags = 0x%.8X, dwCtrlType = %u, pvCtrlPara = %p)", hCertStore, dwFlags,
                dwCtrlType, pvCtrlPara);
    if (!hCertStore) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::ControlStore(*AsStore(hCertStore), dwFlags, dwCtrlType, pvCtrlPara)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertAddCertificateContextToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext,
                                      DWORD dwAddDisposition, PCCERT_CONTEXT* ppStoreContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, pCertContext = %p, dwAddDisposition = %u, ppStoreContext = %p)",
                hCertStore, pCertContext, dwAddDisposition, ppStoreContext);
    if (!AddLive(hCertStore, pCertContext, dwAddDisposition, ppStoreContext)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertAddCRLContextToStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pCrlContext, DWORD dwAddDisposition,
                              PCCRL_CONTEXT* ppStoreContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, pCrlContext = %p, dwAddDisposition = %u, ppStoreContext = %p)", hCertStore,
                pCrlContext, dwAddDisposition, ppStoreContext);
    if (!AddLive(hCertStore, pCrlContext, dwAddDisposition, ppStoreContext)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertAddCertificateLinkToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext, DWORD dwAddDisposition,
                                   PCCERT_CONTEXT* ppStoreContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, pCertContext = %p, dwAddDisposition = %u, ppStoreContext = %p)",
                hCertStore, pCertContext, dwAddDisposition, ppStoreContext);
    if (!AddLiveLink(hCertStore, pCertContext, dwAddDisposition, ppStoreContext)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertAddCRLLinkToStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pCrlContext, DWORD dwAddDisposition,
                           PCCRL_CONTEXT* ppStoreContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, pCrlContext = %p, dwAddDisposition = %u, ppStoreContext = %p)", hCertStore,
                pCrlContext, dwAddDisposition, ppStoreContext);
    if (!AddLiveLink(hCertStore, pCrlContext, dwAddDisposition, ppStoreContext)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertAddEncodedCertificateToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                      const BYTE* pbCertEncoded, DWORD cbCertEncoded, DWORD dwAddDisposition,
                                      PCCERT_CONTEXT* ppCertContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCertStore = %p, dwCertEncodingType = %u, pbCertEncoded = %p, cbCertEncoded = %u, dwAddDisposition "
        "= %u, ppCertContext = %p)",
        hCertStore, dwCertEncodingType, pbCertEncoded, cbCertEncoded, dwAddDisposition, ppCertContext);
    if (!AddEncoded(hCertStore, dwCertEncodingType, pbCertEncoded, cbCertEncoded, dwAddDisposition,
                    ppCertContext)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

BOOL CertAddEncodedCRLToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, const BYTE* pbCrlEncoded,
                              DWORD cbCrlEncoded, DWORD dwAddDisposition, PCCRL_CONTEXT* ppCrlContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCertStore = %p, dwCertEncodingType = %u, pbCrlEncoded = %p, cbCrlEncoded = %u, dwAddDisposition = "
        "%u, ppCrlContext = %p)",
        hCertStore, dwCertEncodingType, pbCrlEncoded, cbCrlEncoded, dwAddDisposition, ppCrlContext);
    if (!AddEncoded(hCertStore, dwCertEncodingType, pbCrlEncoded, cbCrlEncoded, dwAddDisposition,
                    ppCrlContext)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCertContext = %p)", pCertContext);
    return Delete(frame, pCertContext);
  });
}

BOOL CertDeleteCRLFromStore(PCCRL_CONTEXT pCrlContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCrlContext = %p)", pCrlContext);
    return Delete(frame, pCrlContext);
  });
}

}  // extern "C"
