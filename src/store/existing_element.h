// When an object counts as being in a store already: a certificate by its bytes, a CRL by who issued it and what it is
// for, so that a newer list takes the place of an older one.
#ifndef CERTKERN_STORE_EXISTING_ELEMENT_H
#define CERTKERN_STORE_EXISTING_ELEMENT_H

#include <certkern/properties.h>

#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern {

// Same bytes, and an encoding type in common.
bool SameCertificate(const CERT_CONTEXT& wanted, const StoreElement& element);

// What tells the lists of one issuer apart.
struct CrlPurpose {
  const CERT_EXTENSION* authorityKey = nullptr;
  bool delta = false;
};
CrlPurpose PurposeOf(const CRL_INFO& info);
// Same issuer, same authority key identifier or none in both, both base or both delta.
bool SameCrlLine(const CRL_INFO& a, const CRL_INFO& b);

// Whether a search passes the element over: it is archived, and its store does not show archived objects.
bool IsHidden(const CertStore& store, StoreElement& element);

enum class Found { Yes, No, Failed };
// The newest element after `previous` (null: of all) that is the same object; Failed with a code if a context could not
// be made. The caller holds store.lock.
Found FindExisting(CertStore& store, const ContextRecord& wanted, const StoreElement* previous,
                   StoreElement*& existing);

}  // namespace certkern

#endif
