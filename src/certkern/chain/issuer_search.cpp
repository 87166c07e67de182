#include "certkern/chain/issuer_search.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/oids.h>
#include <certkern/url.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/engine.h"
#include "certkern/chain/memory_check.h"
#include "platform/text_conversion.h"
#include "store/certificate_primitives.h"
#include "store/subject_search.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// A root ends the search, so it goes before all others; what is decided already costs less than what is not.
constexpr int kTrustedRootScore = 10;
constexpr int kCrlCheckedScore = 3;

// Where the answer can't matter, nobody asks if the certificate is self-signed.
int ScoreOf(const CertRecord& record, BuildBudget& budget) {
  if (!record.trusted && !record.crlChecked) return 0;
  const int decided = record.crlChecked ? kCrlCheckedScore : 0;
  if (!IsSelfSigned(record, budget)) return decided;
  return record.trusted ? kTrustedRootScore + decided : 0;
}

using CertificateStep = PCCERT_CONTEXT (*)(HCERTSTORE store, const IssuerKey& key, PCCERT_CONTEXT previous);

PCCERT_CONTEXT NextByKeyId(HCERTSTORE store, const IssuerKey& key, PCCERT_CONTEXT previous) {
  const CRYPT_HASH_BLOB keyId{static_cast<DWORD>(key.keyId.size()), const_cast<BYTE*>(key.keyId.data())};
  return CertFindCertificateInStore(store, kEncoding, 0, CERT_FIND_KEY_IDENTIFIER, &keyId, previous);
}

PCCERT_CONTEXT NextBySubject(HCERTSTORE store, const IssuerKey& key, PCCERT_CONTEXT previous) {
  return FindCertificateBySubject(store, *key.issuer, previous);
}

bool SerialExcludes(const IssuerKey& key, PCCERT_CONTEXT context) {
  if (!key.keyId.empty() || key.serial.empty()) return false;
  const CRYPT_INTEGER_BLOB& serial = context->pCertInfo->SerialNumber;
  return !std::ranges::equal(std::span(serial.pbData, serial.cbData), key.serial);
}

std::vector<CertRecord*> SearchStore(const StoreRef& store, const IssuerKey& key, InternedRecords& records) {
  const CertificateStep next = key.keyId.empty() ? NextBySubject : NextByKeyId;
  std::vector<CertRecord*> found;
  CertificateOwner each;
  // a search takes its start, whatever comes of it
  while (
      each = CheckingMemory([&] { return CertificateOwner(next(store.store.get(), key, each.release())); }),
      each) {
    if (!SerialExcludes(key, each.get())) found.push_back(&records.certificate(each.get(), store.trusted));
  }
  return found;
}

StoreOwner Retrieve(const std::string& url, DWORD flags, uint64_t milliseconds) {
  HCERTSTORE store = nullptr;
  const auto timeout = static_cast<DWORD>(std::min<uint64_t>(milliseconds, kMaxInterfaceSize));
  const BOOL came = CheckingMemory([&] {
    return CryptRetrieveObjectByUrlA(url.c_str(), CONTEXT_OID_CERTIFICATE,
                                     flags | CRYPT_RETRIEVE_MULTIPLE_OBJECTS, timeout, &store, nullptr,
                                     nullptr, nullptr, nullptr);
  });
  return StoreOwner(came ? store : nullptr);
}

// At most kMaxChainBundleCertificates: a server must not fill our memory, nor the user's store.
std::vector<CertificateOwner> CertificatesOf(const StoreOwner& bundle) {
  std::vector<CertificateOwner> certificates;
  PCCERT_CONTEXT each = nullptr;
  while ((each = CheckingMemory([&] { return CertEnumCertificatesInStore(bundle.get(), each); }))) {
    if (certificates.size() == kMaxChainBundleCertificates) {
      CertFreeCertificateContext(each);
      break;
    }
    certificates.emplace_back(CertDuplicateCertificateContext(each));
  }
  return certificates;
}

