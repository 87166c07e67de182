// A finished chain put together by hand: policies look at what a chain says, not at how it came about.
#ifndef CERTKERN_TESTS_POLICY_MADE_CHAIN_H
#define CERTKERN_TESTS_POLICY_MADE_CHAIN_H

#include <certkern/policy.h>

#include <deque>
#include <initializer_list>
#include <vector>

#include "store/sample_objects.h"

namespace certkern::test {

// A record of the published kind, with its size and nothing else.
template <class Record>
Record Sized() {
  Record record{};
  record.cbSize = sizeof record;
  return record;
}

class MadeChain {
 public:
  // The end certificate first.
  MadeChain(DWORD errorStatus, std::initializer_list<Bytes> certificates) {
    for (const Bytes& encoded : certificates) add(encoded);
    simple_ = Sized<CERT_SIMPLE_CHAIN>();
    simple_.TrustStatus.dwErrorStatus = errorStatus;
    simple_.cElement = static_cast<DWORD>(pointers_.size());
    simple_.rgpElement = pointers_.data();
    context_.cbSize = sizeof context_;
    context_.TrustStatus.dwErrorStatus = errorStatus;
    context_.cChain = 1;
    context_.rgpChain = &path_;
  }
  MadeChain(const MadeChain&) = delete;
  MadeChain& operator=(const MadeChain&) = delete;

  PCCERT_CHAIN_CONTEXT get() const { return &context_; }
  CERT_CHAIN_ELEMENT& element(size_t index) { return elements_[index]; }
  PCERT_CHAIN_ELEMENT& slot(size_t index) { return pointers_[index]; }
  CERT_CHAIN_CONTEXT& context() { return context_; }

 private:
  void add(const Bytes& encoded) {
    contexts_.push_back(CreateCertificate(encoded));
    elements_.push_back(Sized<CERT_CHAIN_ELEMENT>());
    elements_.back().pCertContext = contexts_.back().get();
    pointers_.push_back(&elements_.back());
  }

  std::deque<CertificateHandle> contexts_;
  std::deque<CERT_CHAIN_ELEMENT> elements_;
  std::vector<PCERT_CHAIN_ELEMENT> pointers_;
  CERT_SIMPLE_CHAIN simple_{};
  PCERT_SIMPLE_CHAIN path_ = &simple_;
  CERT_CHAIN_CONTEXT context_{};
};

}  // namespace certkern::test

#endif
