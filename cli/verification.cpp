#include "verification.h"

#include "decoded.h"
#include "failure.h"
#include "message_file.h"
#include "text.h"

#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/oids.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

namespace certkern::cli {
namespace {

// Each has its chain built, and a few bytes make one: a verifier must not be kept busy for hours.
constexpr DWORD kMostSigners = 1000;
// Certificates that are called as a signer is: all of them are tried, and a message may bring any number.
constexpr size_t kMostTries = size_t{4} * kMostSigners;
constexpr size_t kMostChains = size_t{2} * kMostSigners;

std::string Shown(const std::string& name) { return Escaped(Utf8Of(std::string_view(name))); }

// A message with what it is about, wherever that was.
struct OpenedMessage {
  MessageHandle handle;
  Bytes content;
  bool detached = false;
};

Bytes ReadContent(const std::string& path) {
  FileContent content = ReadInput(path);
  if (!content.error.empty()) throw Failure(fmt::format("{}: {}", Shown(path), content.error));
  return std::move(content.bytes);
}

MessageHandle OpenSigned(const MessageFile& file, ContentPlace place) {
  MessageHandle message = OpenMessage(file.bytes, place);
  if (!message) file.refuse();
  file.requireSigned();
  return message;
}

OpenedMessage OpenWithContent(const VerifyOptions& options) {
  const MessageFile file = ReadMessageFile(options.file, Shown(options.file));
  OpenedMessage opened{OpenSigned(file, ContentPlace::Inside), {}, !options.content.empty()};
  if (!MessageNumber(opened.handle.get(), CMSG_SIGNER_COUNT_PARAM))
    file.fail("nobody has signed this message");
  // two contents, and a reader who may look at the other one
  if (opened.detached && HasContent(file.bytes))
    throw WrongUsage(file.shown + ": the content is in the message, so --content has no place");
  // taken for a whole message it would have an empty content, which may even be what was signed
  if (!opened.detached && !HasContent(file.bytes))
    file.fail("there is no content in the message; name it with --content");
  if (!opened.detached) {
    opened.content = MessageBytes(opened.handle.get(), CMSG_CONTENT_PARAM);
    return opened;
  }
  opened.content = ReadContent(options.content);
  opened.handle = OpenSigned(file, ContentPlace::Elsewhere);
  static constexpr BYTE kNothing = 0;  // an empty content is a content, too
  if (!CryptMsgUpdate(opened.handle.get(), opened.content.empty() ? &kNothing : opened.content.data(),
                      CheckedSize(opened.content.size()), TRUE))
    ThrowLastError(file.shown);
  return opened;
}

// --- one signer ---

struct Candidate {
  CertificateHandle certificate;
  CertificateFindings findings;
};

// Whether a failure speaks of the signature, and not of what it takes to look at one.
bool IsVerdict(DWORD code) {
  static constexpr DWORD kOthers[] = {NTE_BAD_ALGID, NTE_FAIL, NTE_NO_MEMORY, ERROR_NOT_ENOUGH_MEMORY,
                                      ERROR_UNHANDLED_EXCEPTION};
  return std::ranges::find(kOthers, code) == std::end(kOthers);
}

void JudgeSignature(HCRYPTMSG message, DWORD number, Candidate& candidate) {
  CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA para{};
  para.cbSize = sizeof para;
  para.dwSignerIndex = number - 1;
  para.dwSignerType = CMSG_VERIFY_SIGNER_CERT;
  para.pvSigner = const_cast<CERT_CONTEXT*>(candidate.certificate.get());
  CertificateFindings& findings = candidate.findings;
  if (CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &para)) {
    findings.signature = SignatureFinding::Valid;
    return;
  }
  findings.code = GetLastError();
  findings.signature = IsVerdict(findings.code) ? SignatureFinding::Invalid : SignatureFinding::Unchecked;
}

// How likely a certificate is the signer's.
enum class Fit { None, Unchecked, Verifies, Bound };
Fit FitOf(const Candidate& candidate) {
  if (candidate.findings.signature == SignatureFinding::Invalid) return Fit::None;
  if (candidate.findings.signature == SignatureFinding::Unchecked) return Fit::Unchecked;
  return candidate.findings.binding == BindingFinding::Other ? Fit::Verifies : Fit::Bound;
}

Verdict VerdictOn(const CertificateFindings& findings) {
  if (findings.signature == SignatureFinding::Invalid || findings.binding == BindingFinding::Other
      || !findings.faults.empty())
    return Verdict::Invalid;
  const Verdict chain = findings.chain ? VerdictOnAll(*findings.chain, std::nullopt) : Verdict::Undetermined;
  if (chain == Verdict::Valid && findings.signature == SignatureFinding::Unchecked)
    return Verdict::Undetermined;
  return chain;
}

int WorthOf(Verdict verdict) {
  return verdict == Verdict::Valid ? 2 : verdict == Verdict::Undetermined ? 1 : 0;
}

bool IsAgainstSignature(SignerFault fault) { return SubjectOf(fault) == FaultSubject::Signature; }

StoreHandle Joined(const StoreHandle& first, const StoreHandle& second) {
  StoreHandle both(CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr));
  for (const StoreHandle* each : {&first, &second}) {
    if (!both || !CertAddStoreToCollection(both.get(), each->get(), 0, 0)) ThrowLastError("the certificates");
  }
  return both;
}

