#include "certkern/chain/chain_records.h"

#include <cstring>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/crl_facts.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

std::shared_ptr<const CrlFacts> CrlFactsOf(PCCRL_CONTEXT context) {
  StoreElement& element = ElementOfBytes(context->pbCrlEncoded);
  ElementFacts facts = FactsOf(element);
  if (!facts) facts = KeepFacts(element, MakeCrlFacts(context));
  return std::static_pointer_cast<const CrlFacts>(facts);
}

}  // namespace

bool EncodedLess::operator()(std::span<const BYTE> a, std::span<const BYTE> b) const {
  if (a.size() != b.size()) return a.size() < b.size();
  return !a.empty() && std::memcmp(a.data(), b.data(), a.size()) < 0;
}

CertRecord& InternedRecords::certificate(PCCERT_CONTEXT context, bool trusted) {
  if (const auto known = certificates_.find({context->pbCertEncoded, context->cbCertEncoded});
      known != certificates_.end()) {
    CertRecord& record = *known->second;
    if (trusted && !record.trusted) {
      record.trusted = true;
      ++trustGained_;
    }
    return record;
  }
  auto record = std::make_unique<CertRecord>();
  record->context.reset(CertDuplicateCertificateContext(context));
  if (!record->context) ThrowLastError();
  record->facts = CertFactsOf(context);
  record->sequence = next_++;
  record->trusted = trusted;
  const std::span<const BYTE> key = record->encoded();
  return *certificates_.emplace(key, std::move(record)).first->second;
}

CrlRecord& InternedRecords::crl(PCCRL_CONTEXT context) {
  if (const auto known = crls_.find({context->pbCrlEncoded, context->cbCrlEncoded}); known != crls_.end()) {
    return *known->second;
  }
  auto record = std::make_unique<CrlRecord>();
  record->context.reset(CertDuplicateCRLContext(context));
  if (!record->context) ThrowLastError("certkern/ChainBase");
  record->facts = CrlFactsOf(context);
  record->sequence = next_++;
  const std::span<const BYTE> key = record->encoded();
  return *crls_.emplace(key, std::move(record)).first->second;
}

}  // namespace certkern
