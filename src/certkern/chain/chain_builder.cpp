#include "certkern/chain/chain_builder.h"

#include <certkern/find.h>
#include <certkern/keykern.h>

#include <algorithm>

#include "certkern/chain/engine.h"
#include "certkern/chain/good_verdicts.h"
#include "certkern/chain/memory_check.h"
#include "certkern/chain/trust_status.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

// Trust ends a path at a self-signed certificate, and exempts from revocation: where neither can come up, a file that
// may hold all the roots of the world need not be read.
bool CanTrustMatter(const ChainBuilder& builder, const CertRecord& end) {
  return builder.hasFlag(kRevocationFlags) || IsSelfSigned(end, *builder.budget);
}

// Every user of a set of stores holds them open himself.
std::vector<StoreRef> CopyStores(const std::vector<StoreRef>& stores) {
  std::vector<StoreRef> copies;
  for (const StoreRef& each : stores) ChainBuilder::addStore(copies, each.store.get(), each.trusted);
  return copies;
}

DWORD FlagsOfClone(DWORD flags) {
  const bool endOnly = (flags & kRevocationFlags) == CERT_CHAIN_REVOCATION_CHECK_END_CERT;
  return endOnly ? flags & ~kRevocationFlags : flags;
}

void TraceLists(const ChainTrace& trace, const CertRecord& record) {
  size_t number = 0;
  const auto tell = [&](const CrlRecord* crl) {
    if (!crl) return;
    trace.line("(", ++number, ")");
    trace.crl(crl->context.get());
    trace.line("CRL status: ", TrustStatusNames(CERT_TRUST_NO_ERROR));
  };
  for (const CrlPair& each : record.usedCrls) {
    tell(each.base);
    tell(each.delta);
  }
}

void TraceResult(const ChainBuilder& builder) {
  const ChainTrace& trace = builder.trace;
  if (!trace.on()) return;
  const bool valid = builder.chainError == CERT_TRUST_NO_ERROR && !builder.chain.empty();
  trace.line(valid ? "----------- Valid chain -----------" : "----------- Error chain -----------");
  trace.line("Chain status: ", TrustStatusNames(builder.chainError));
  trace.line("Revocation reason: ", ReasonName(builder.chainRevReason));
  size_t position = 0;
  for (const ChainNode& node : builder.chain) {
    trace.line(++position, ". ");
    trace.certificate(node.record->context.get());
    trace.line("Cert status: ", TrustStatusNames(node.errorStatus));
    TraceLists(trace, *node.record);
  }
}

}  // namespace

bool IsInStore(HCERTSTORE store, PCCERT_CONTEXT certificate) {
  const LastErrorKeeper keeper;
  return CheckingMemory([&] {
           return CertificateOwner(CertFindCertificateInStore(store, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING,
                                                              0, CERT_FIND_EXISTING, certificate, nullptr));
         })
      .get();
}

ChainBuilder::ChainBuilder(std::shared_ptr<BuildBudget> shared)
    : records(std::make_shared<InternedRecords>()),
      goodVerdicts(std::make_shared<GoodVerdicts>(*records)),
      budget(std::move(shared)) {
  GetSystemTimeAsFileTime(&now);
  checkTime = now;
}

ChainBuilder::ChainBuilder(const ChainBuilder& parent, CertRecord& underDecision)
    : certStores(CopyStores(parent.certStores)),
      crlStores(CopyStores(parent.crlStores)),
      flags(FlagsOfClone(parent.flags)),
      usedStore(parent.usedStore),
      exclusiveRoot(parent.exclusiveRoot),
      urlTimeoutMs(parent.urlTimeoutMs),
      requestedUsage(parent.requestedUsage),
      now(parent.now),
      checkTime(parent.checkTime),
      visited(parent.visited),
      crls(parent.crls),
      chainError(parent.chainError),
      chainRevReason(parent.chainRevReason),
      isCrlSubcheck(true),
      cloneDepth(parent.cloneDepth + 1),
      revocationCycleGuard(parent.revocationCycleGuard),
      records(parent.records),
      goodVerdicts(parent.goodVerdicts),
      budget(parent.budget),
      usedUrlMs(parent.usedUrlMs),
      trace(parent.trace.nested()) {
  revocationCycleGuard.insert(&underDecision);
}

ChainBuilder::~ChainBuilder() = default;

void ChainBuilder::addStore(std::vector<StoreRef>& stores, HCERTSTORE store, bool trusted) {
  // what is in already with at least this trust would only be searched again
  if (std::ranges::any_of(stores, [&](const StoreRef& each) {
        return each.store.get() == store && (each.trusted || !trusted);
      })) {
    return;
  }
  StoreRef ref;
  ref.store.reset(CertDuplicateStore(store));
  ref.trusted = trusted;
  if (!ref.store) ThrowLastError();
  const auto behind = trusted ? std::ranges::find(stores, false, &StoreRef::trusted) : stores.end();
  stores.insert(behind, std::move(ref));
}

HCERTSTORE ChainBuilder::userStore(UserStoreName name) {
  std::optional<StoreOwner>& kept = name == UserStoreName::Root ? userRoots_ : userAuthorities_;
  if (!kept) {
    StoreOwner store = UserStore(name);
    if (!store && GetLastError() != ERROR_FILE_NOT_FOUND) ThrowLastError();
    kept = std::move(store);
  }
  return kept->get();
}

void ChainBuilder::build(PCCERT_CONTEXT end) {
  CertRecord& record = records->certificate(end, false);
  if (CanTrustMatter(*this, record)) {
    const HCERTSTORE roots = exclusiveRoot ? exclusiveRoot : userStore(UserStoreName::Root);
    record.trusted = roots && IsInStore(roots, end);
  }
  visited.insert(&record);
  if (!verifyCertificate(record) && bestError) {
    chain = std::move(bestError->chain);
    chainError = bestError->chainError;
    chainRevReason = bestError->chainRevReason;
  }
  bestError.reset();
  TraceResult(*this);
}

}  // namespace certkern