// So that the next build finds them without the network; where the store can't be opened, it won't.
void KeepForUser(const std::vector<CertRecord*>& issuers) {
  const StoreOwner store(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, kEncoding, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"CA"));
  if (!store) return;
  for (CertRecord* const each : issuers) {
    CertAddCertificateContextToStore(store.get(), each->context.get(), CERT_STORE_ADD_USE_EXISTING, nullptr);
    each->isFromWire = false;
  }
}

bool IsIssuerUrl(const CERT_ACCESS_DESCRIPTION& description) {
  return description.pszAccessMethod && std::strcmp(description.pszAccessMethod, szOID_PKIX_CA_ISSUERS) == 0
      && description.AccessLocation.dwAltNameChoice == CERT_ALT_NAME_URL;
}

}  // namespace

IssuerKey IssuerKeyOf(const CertRecord& subject) {
  const CertFacts& facts = *subject.facts;
  return {&facts.issuer, facts.authorityKeyIdBytes(), facts.authoritySerial()};
}

bool IsIssuerByKey(const IssuerKey& key, const CertRecord& issuer) {
  const CertFacts& facts = *issuer.facts;
  if (key.keyId.empty()) return facts.subject.equals(*key.issuer);
  return facts.subjectKeyId && std::ranges::equal(*facts.subjectKeyId, key.keyId);
}

bool BearsIssuerName(const IssuerKey& key, const CertRecord& issuer) {
  return issuer.facts->subject.equals(*key.issuer);
}

std::vector<std::string> IssuerUrls(const CertRecord& subject) {
  std::vector<std::string> urls;
  const CERT_AUTHORITY_INFO_ACCESS* const access = subject.facts->authorityInfoAccess.get();
  if (!access) return urls;
  for (const CERT_ACCESS_DESCRIPTION& each : AsSpan(access->rgAccDescr, access->cAccDescr)) {
    if (urls.size() == kMaxChainIssuerUrls) break;
    if (!IsIssuerUrl(each)) continue;
    const LPCWSTR text = each.AccessLocation.pwszURL;
    if (const ByteText url = CheckingMemory([&] { return BytesFromWide(text, CP_ACP); }))
      urls.emplace_back(url.get());
  }
  return urls;
}

IssuerCandidates::IssuerCandidates(const IssuerKey& key, const Chain& path, BuildBudget& budget)
    : key_(key), budget_(budget) {
  for (const ChainNode& node : path) known_.insert(node.record);
}

void IssuerCandidates::offer(CertRecord& record) {
  const bool named = BearsIssuerName(key_, record);
  if (known_.insert(&record).second) {
    found_.push_back({.record = &record, .named = named});
  } else if (!record.trusted && record.facts->selfSigned != TriState::No) {
    found_.push_back({.record = &record, .named = named, .repeated = true});
  }
}

bool IssuerCandidates::hasAskedSerial(const CertRecord& record) const {
  if (key_.serial.empty()) return false;
  const CRYPT_INTEGER_BLOB& serial = record.info().SerialNumber;
  return std::ranges::equal(std::span(serial.pbData, serial.cbData), key_.serial);
}

// Scores are made here, as a record may have become trusted since it was offered.
std::vector<IssuerCandidate> IssuerCandidates::take() {
  std::erase_if(found_, [](const IssuerCandidate& each) { return each.repeated && each.record->trusted; });
  for (IssuerCandidate& each : found_) {
    each.vain = each.record->facts->triedInVain && !each.record->facts->hasSigned;
    if (each.named && !each.repeated) each.score = ScoreOf(*each.record, budget_);
  }
  std::ranges::stable_sort(found_, std::greater(), [this](const IssuerCandidate& each) {
    return std::tuple(each.named, each.score, !each.vain, hasAskedSerial(*each.record));
  });
  if (found_.size() > kMaxChainCandidates) {
    found_.resize(kMaxChainCandidates);
    budget_.passedOver = true;
  }
  found_.shrink_to_fit();
  known_ = {};
  return std::move(found_);
}

void ChainBuilder::findIssuers(const IssuerKey& key, IssuerCandidates& candidates) {
  for (const auto& [encoded, record] : records->certificates()) {
    if (!IsIssuerByKey(key, *record)) continue;
    trace.line("Found at attached list:");
    trace.certificate(record->context.get());
    candidates.offer(*record);
  }
  for (const StoreRef& store : certStores) {
    for (CertRecord* const record : issuersInStore(store, key)) {
      trace.line("Found at store ", static_cast<const void*>(store.store.get()), ":");
      trace.certificate(record->context.get());
      candidates.offer(*record);
    }
  }
}

