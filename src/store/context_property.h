// Reading, computing, setting and walking the properties of contexts. Names ending in WithLock are for whoever holds
// the PropertyBlock's lock over a longer step.
#ifndef CERTKERN_STORE_CONTEXT_PROPERTY_H
#define CERTKERN_STORE_CONTEXT_PROPERTY_H

#include <certkern/properties.h>

#include "store/context_record.h"
#include "store/property_block.h"

namespace certkern {

// The lock of the properties of a live context; recursive.
PropertyLock LockProperties(const ContextRecord& context);

// The item, computed and kept if it is not there and can be: 3, 4 and 15 from the bytes alone, 20 (certificates) and
// 32000 (CRLs) while somebody holds a context of the element. The answer lives until the lock is given up or the
// property is set. Null with a code: CRYPT_E_NOT_FOUND, or that of the computation. The caller keeps the element alive
// and holds the lock of its properties, and may hold its store's. May throw.
const PropertyItem* FindOrComputeProperty(StoreElement& element, DWORD id);
// The same without computing.
const PropertyItem* FindProperty(StoreElement& element, DWORD id);
// Whether the property is there or can be had; takes the lock.
bool HasProperty(StoreElement& element, DWORD id);
bool CanHaveProperty(StoreElement& element, DWORD id);

// CertGet...ContextProperty and CertSet...ContextProperty on a live context.
[[nodiscard]] bool CertGetCertificateContextPropertyWithLock(ContextRecord& context, DWORD id, void* data,
                                                             DWORD* size);
[[nodiscard]] bool CertSetCertificateContextPropertyWithLock(ContextRecord& context, DWORD id,
                                                             const void* data);
[[nodiscard]] bool GetContextProperty(ContextRecord& context, DWORD id, void* data, DWORD* size);
// Refuses the identifiers that the type of the context can't have set.
[[nodiscard]] bool SetContextProperty(ContextRecord& context, DWORD id, const void* data);

// The identifier behind `id`, or the first for 0; 0 at the end, and when there is no such item.
DWORD NextProperty(ContextRecord& context, DWORD id);

}  // namespace certkern

#endif
