// Who issued a certificate, and whether it passes the checks that need only its issuer.
#ifndef CERTKERN_STORE_ISSUER_H
#define CERTKERN_STORE_ISSUER_H

#include <certkern/find.h>

#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern {

// The checks that may be asked for.
inline constexpr DWORD kSubjectChecks = CERT_STORE_SIGNATURE_FLAG | CERT_STORE_TIME_VALIDITY_FLAG;

// CertVerifySubjectCertificateContext: clears the flag of each check that succeeds. A null context: its checks are not
// made, and their flags stay.
void CheckSubject(const CERT_CONTEXT* subject, const CERT_CONTEXT* issuer, DWORD& flags);

// CertGetIssuerCertificateFromStore. Empty with a code. The subject's names and bytes are there.
ContextOwner FindIssuer(CertStore* store, const CERT_CONTEXT& subject, ContextOwner previous, DWORD& flags);

}  // namespace certkern

#endif
