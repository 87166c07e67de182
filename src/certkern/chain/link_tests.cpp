// What is asked of two certificates that may follow each other in a path.
#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/sv.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "ber/read_cursor.h"
#include "certkern/chain/cert_facts.h"
#include "certkern/chain/chain_builder.h"
#include "certkern/chain/crl_facts.h"
#include "certkern/chain/memory_check.h"
#include "keys/certificate_signature.h"
#include "platform/limits.h"
#include "platform/supkern.h"
#include "store/certificate_digest.h"
#include "store/store_record.h"

constinit uint32_t _strictPkupCheck = 0;

namespace certkern {
namespace {

// Values of _strictPkupCheck.
constexpr uint32_t kNotRead = 0;
constexpr uint32_t kOff = 1;
constexpr uint32_t kOn = 2;

uint32_t ReadKeyPeriodSetting() {
  int64_t value = 0;
  const bool on =
      support_registry_get_long("\\config\\PkiValidator\\StrictPkupCheck", &value) == 0 && value != 0;
  return on ? kOn : kOff;
}

bool IsBefore(const FILETIME& one, const FILETIME& other) { return CompareFileTime(&one, &other) < 0; }

// Identifiers that are both there and differ: another key.
bool IsOtherKey(std::span<const BYTE> authorityKeyId, const CertRecord& issuer) {
  const auto& own = issuer.facts->subjectKeyId;
  return own && !authorityKeyId.empty() && !std::ranges::equal(*own, authorityKeyId);
}

// Failures that follow from the bytes: a verification of the same object with the same key can never end otherwise. What
// else fails (memory, a provider that can't be had) says nothing about the object.
bool IsAboutTheBytes(DWORD code) {
  constexpr DWORD kVerdicts[] = {NTE_BAD_SIGNATURE, NTE_BAD_DATA,         NTE_BAD_ALGID,
                                 NTE_BAD_KEY,       NTE_BAD_PUBLIC_KEY,   CRYPT_E_ASN1_ERROR,
                                 CRYPT_E_ASN1_EOD,  CRYPT_E_ASN1_CORRUPT, CRYPT_E_ASN1_BADTAG};
  return std::ranges::find(kVerdicts, code) != std::end(kVerdicts);
}

constexpr unsigned kUsualExponentBits = 17;  // 65537

// Of an RSAPublicKey, { n INTEGER, e INTEGER }; the usual one's where there is none to be read.
unsigned ExponentBits(const CRYPT_BIT_BLOB& key) {
  BerReadCursor in({key.pbData, key.cbData}), numbers, modulus, exponent;
  BYTE tag = 0;
  if (!in.readElement(tag, numbers) || !numbers.readElement(tag, modulus)
      || !numbers.readElement(tag, exponent))
    return kUsualExponentBits;
  const size_t octets =
      std::min(exponent.rest().size(), kMaxRsaExponentOctets);  // a longer one is refused at once
  return std::max(static_cast<unsigned>(octets) * 8, kUsualExponentBits);
}

// In units of an RSA verification with 2048 bits.
struct VerificationCost {
  uint32_t hashing = 0;
  uint32_t opening = 1;
  uint32_t refusing = 0;  // what a refusal costs besides
};

// Opening an RSA signature grows with the square of the bits and the bits of the exponent; a bad one is opened twice. The size
// of the signature tells, as a key of another size refuses it at once. The object is hashed for each key.
VerificationCost CostOf(std::span<const BYTE> encoded, const CERT_PUBLIC_KEY_INFO& key) {
  constexpr uint64_t kUnitOctets = 256;
  constexpr uint32_t kShortSignature = 80, kShortCost = 3, kLongCost = 12;  // curves of 256 bits; of more
  const LastErrorKeeper keeper;
  VerificationCost cost;
  SignedObject object;
  if (!ReadSignedObject(encoded, object)) return cost;  // so will the verification
  // the largest list can still be afforded, once
  cost.hashing = static_cast<uint32_t>(
      std::min<uint64_t>(encoded.size() / kHashedPerVerificationUnit, kMaxChainVerificationUnits / 2));
  const std::string_view oid(key.Algorithm.pszObjId ? key.Algorithm.pszObjId : "");
  if (!oid.starts_with("1.2.840.113549.1.1.")) {
    cost.opening = object.signature.size() <= kShortSignature ? kShortCost : kLongCost;
    return cost;
  }
  const uint64_t octets =
      std::min<uint64_t>({object.signature.size(), key.PublicKey.cbData, kMaxRsaBits / 8});
  cost.opening = static_cast<uint32_t>(
      octets * octets * ExponentBits(key.PublicKey) / (kUnitOctets * kUnitOctets * kUsualExponentBits) + 1);
  cost.refusing = cost.opening;
  return cost;
}

// What somebody put into a message is paid for by the message, so that its many signers don't multiply the work.
bool DrawFromStore(const CertRecord& issuer, uint32_t cost) {
  CertStore* const store = ElementOfBytes(issuer.context->pbCertEncoded).store;
  if (!store) return true;
  std::atomic<int64_t>& left = store->verificationUnits;
  for (int64_t now = left.load(std::memory_order_relaxed); now >= cost;) {
    if (left.compare_exchange_weak(now, now - cost, std::memory_order_relaxed)) return true;
  }
  return false;
}

bool Pay(uint32_t cost, const CertRecord& issuer, BuildBudget& budget) {
  if (cost > kMaxChainVerificationUnits - budget.verificationUnits || !DrawFromStore(issuer, cost))
    return false;
  budget.verificationUnits += cost;
  return true;
}

SignatureVerdict Verify(std::span<const BYTE> encoded, const CertRecord& issuer, BuildBudget& budget) {
  const VerificationCost cost = CostOf(encoded, issuer.info().SubjectPublicKeyInfo);
  if (!Pay(cost.hashing + cost.opening, issuer, budget)) return SignatureVerdict::NotAffordable;
  SetLastError(ERROR_SUCCESS);
  if (VerifySignedObject(0, encoded, &issuer.context->pCertInfo->SubjectPublicKeyInfo))
    return SignatureVerdict::Good;
  const DWORD code = GetLastError();
  if (IsLackOfMemory(code)) throw std::bad_alloc();
  static_cast<void>(Pay(cost.refusing, issuer, budget));
  return IsAboutTheBytes(code) ? SignatureVerdict::Bad : SignatureVerdict::Failed;
}

template <class Record>
SignatureVerdict VerifyOnce(const Record& subject, const CertRecord& issuer, BuildBudget& budget) {
  const auto verdict = [](bool good) { return good ? SignatureVerdict::Good : SignatureVerdict::Bad; };
  if (const auto known = subject.signatures.find(&issuer); known != subject.signatures.end())
    return verdict(known->second);
  const std::optional<KeyDigest> key = issuer.facts->keyDigest.get(issuer.info().SubjectPublicKeyInfo);
  std::optional<bool> good = key ? subject.facts->signatures.find(*key) : std::nullopt;
  if (!good) {
    const SignatureVerdict found = Verify(subject.encoded(), issuer, budget);
    if (found != SignatureVerdict::Good && found != SignatureVerdict::Bad) return found;
    good = found == SignatureVerdict::Good;
    (*good ? issuer.facts->hasSigned : issuer.facts->triedInVain).store(true, std::memory_order_relaxed);
    if (key) subject.facts->signatures.keep(*key, *good);
  }
  subject.signatures.emplace(&issuer, *good);
  return verdict(*good);
}

}  // namespace

// Whoever reads first writes what all would write.
bool IsKeyPeriodTested() {
  const std::atomic_ref setting(_strictPkupCheck);
  uint32_t value = setting.load(std::memory_order_relaxed);
  if (value == kNotRead) {
    value = ReadKeyPeriodSetting();
    setting.store(value, std::memory_order_relaxed);
  }
  return value == kOn;
}

SignatureVerdict SignatureBy(const CertRecord& issuer, const CertRecord& subject, BuildBudget& budget) {
  if (&subject == &issuer)
    return IsSelfSigned(subject, budget) ? SignatureVerdict::Good : SignatureVerdict::Bad;
  if (IsOtherKey(subject.facts->authorityKeyIdBytes(), issuer)) return SignatureVerdict::OtherKey;
  return VerifyOnce(subject, issuer, budget);
}

SignatureVerdict SignatureBy(const CertRecord& issuer, const CrlRecord& crl, BuildBudget& budget) {
  if (IsOtherKey(AuthorityKeyIdBytes(*crl.facts), issuer)) return SignatureVerdict::OtherKey;
  return SignatureByKeyOf(issuer, crl, budget);
}

SignatureVerdict SignatureByKeyOf(const CertRecord& issuer, const CrlRecord& crl, BuildBudget& budget) {
  return VerifyOnce(crl, issuer, budget);
}

bool IsSelfSigned(const CertRecord& record, BuildBudget& budget) {
  std::atomic<TriState>& kept = record.facts->selfSigned;
  const TriState known = kept.load(std::memory_order_relaxed);
  if (known != TriState::Unknown) return known == TriState::Yes;
  const bool isOtherKey = IsOtherKey(record.facts->authorityKeyIdBytes(), record);
  const SignatureVerdict verdict =
      isOtherKey ? SignatureVerdict::Bad : Verify(record.encoded(), record, budget);
  const bool good = verdict == SignatureVerdict::Good;
  if (good || verdict == SignatureVerdict::Bad)
    kept.store(good ? TriState::Yes : TriState::No, std::memory_order_relaxed);
  return good;
}

bool IsSelfIssued(const CertRecord& record) { return record.facts->selfIssued; }

bool IsInKeyPeriod(const FILETIME& moment, const CertRecord& issuer) {
  if (!IsKeyPeriodTested()) return true;
  const CERT_INFO& info = issuer.info();
  const KeyPeriod period = issuer.facts->keyPeriod.value_or(KeyPeriod{info.NotBefore, info.NotAfter});
  return !(period.notBefore && IsBefore(moment, *period.notBefore))
      && !(period.notAfter && IsBefore(*period.notAfter, moment));
}

}  // namespace certkern
