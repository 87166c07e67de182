// What is asked of two certificates that may follow each other in a path.
#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/sv.h>

#include <algorithm>
#include <atomic>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/chain_builder.h"
#include "certkern/chain/crl_facts.h"
#include "keys/certificate_signature.h"
#include "platform/supkern.h"

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

struct SignatureAnswer {
  bool good;
  bool final;  // follows from the bytes; not from what failed on the way
};

SignatureAnswer Verify(std::span<const BYTE> encoded, std::span<const BYTE> authorityKeyId,
                       const CertRecord& issuer) {
  if (IsOtherKey(authorityKeyId, issuer)) return {false, true};
  if (VerifySignedObject(0, encoded, &issuer.context->pCertInfo->SubjectPublicKeyInfo)) return {true, true};
  return {false, GetLastError() == NTE_BAD_SIGNATURE};
}

template <class Record>
bool VerifyOnce(const Record& subject, std::span<const BYTE> authorityKeyId, const CertRecord& issuer) {
  if (const auto known = subject.signatures.find(&issuer); known != subject.signatures.end())
    return known->second;
  const bool good = Verify(subject.encoded(), authorityKeyId, issuer).good;
  subject.signatures.emplace(&issuer, good);
  return good;
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

bool IsSignedBy(const CertRecord& subject, const CertRecord& issuer) {
  if (&subject == &issuer) return IsSelfSigned(subject);
  return VerifyOnce(subject, subject.facts->authorityKeyIdBytes(), issuer);
}

bool IsCrlSignedBy(const CrlRecord& crl, const CertRecord& issuer) {
  return VerifyOnce(crl, AuthorityKeyIdBytes(*crl.facts), issuer);
}

bool IsSelfSigned(const CertRecord& record) {
  std::atomic<TriState>& kept = record.facts->selfSigned;
  const TriState known = kept.load(std::memory_order_relaxed);
  if (known != TriState::Unknown) return known == TriState::Yes;
  // a failure that may pass is remembered for this build only
  if (const auto here = record.signatures.find(&record); here != record.signatures.end()) return here->second;
  const SignatureAnswer answer = Verify(record.encoded(), record.facts->authorityKeyIdBytes(), record);
  record.signatures.emplace(&record, answer.good);
  if (answer.final) kept.store(answer.good ? TriState::Yes : TriState::No, std::memory_order_relaxed);
  return answer.good;
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