void AddCandidates(HCERTSTORE store, const CERT_ID& id, std::vector<Candidate>& into) {
  PCCERT_CONTEXT found = nullptr;
  while (store
         && (found = CertFindCertificateInStore(store, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                                CERT_FIND_CERT_ID, &id, found))) {
    CertificateHandle certificate(CertDuplicateCertificateContext(found));
    into.push_back({std::move(certificate), {}});
  }
}

class SignerJudge {
 public:
  SignerJudge(const OpenedMessage& message, const VerifyOptions& options)
      : message_(message), options_(options), shown_(Shown(options.file)) {
    const Bytes type = MessageBytes(message.handle.get(), CMSG_INNER_CONTENT_TYPE_PARAM);
    contentType_ = reinterpret_cast<const char*>(type.data());
    const std::shared_ptr<ChainSources> sources = LoadChainSources(options.chain, WithoutRoots::GoOn);
    if (const size_t refused = TakeCertificates(message.handle.get(), carried_.get()))
      Complain("{}: {} of the certificates and CRLs in the message can't be read", shown_, refused);
    own_ = std::exchange(sources->additional, Joined(sources->additional, carried_));
    sources_ = sources;
  }

  SignerFindings judge(DWORD number) {
    SignerFindings signer;
    signer.number = number;
    signer.record = MessageBytes(message_.handle.get(), CMSG_CMS_SIGNER_INFO_PARAM, number - 1);
    signer.signingTime = SigningTime(signer.info().AuthAttrs);
    signer.certificate = choose(signer);
    CertificateFindings& findings = signer.certificate;
    signer.content =
        findings.signature == SignatureFinding::Valid ? ContentFinding::Intact : judgeContent(signer.info());
    if (std::ranges::any_of(findings.faults, IsAgainstSignature))
      findings.signature = SignatureFinding::Invalid;
    return signer;
  }

 private:
  // Of a signature that does not verify: is it the content that has changed?
  ContentFinding judgeContent(const CMSG_CMS_SIGNER_INFO& info);
  bool contentIsAttributes();

  void spend(size_t& budget) const {
    if (!budget--) throw Failure(shown_ + ": too many certificates are called as the signers are");
  }

  std::vector<Candidate> candidates(const SignerFindings& signer);
  // Of those that fit equally well the one whose chain is best.
  CertificateFindings choose(const SignerFindings& signer);
  void judgeChain(const SignerFindings& signer, Candidate& candidate);

  const OpenedMessage& message_;
  const VerifyOptions& options_;
  const std::string shown_;
  std::string contentType_;
  // What is known of the content, which may be large, and signed by many.
  std::map<std::string, std::optional<Bytes>> hashes_;
  std::optional<bool> contentIsAttributes_;
  StoreHandle own_;  // the user's, beside those that he trusts
  StoreHandle carried_ = OpenMemoryStore();
  std::shared_ptr<const ChainSources> sources_;
  size_t tries_ = kMostTries;
  size_t chains_ = kMostChains;
};

ContentFinding SignerJudge::judgeContent(const CMSG_CMS_SIGNER_INFO& info) {
  const auto value = AttributeValue(info.AuthAttrs, szOID_RSA_messageDigest);
  const auto digest = value ? Decode<CRYPT_DATA_BLOB>(X509_OCTET_STRING, *value) : nullptr;
  if (!digest) return ContentFinding::Unknown;
  const auto [hash, isNew] = hashes_.try_emplace(info.HashAlgorithm.pszObjId);
  if (isNew) hash->second = HashOf(info.HashAlgorithm.pszObjId, message_.content);
  if (!hash->second) return ContentFinding::Unknown;
  return std::ranges::equal(*hash->second, BytesOf(*digest)) ? ContentFinding::Intact
                                                             : ContentFinding::Changed;
}

