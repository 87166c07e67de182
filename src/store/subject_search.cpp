#include "store/subject_search.h"

#include <certkern/errors.h>

#include "store/find.h"
#include "store/store_kind.h"

namespace certkern {
namespace {

class SubjectQuery final : public ElementQuery {
 public:
  explicit SubjectQuery(const NormalName& subject) : subject_(subject) {}
  ElementType type() const override { return ElementType::Certificate; }
  Found matches(StoreElement& element, ContextOwner& context) const override {
    context.reset(AcquireContext(element));
    if (!context) return Found::Failed;
    const CERT_NAME_BLOB& name = context->certificate.pCertInfo->Subject;
    return NormalName({name.pbData, name.cbData}).equals(subject_) ? Found::Yes : Found::No;
  }
  std::optional<IndexQuestion> question() const override { return AskSubject(subject_); }

 private:
  const NormalName& subject_;
};

}  // namespace

PCCERT_CONTEXT FindCertificateBySubject(HCERTSTORE handle, const NormalName& subject,
                                        PCCERT_CONTEXT previous) {
  const ContextOwner from(FindLiveContext(previous));
  CertStore& store = *AsStore(handle);
  if (!subject.decoded()) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return nullptr;
  }
  // a store that follows its file by itself does so where a search begins
  if (!from && store.autoResync && !ControlStore(store, 0, CERT_STORE_CTRL_RESYNC, nullptr)) return nullptr;
  ContextOwner found = FindInMembers(store, SubjectQuery(subject), from.get());
  return found ? found.release()->asCertificate() : nullptr;
}

}  // namespace certkern
