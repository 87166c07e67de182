#include "certkern/chain/crl_collection.h"

#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/revocation.h>
#include <certkern/url.h>

#include <algorithm>
#include <chrono>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/memory_check.h"
#include "url/url_cache.h"

namespace certkern {
namespace {

bool IsBefore(const FILETIME& one, const FILETIME& other) { return CompareFileTime(&one, &other) < 0; }

// Whether a downloaded list will do as it is, so that no other source need be asked.
bool IsFinal(const CrlRecord& crl, const FILETIME& now) {
  return IsBefore(now, crl.info().NextUpdate) && IsBefore(crl.info().ThisUpdate, now)
      && !crl.facts->freshestCrl;
}

// What the cache has under a URL and is valid now.
ContextOwner CachedCrl(const std::string& url) {
  const UrlCacheHandle cache = CheckingMemory([] { return UrlCacheSingleton(ElementType::Crl); });
  if (!cache) return {};
  std::optional<CachedObject> found = CheckingMemory([&] { return cache->find(url); });
  return found && IsValidNow(*found->context.get()) ? std::move(found->context) : ContextOwner();
}

CrlRecord* FindCached(ChainBuilder& builder, const std::vector<std::string>& urls) {
  if (!builder.retrievalBudget()) return nullptr;
  for (const std::string& url : urls) {
    if (const ContextOwner found = CachedCrl(url)) {
      CrlRecord& record = builder.records->crl(found->asCrl());
      record.urls.insert(url);
      return &record;
    }
  }
  return nullptr;
}

CrlOwner Retrieve(const std::string& url, uint64_t milliseconds) {
  void* crl = nullptr;
  const auto timeout = static_cast<DWORD>(std::min<uint64_t>(milliseconds, kMaxInterfaceSize));
  if (CheckingMemory([&] {
        return CryptRetrieveObjectByUrlA(url.c_str(), CONTEXT_OID_CRL,
                                         CRYPT_WIRE_ONLY_RETRIEVAL | CRYPT_DONT_CACHE_RESULT, timeout, &crl,
                                         nullptr, nullptr, nullptr, nullptr);
      })) {
    return CrlOwner(static_cast<PCCRL_CONTEXT>(crl));
  }
  SetLastError(ERROR_SUCCESS);
  return {};
}

// Null where nothing comes, or the budgets of time and retrievals are spent.
CrlRecord* FromWire(ChainBuilder& builder, const std::string& url) {
  const auto known = builder.records->wireLists.find(url);
  if (known != builder.records->wireLists.end()) return known->second;
  const uint64_t milliseconds = builder.wireBudget();
  if (!milliseconds || builder.budget->wireRetrievals >= kMaxChainRetrievals) return nullptr;
  ++builder.budget->wireRetrievals;
  const auto start = std::chrono::steady_clock::now();
  const CrlOwner crl = Retrieve(url, milliseconds);
  const auto elapsed = static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
          .count());
  builder.addRetrievalTime(elapsed);
  builder.addWireTime(elapsed);
  if (!crl) builder.trace.line("Can't load ", url);
  CrlRecord* const record = crl ? &builder.records->crl(crl.get()) : nullptr;
  if (record) record->wireUrls.insert(url);
  builder.records->wireLists.emplace(url, record);
  return record;
}

// From the network first, as what is cached may be over. The last that came, if none will do as it is: it may still do
// with a delta. What can't be fetched stays as it is cached.
CrlRecord* Download(ChainBuilder& builder, const std::vector<std::string>& urls) {
  CrlRecord* last = nullptr;
  for (const std::string& url : urls) {
    CrlRecord* const crl = FromWire(builder, url);
    if (!crl) continue;
    last = crl;
    if (IsFinal(*last, builder.now)) break;
  }
  return last ? last : FindCached(builder, urls);
}

CrlRecord* Fetch(ChainBuilder& builder, const std::vector<std::string>& urls, CrlSource source) {
  if (source == CrlSource::Cache || builder.hasFlag(CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY))
    return FindCached(builder, urls);
  return Download(builder, urls);
}

bool IsOfIssuer(const CrlRecord& crl, const CertFacts& cert) {
  if (!crl.facts->issuer.equals(cert.issuer)) return false;
  const std::span<const BYTE> keyId = cert.authorityKeyIdBytes();
  return keyId.empty() || std::ranges::equal(AuthorityKeyIdBytes(*crl.facts), keyId);
}

bool Continues(const CrlFacts& delta, const CrlFacts& base) {
  return delta.isDelta && delta.hasNumber && delta.baseNumber <= base.number && delta.number >= base.number;
}

std::pair<std::string, std::string> DeltaKeyOf(const CrlFacts& crl) {
  const auto text = [](std::span<const BYTE> bytes) { return std::string(bytes.begin(), bytes.end()); };
  return {text(AuthorityKeyIdBytes(crl)), text(crl.rawIssuer)};
}

// Whether the cache is to stay as it is: it has this very list, or a newer one whose signer was verified too.
bool IsKeptAlready(const CachedObject& cached, const CrlRecord& crl, const InternedRecords& records) {
  const CRL_CONTEXT& context = *cached.context->asCrl();
  const auto known = records.crls().find({context.pbCrlEncoded, context.cbCrlEncoded});
  if (known == records.crls().end()) return false;
  const CrlRecord& kept = *known->second;
  return &kept == &crl || (kept.signer && NewestFirst()(&kept, &crl));
}

}  // namespace

