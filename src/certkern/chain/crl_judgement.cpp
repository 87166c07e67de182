#include "certkern/chain/crl_judgement.h"

#include <certkern/encode.h>
#include <certkern/oids.h>
#include <certkern/url.h>

#include <algorithm>
#include <tuple>

#include "certkern/chain/attempt.h"
#include "certkern/chain/cert_facts.h"
#include "certkern/chain/good_verdicts.h"
#include "certkern/chain/issuer_search.h"
#include "platform/supkern.h"
#include "store/certificate_primitives.h"
#include "store/crl_entries.h"
#include "url/url_cache.h"

namespace certkern {
namespace {

constexpr BYTE kCrlSign = 0x02;  // in the first byte of the key usage

// All searches of a build draw on one budget: a look at each candidate, and a step for each whose signature holds.
bool TakeLook(BuildBudget& budget) {
  if (budget.candidateSteps >= kMaxChainCandidateSteps || budget.candidateLooks >= kMaxChainCandidateLooks)
    return false;
  ++budget.candidateLooks;
  return true;
}

bool IsKeyMatchForced() {
  static const bool forced = [] {
    int64_t value = 0;
    return support_registry_get_long("\\config\\Parameters\\ForceMicrosoftCRLMatching", &value) == 0
        && value != 0;
  }();
  return forced;
}

// A list that its issuer has not signed must not stay in the cache until its own next update, whoever has put it there.
void DropFromCache(CrlRecord& crl) {
  for (const std::string& url : crl.urls) DropFromUrlCache(ElementType::Crl, url, crl.encoded());
  crl.urls.clear();
}

bool IsSameScope(const CrlFacts& delta, const CrlFacts& base) {
  return delta.issuer.equals(base.issuer) && delta.rawIssuingDistPoint == base.rawIssuingDistPoint
      && delta.rawAuthorityKeyId == base.rawAuthorityKeyId;
}

bool MaySignCrls(const CertFacts& signer) {
  const CRYPT_BIT_BLOB* const usage = signer.keyUsage.get();
  return !usage || !usage->cbData || (usage->pbData[0] & kCrlSign);
}

// A code that is none counts as no reason, not as no revocation.
DWORD ReasonOf(const CRL_ENTRY& entry) {
  const auto code = DecodeExtension<int>(AsSpan<const CERT_EXTENSION>(entry.rgExtension, entry.cExtension),
                                         szOID_CRL_REASON_CODE, X509_CRL_REASON_CODE);
  return code && *code >= 0 && *code <= CRL_REASON_AA_COMPROMISE ? static_cast<DWORD>(*code)
                                                                 : CRL_REASON_UNSPECIFIED;
}

ReasonSet ReasonsInCommon(const CrlRecord& crl, const CRL_DIST_POINT* point) {
  const CRL_ISSUING_DIST_POINT* const issuing = crl.facts->issuingDistPoint.get();
  const ReasonSet ofCrl = issuing ? ReasonsOf(issuing->OnlySomeReasonFlags) : kAllReasons;
  return ofCrl & (point ? ReasonsOf(point->ReasonFlags) : kAllReasons);
}

void KeepUsed(CertRecord& cert, const CrlPair& pair) {
  const auto key = [](const CrlPair& each) {
    return std::tuple(each.base->sequence, each.delta != nullptr, each.delta ? each.delta->sequence : 0);
  };
  const auto at = std::ranges::lower_bound(cert.usedCrls, key(pair), {}, key);
  if (at == cert.usedCrls.end() || key(*at) != key(pair)) cert.usedCrls.insert(at, pair);
}

}  // namespace

RevocationResult JudgeByCrls(ChainBuilder& clone, CertRecord& cert) {
  return CrlJudgement(clone, cert).decide();
}

RevocationResult CrlJudgement::decide() {
  builder_.trace.line("Searching certificate in crl.");
  issuer_ = findIssuer();
  if (!issuer_) return kUndetermined;
  CrlCollection crls(builder_, cert_);
  crls.addKnown();
  crls.addFromPoints(CrlSource::Cache);
  if (judgeAll(crls, CrlSource::Cache) == kNotRevoked) return kNotRevoked;
  // whatever stood in the cache, also a revocation, may be over
  builder_.chain.clear();
  crls.addFromPoints(CrlSource::CacheOrWire);
  return judgeAll(crls, CrlSource::CacheOrWire);
}

const CertRecord* CrlJudgement::findIssuer() {
  const IssuerKey key = IssuerKeyOf(cert_);
  const auto choose = [this](IssuerCandidates& candidates) -> const CertRecord* {
    for (const IssuerCandidate& each : candidates.take()) {
      if (each.repeated || !each.named) continue;
      if (!TakeLook(*builder_.budget)) return nullptr;
      if (builder_.isTimeValid(each.record->info()) && IsInKeyPeriod(cert_.info().NotBefore, *each.record)
          && SignatureBy(*each.record, cert_, *builder_.budget) == SignatureVerdict::Good) {
        ++builder_.budget->candidateSteps;
        return each.record;
      }
    }
    return nullptr;
  };
  const std::vector<std::string> urls = IssuerUrls(cert_);
  std::vector<std::string> uncached;
  IssuerCandidates candidates(key, builder_.chain, *builder_.budget);
  builder_.findIssuers(key, candidates);
  for (const std::string& url : urls) {
    if (!builder_.loadUrl(url, candidates, CRYPT_CACHE_ONLY_RETRIEVAL)) uncached.push_back(url);
  }
  if (!urls.empty()) builder_.trace.line("AIA urls ", urls.size(), ". Not found in cache ", uncached.size());
  const CertRecord* found = choose(candidates);
  if (!builder_.isWireAllowed()) return found;
  for (const std::string& url : uncached) {
    if (found) break;
    IssuerCandidates loaded(key, builder_.chain, *builder_.budget);
    if (builder_.loadUrl(url, loaded, CRYPT_WIRE_ONLY_RETRIEVAL)) {
      found = choose(loaded);
    } else {
      builder_.trace.line("Can't load ", url);
    }
  }
  return found;
}

RevocationResult CrlJudgement::judgeAll(CrlCollection& crls, CrlSource source) {
  counter_ = 0;
  if (cert_.facts->crlDistPoints) {
    const RevocationResult result = runStage(Stage::OfPoints, crls, source);
    if (result != kNotRevoked) {
      traceResult(result);
      return result;
    }
    if (reasons_ == kAllReasons) {
      cert_.crlChecked = true;
      builder_.goodVerdicts->checkedForGood();
      traceResult(result);
      return result;
    }
  }
  CrlCollection known(builder_, cert_);
  known.addKnown();
  const RevocationResult result = runStage(Stage::Known, known, source);
  const bool isCovered = result != kNotRevoked || reasons_ == kAllReasons;
  traceResult(isCovered ? result : kUndetermined);
  return isCovered ? result : kUndetermined;
}

void CrlJudgement::traceResult(const RevocationResult& result) const {
  builder_.trace.line(result == kUndetermined     ? "Certificate crl status undetermined."
                          : result == kNotRevoked ? "Certificate not found at crl."
                                                  : "Certificate found at crl.");
}

// Over what was collected before: the deltas' points may lead to further lists, which the next pass will see.
RevocationResult CrlJudgement::runStage(Stage stage, CrlCollection& crls, CrlSource source) {
  reasons_ = 0;
  isUnknown_ = false;
  RevocationResult result = kNotRevoked;
  for (CrlRecord* const crl : std::vector(crls.bases().begin(), crls.bases().end())) {
    if (!TakeCrlStep(*builder_.budget)) break;
    ++counter_;
    trace("Verifing certificate in crl");
    if (!Attempt(builder_.trace, "Verify_Certificate_InCrlLoop", [&] {
          result = judgeCrl(stage, *crl, crls, source);
          return true;
        })) {
      result = kNotRevoked;
    }
    if (result == kNotRevoked && isUnknown_) return kUndetermined;
    if (result != kNotRevoked || reasons_ == kAllReasons) break;
  }
  return result;
}

RevocationResult CrlJudgement::judgeCrl(Stage stage, CrlRecord& crl, CrlCollection& crls, CrlSource source) {
  const bool withDelta = needsDelta(crl);
  if (!withDelta && !IsCurrent(crl.info(), builder_.now)) {
    trace("Crl is not time valid");
    return kNotRevoked;
  }
  if (!isSignedAsNeeded(crl)) {
    trace("Crl is not signed by the certificate issuer");
    return kNotRevoked;
  }
  NewestCrls deltas;
  if (withDelta) {
    deltas = crls.deltasOf(crl, source);
    if (deltas.empty()) return kNotRevoked;
  }
  return stage == Stage::OfPoints ? judgeInAllPoints(crl, deltas) : judgeInCrl(crl, deltas, nullptr);
}

// A base that has deltas need not be valid now itself, so that it must never be used without one.
bool CrlJudgement::needsDelta(const CrlRecord& crl) const {
  return cert_.facts->freshestCrl || crl.facts->freshestCrl;
}

bool CrlJudgement::holds(SignatureVerdict verdict) {
  if (verdict == SignatureVerdict::Failed || verdict == SignatureVerdict::NotAffordable) isUnknown_ = true;
  return verdict == SignatureVerdict::Good;
}

bool CrlJudgement::isSignedAsNeeded(CrlRecord& crl) {
  const CrlKeyMatch match = crl.facts->keyMatch;
  const bool needed =
      match == CrlKeyMatch::Needed || (match == CrlKeyMatch::AsConfigured && IsKeyMatchForced());
  if (!needed || holds(SignatureByKeyOf(*issuer_, crl, *builder_.budget))) return true;
  if (!crl.urls.empty()) static_cast<void>(findSigner(crl));  // one that nobody has signed leaves the cache
  return false;
}

RevocationResult CrlJudgement::judgeInAllPoints(CrlRecord& crl, const NewestCrls& deltas) {
  const CRL_DIST_POINTS_INFO& points = *cert_.facts->crlDistPoints;
  RevocationResult result = kNotRevoked;
  const DWORD count = std::min<DWORD>(points.cDistPoint, kMaxChainCrlPoints);
  for (const CRL_DIST_POINT& point : AsSpan(points.rgDistPoint, count)) {
    if (!TakeCrlStep(*builder_.budget)) break;
    if (!Attempt(builder_.trace, "Verify_Certificate_InCrlInAllDP", [&] {
          result = judgeInCrl(crl, deltas, &point);
          return true;
        })) {
      result = kNotRevoked;
    }
    if (result != kNotRevoked || reasons_ == kAllReasons) break;
  }
  return result;
}

RevocationResult CrlJudgement::judgeInCrl(CrlRecord& crl, const NewestCrls& deltas,
                                          const CRL_DIST_POINT* point) {
  if (!isInScope(crl, point)) return kNotRevoked;
  const ReasonSet interim_reasons_mask = ReasonsInCommon(crl, point);
  if (!(interim_reasons_mask & ~reasons_)) {
    trace("( ~reasons_mask & interim_reasons_mask ) == 0");
    return kNotRevoked;
  }
  if (!verifySigner(crl)) {
    trace("CRL is not verified.");
    return kNotRevoked;
  }
  const CrlRecord* const delta = chooseDelta(crl, deltas);
  if (!delta && (needsDelta(crl) || isUnknown_)) return kNotRevoked;
  const CRL_ENTRY* entry = delta ? findEntry(*delta) : nullptr;
  if (!entry) entry = findEntry(crl);
  KeepUsed(cert_, {&crl, delta});
  if (entry) {
    cert_.selected = {&crl, delta};
    const DWORD reason = ReasonOf(*entry);
    if (reason != CRL_REASON_REMOVE_FROM_CRL) {
      trace("Certificate found in crl.");
      return {RevocationResult::Kind::Revoked, reason};
    }
  }
  reasons_ |= interim_reasons_mask;
  trace("reasons_mask changed.");
  return kNotRevoked;
}

bool CrlJudgement::isInScope(const CrlRecord& crl, const CRL_DIST_POINT* point) const {
  const auto refuse = [this](const char* why) {
    trace(why);
    return false;
  };
  const CertFacts& cert = *cert_.facts;
  if (!crl.facts->issuer.equals(cert.issuer)) return refuse("Certificate issuer dosn't, match crl issuer");
  if (crl.facts->unusable) return refuse("Crl has no same dp match DistributionPointCRLIssuer");
  const CRL_ISSUING_DIST_POINT* const issuing = crl.facts->issuingDistPoint.get();
  if (!issuing) return true;
  if (issuing->DistPointName.dwDistPointNameChoice == CRL_DIST_POINT_FULL_NAME) {
    if (!point || point->DistPointName.dwDistPointNameChoice != CRL_DIST_POINT_FULL_NAME
        || !point->DistPointName.FullName.cAltEntry) {
      return refuse("Crl has no same dp match DistributionPointCRLIssuer");
    }
    if (!crl.facts->issuingUrls.meets(UrlSet(UrlsOf(point->DistPointName))))
      return refuse("Crl has no same dp match DistributionPointName");
  }
  const bool isCa = cert.basicConstraints && cert.basicConstraints->fCA;
  if (issuing->fOnlyContainsUserCerts && isCa) return refuse("Crl only contains user certs");
  if (issuing->fOnlyContainsCACerts && !isCa) return refuse("Crl only contains CA certs");
  return true;
}

const CrlRecord* CrlJudgement::chooseDelta(const CrlRecord& crl, const NewestCrls& deltas) {
  for (CrlRecord* const delta : deltas) {
    if (!IsSameScope(*delta->facts, *crl.facts) || !IsInKeyPeriod(delta->info().ThisUpdate, *crl.signer))
      continue;
    const SignatureVerdict verdict = SignatureBy(*crl.signer, *delta, *builder_.budget);
    if (holds(verdict)) {
      KeepInCache(*delta, *builder_.records);
      return delta;
    }
    if (isUnknown_) return nullptr;
    if (verdict == SignatureVerdict::Bad) DropFromCache(*delta);
  }
  return nullptr;
}

// What will only be revoked later does not count yet.
const CRL_ENTRY* CrlJudgement::findEntry(const CrlRecord& crl) const {
  const ContextRecord* const record = FindLiveContext(crl.context.get());
  const CRL_ENTRY* const entry = record ? FindEntry(*record, cert_.info().SerialNumber) : nullptr;
  return entry && CompareFileTime(&entry->RevocationDate, &builder_.checkTime) <= 0 ? entry : nullptr;
}

bool CrlJudgement::verifySigner(CrlRecord& crl) {
  builder_.trace.line("Verifing crl signature.");
  CertRecord* const signer = findSigner(crl);
  builder_.trace.line(signer ? "Crl signature verified." : "Crl signature is not verified.");
  if (signer) {
    crl.signer = signer;
    KeepInCache(crl, *builder_.records);
  }
  return signer;
}

CertRecord* CrlJudgement::findSigner(CrlRecord& crl) {
  if (!TakeLook(*builder_.budget)) return nullptr;
  ++builder_.budget->candidateSteps;  // a search that finds nobody costs as well
  const CERT_AUTHORITY_KEY_ID2_INFO* const authority = crl.facts->authorityKeyId.get();
  IssuerKey key{&crl.facts->issuer, AuthorityKeyIdBytes(*crl.facts), {}};
  if (authority)
    key.serial = {authority->AuthorityCertSerialNumber.pbData, authority->AuthorityCertSerialNumber.cbData};
  builder_.chain.clear();
  IssuerCandidates candidates(key, builder_.chain, *builder_.budget);
  builder_.findIssuers(key, candidates);
  bool isRefusedByAll = true, isUndecided = false;
  for (const IssuerCandidate& each : candidates.take()) {
    // without this any certificate holder could sign the lists of any authority: the key identifier is his to choose
    if (each.repeated || !each.named) continue;
    if (!TakeLook(*builder_.budget)) return nullptr;
    SignatureVerdict verdict = SignatureVerdict::OtherKey;
    if (Attempt(builder_.trace, "verify_crl_prt", [&] { return isSigner(crl, *each.record, verdict); }))
      return each.record;
    isRefusedByAll =
        isRefusedByAll && (verdict == SignatureVerdict::Bad || verdict == SignatureVerdict::OtherKey);
    isUndecided =
        isUndecided || verdict == SignatureVerdict::Failed || verdict == SignatureVerdict::NotAffordable;
  }
  if (isUndecided) isUnknown_ = true;
  // The issuer's key is known to be his, as it made a certificate on a path to a trusted root; strangers may bear his name.
  if (isRefusedByAll && SignatureBy(*issuer_, crl, *builder_.budget) == SignatureVerdict::Bad)
    DropFromCache(crl);
  return nullptr;
}

bool CrlJudgement::isSigner(const CrlRecord& crl, CertRecord& candidate, SignatureVerdict& verdict) {
  if (!MaySignCrls(*candidate.facts) || !IsInKeyPeriod(crl.info().ThisUpdate, candidate)) return false;
  verdict = SignatureBy(candidate, crl, *builder_.budget);
  if (verdict != SignatureVerdict::Good) return false;
  ++builder_.budget->candidateSteps;
  builder_.chain.clear();
  return builder_.verifyCertificate(candidate);
}

}  // namespace certkern