bool SignerJudge::contentIsAttributes() {
  if (!contentIsAttributes_) contentIsAttributes_ = AreSignedAttributes(message_.content);
  return *contentIsAttributes_;
}

// Anybody may add certificates to a message, with any names and key identifiers: what the user has comes first, and all of them
// are tried.
std::vector<Candidate> SignerJudge::candidates(const SignerFindings& signer) {
  const CMSG_CMS_SIGNER_INFO& info = signer.info();
  std::vector<Candidate> found;
  for (HCERTSTORE store : {own_.get(), sources_->trusted.get(), carried_.get()})
    AddCandidates(store, info.SignerId, found);
  for (Candidate& each : found) {
    spend(tries_);
    JudgeSignature(message_.handle.get(), signer.number, each);
    each.findings.binding = JudgeBinding(info, each.certificate.get());
  }
  std::ranges::stable_sort(found, std::greater<>(), FitOf);
  return found;
}

void SignerJudge::judgeChain(const SignerFindings& signer, Candidate& candidate) {
  spend(chains_);
  CertificateFindings& findings = candidate.findings;
  PCCERT_CONTEXT const certificate = candidate.certificate.get();
  const CERT_PUBLIC_KEY_INFO& key = certificate->pCertInfo->SubjectPublicKeyInfo;
  if (findings.signature == SignatureFinding::Valid) {
    if (const auto fault = AlgorithmFault(signer.info(), key)) findings.faults.push_back(*fault);
  }
  if (const auto fault = UsageFault(certificate)) findings.faults.push_back(*fault);
  findings.chain = BuildChain(options_.chain, sources_, std::move(candidate.certificate),
                              fmt::format("{}: signer {}", shown_, signer.number));
}

CertificateFindings SignerJudge::choose(const SignerFindings& signer) {
  std::vector<SignerFault> faults;
  if (const auto fault = SignedAttributesFault(signer.info(), contentType_)) faults.push_back(*fault);
  if (!signer.info().AuthAttrs.cAttr && contentIsAttributes())
    faults.push_back(SignerFault::AttributesAsContent);
  CertificateFindings best;
  best.faults = faults;
  std::vector<Candidate> all = candidates(signer);
  for (Candidate& each : all) {
    // chains take their time, and are of no use below a signature that does not verify
    if (best.chain && (FitOf(each) != FitOf(all.front()) || FitOf(each) < Fit::Verifies)) break;
    each.findings.faults = faults;
    judgeChain(signer, each);
    if (!best.chain || WorthOf(VerdictOn(each.findings)) > WorthOf(VerdictOn(best)))
      best = std::move(each.findings);
    if (VerdictOn(best) == Verdict::Valid) break;
  }
  return best;
}

}  // namespace

Verdict VerdictOn(const SignerFindings& signer) {
  return signer.content == ContentFinding::Changed ? Verdict::Invalid : VerdictOn(signer.certificate);
}

Verdict VerdictOn(const MessageFindings& message) {
  Verdict worst = Verdict::Valid;
  for (const SignerFindings& each : message.signers) {
    const Verdict verdict = VerdictOn(each);
    if (verdict == Verdict::Invalid) return verdict;
    if (verdict == Verdict::Undetermined) worst = verdict;
  }
  return worst;
}

MessageFindings VerifyMessage(const VerifyOptions& options) {
  const OpenedMessage message = OpenWithContent(options);
  MessageFindings findings{message.detached,
                           message.content.size(),
                           MessageNumber(message.handle.get(), CMSG_SIGNER_COUNT_PARAM),
                           {}};
  if (options.signer > findings.signerCount)
    throw Failure(fmt::format("{}: --signer {}: the message has {} of them", Shown(options.file),
                              options.signer, findings.signerCount));
  if (!options.signer && findings.signerCount > kMostSigners)
    throw Failure(
        fmt::format("{}: {} signers, and no more than {} are judged at once; name one with --signer",
                    Shown(options.file), findings.signerCount, kMostSigners));
  SignerJudge judge(message, options);
  const DWORD first = options.signer ? options.signer : 1;
  const DWORD last = options.signer ? options.signer : findings.signerCount;
  for (DWORD number = first; number <= last; ++number) findings.signers.push_back(judge.judge(number));
  return findings;
}

}  // namespace certkern::cli