void KeepInCache(CrlRecord& crl, const InternedRecords& records) {
  if (crl.wireUrls.empty()) return;
  const LastErrorKeeper keeper;
  try {
    const UrlCacheHandle cache = UrlCacheSingleton(ElementType::Crl);
    ContextRecord* const context = FindLiveContext(crl.context.get());
    for (const std::string& url : std::exchange(crl.wireUrls, {})) {
      if (!cache || !context) return;
      const std::optional<CachedObject> cached = cache->find(url);
      const bool isThere = cached && IsKeptAlready(*cached, crl, records);
      if (!isThere && cache->add(url, {}, *context) == ERROR_SUCCESS) crl.urls.insert(url);
    }
  } catch (const std::bad_alloc&) {
    // the verdict stands without the cache
  }
}

bool NewestFirst::operator()(const CrlRecord* a, const CrlRecord* b) const {
  const LONG order = CompareFileTime(&a->info().ThisUpdate, &b->info().ThisUpdate);
  return order ? order > 0 : a->sequence < b->sequence;
}

bool TakeCrlStep(BuildBudget& budget) {
  if (budget.crlSteps >= kMaxChainCrlSteps) return false;
  ++budget.crlSteps;
  return true;
}

bool IsCurrent(const CRL_INFO& crl, const FILETIME& moment) {
  return !IsBefore(crl.NextUpdate, moment) && !IsBefore(moment, crl.ThisUpdate);
}

void CrlCollection::file(CrlRecord& crl) {
  if (crl.facts->isDelta) {
    deltas_[DeltaKeyOf(*crl.facts)].insert(&crl);
  } else {
    bases_.insert(&crl);
  }
}

void CrlCollection::addKnown() {
  for (const auto& [encoded, record] : builder_.records->crls()) {
    if (IsOfIssuer(*record, *cert_.facts) && TakeCrlStep(*builder_.budget)) file(*record);
  }
  CRL_FIND_ISSUED_FOR_PARA whose{cert_.context.get(), nullptr};
  for (const StoreRef& store : builder_.crlStores) {
    CrlOwner each;
    // a search takes its start, whatever comes of it
    while (each = CheckingMemory([&] {
             return CrlOwner(
                 CertFindCRLInStore(store.store.get(), 0, 0, CRL_FIND_ISSUED_FOR, &whose, each.release()));
           }),
           each) {
      if (!TakeCrlStep(*builder_.budget)) return;
      file(builder_.records->crl(each.get()));
    }
  }
}

void CrlCollection::addFrom(const CRL_DIST_POINTS_INFO* points, CrlSource source) {
  for (const std::vector<std::string>& urls : UrlsOfPoints(points)) {
    if (CrlRecord* const crl = Fetch(builder_, urls, source)) file(*crl);
  }
}

void CrlCollection::addFromPoints(CrlSource source) {
  addFrom(cert_.facts->crlDistPoints.get(), source);
  addFrom(cert_.facts->freshestCrl.get(), source);
}

NewestCrls CrlCollection::deltasOf(const CrlRecord& base, CrlSource source) {
  addFrom(base.facts->freshestCrl.get(), source);
  NewestCrls deltas;
  const auto known = deltas_.find(DeltaKeyOf(*base.facts));
  if (known == deltas_.end()) return deltas;
  std::ranges::copy_if(known->second, std::inserter(deltas, deltas.end()), [&](const CrlRecord* delta) {
    return TakeCrlStep(*builder_.budget) && Continues(*delta->facts, *base.facts)
        && IsCurrent(delta->info(), builder_.now);
  });
  return deltas;
}

}  // namespace certkern