const std::vector<CertRecord*>& ChainBuilder::issuersInStore(const StoreRef& store, const IssuerKey& key) {
  const auto bytes = [](std::span<const BYTE> span) { return std::string(span.begin(), span.end()); };
  // by key identifier nothing else is looked at; a name that does not decode finds nothing
  std::string question =
      key.keyId.empty() ? 'n' + bytes(key.serial) + '/' + key.issuer->key() : 'k' + bytes(key.keyId);
  std::pair asked(store.store.get(), std::move(question));
  const auto known = storeSearches.find(asked);
  if (known != storeSearches.end()) return known->second;
  return storeSearches.emplace(std::move(asked), SearchStore(store, key, *records)).first->second;
}

bool ChainBuilder::loadUrl(const std::string& url, IssuerCandidates& candidates, DWORD retrievalFlags) {
  if (hasFlag(CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL)) retrievalFlags |= CRYPT_CACHE_ONLY_RETRIEVAL;
  const bool onWire = !(retrievalFlags & CRYPT_CACHE_ONLY_RETRIEVAL);
  const uint64_t milliseconds = onWire ? wireBudget() : retrievalBudget();
  if (!milliseconds) return false;
  if (onWire && budget->wireRetrievals++ >= kMaxChainRetrievals) return false;
  const auto start = std::chrono::steady_clock::now();
  const StoreOwner bundle = Retrieve(url, retrievalFlags, milliseconds);
  const auto elapsed = static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
          .count());
  addRetrievalTime(elapsed);
  if (onWire) addWireTime(elapsed);
  if (!bundle) {
    SetLastError(ERROR_SUCCESS);
    return false;
  }
  for (const CertificateOwner& each : CertificatesOf(bundle)) {
    const uint64_t before = records->version();
    CertRecord& record = records->certificate(each.get(), false);
    // what was known before lies in a store, or in the cache
    if (onWire && records->version() != before) record.isFromWire = true;
    trace.line("Downloaded: ");
    trace.certificate(each.get());
    if (IsIssuerByKey(candidates.key(), record) && BearsIssuerName(candidates.key(), record))
      candidates.offer(record);
  }
  return true;
}

void ChainBuilder::keepWireIssuers() {
  std::vector<CertRecord*> issuers;
  const CertRecord* issuer = nullptr;  // of the node that is looked at: the front is the root
  for (const ChainNode& node : chain) {
    if (issuer) {
      const auto held = node.record->signatures.find(issuer);
      if (held == node.record->signatures.end() || !held->second) return;
    }
    issuer = node.record;
    if (&node != &chain.back() && node.record->isFromWire) issuers.push_back(node.record);
  }
  if (!issuers.empty()) KeepForUser(issuers);
}

bool ChainBuilder::isWireAllowed() const {
  constexpr DWORD kAnyRevocation = CERT_CHAIN_REVOCATION_CHECK_END_CERT | CERT_CHAIN_REVOCATION_CHECK_CHAIN
      | CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT;
  return !hasFlag(hasFlag(kAnyRevocation) ? CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY
                                          : CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL);
}

uint64_t ChainBuilder::retrievalBudget() const {
  if (!hasFlag(CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT)) return urlTimeoutMs;
  return usedUrlMs < urlTimeoutMs ? (urlTimeoutMs - usedUrlMs) >> 1 : 0;
}

uint64_t ChainBuilder::wireBudget() const {
  const uint64_t all = ConfiguredWireTimeout();
  return budget->wireMs < all ? std::min(retrievalBudget(), all - budget->wireMs) : 0;
}

void ChainBuilder::addWireTime(uint64_t milliseconds) { budget->wireMs += milliseconds; }

void ChainBuilder::addRetrievalTime(uint64_t milliseconds) {
  if (hasFlag(CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT)) usedUrlMs += milliseconds;
}

}  // namespace certkern
