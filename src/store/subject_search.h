// Searching a store for a subject by the comparison of chains, which takes names for equal that are not the same bytes.
#ifndef CERTKERN_STORE_SUBJECT_SEARCH_H
#define CERTKERN_STORE_SUBJECT_SEARCH_H

#include <certkern/find.h>

#include "certkern/chain/normal_name.h"

namespace certkern {

// As CertFindCertificateInStore, that is, by order, archived certificates, and the previous one, which is freed. The
// store's index is asked. A name that does not decode finds nothing.
PCCERT_CONTEXT FindCertificateBySubject(HCERTSTORE store, const NormalName& subject, PCCERT_CONTEXT previous);

}  // namespace certkern

#endif
