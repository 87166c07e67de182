// Searching stores: one walk over members and elements, and what it asks each element.
//
// A search gives one context and holds no lock afterwards; it goes on behind the element of a previous context, wherever
// that element is meanwhile. A store is locked while its elements are looked at, decoding included.
#ifndef CERTKERN_STORE_FIND_H
#define CERTKERN_STORE_FIND_H

#include <certkern/find.h>

#include <optional>

#include "store/context_record.h"
#include "store/existing_element.h"
#include "store/store_index.h"
#include "store/store_record.h"

namespace certkern {

// What is looked for. It borrows what the caller gave.
class ElementQuery {
 public:
  virtual ~ElementQuery() = default;
  virtual ElementType type() const = 0;
  // Failed with a code ends the search of this store. Whoever needs a context of the element to answer leaves it in
  // `context`, for it is wanted again if the answer is yes. The caller holds the store's lock.
  virtual Found matches(StoreElement& element, ContextOwner& context) const = 0;
  virtual bool seesArchived() const { return false; }
  // Where the store's index has the elements that can match; empty: all are looked at.
  virtual std::optional<IndexQuestion> question() const { return {}; }
};

// The newest match behind `previous`, an element of this store (null: of all). Failed with a code.
Found FindInStore(CertStore& store, const ElementQuery& query, const StoreElement* previous,
                  ContextOwner& found);
// The same in each member, from that of the previous context on. A member that fails ends nothing but its own search.
// Empty with CRYPT_E_NOT_FOUND.
ContextOwner FindInMembers(CertStore& store, const ElementQuery& query, const ContextRecord* previous);

// CertFindCertificateInStore. Empty with a code.
struct CertificateRequest {
  DWORD encoding;
  DWORD flags;
  DWORD type;
  const void* parameter;
};
ContextOwner FindCertificate(CertStore& store, const CertificateRequest& request,
                             const ContextRecord* previous);
// CertGetSubjectCertificateFromStore.
ContextOwner FindByIssuerAndSerial(CertStore& store, DWORD encoding, const CERT_INFO& id);

// CertFindCRLInStore. Empty with a code.
ContextOwner FindCrl(CertStore& store, DWORD type, const void* parameter, const ContextRecord* previous);

}  // namespace certkern

#endif
