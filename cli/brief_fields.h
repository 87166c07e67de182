// Certificates and CRLs in a few lines: enough to know which one it is. "certkern show" has the rest.
#ifndef CERTKERN_CLI_BRIEF_FIELDS_H
#define CERTKERN_CLI_BRIEF_FIELDS_H

#include "field.h"
#include "handles.h"

#include <certkern/find.h>
#include <certkern/store.h>

#include <vector>

namespace certkern::cli {

inline void CloseStore(HCERTSTORE store) { CertCloseStore(store, 0); }
using StoreHandle = Owner<HCERTSTORE, CloseStore, HCERTSTORE{nullptr}>;
using CertificateHandle = Owner<PCCERT_CONTEXT, CertFreeCertificateContext, PCCERT_CONTEXT{nullptr}>;
using CrlHandle = Owner<PCCRL_CONTEXT, CertFreeCRLContext, PCCRL_CONTEXT{nullptr}>;

Field BriefField(const CERT_CONTEXT& certificate);
Field BriefField(const CRL_CONTEXT& crl);

// Every certificate, then every CRL; the contexts are the walk's own.
template <typename Visit>
void ForEachObject(HCERTSTORE store, const Visit& visit) {
  // an enumeration frees the context that it is given
  PCCERT_CONTEXT certificate = nullptr;
  while ((certificate = CertEnumCertificatesInStore(store, certificate))) visit(*certificate);
  PCCRL_CONTEXT crl = nullptr;
  while ((crl = CertEnumCRLsInStore(store, crl))) visit(*crl);
}

}  // namespace certkern::cli

#endif
