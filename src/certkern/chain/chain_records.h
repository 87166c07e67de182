// What a chain build knows of each certificate and CRL.
//
// Two layers. The *facts* of an object follow from its bytes alone: decoded extensions, normalised names, which keys made its
// signature. They are made once, never change, and are kept with the store element, so that the next build finds them.
// The *record* is what one build learns: trust, revocation, the CRLs used. A builder and its clones share records; a
// record never dies before the last of them.
#ifndef CERTKERN_CERTKERN_CHAIN_CHAIN_RECORDS_H
#define CERTKERN_CERTKERN_CHAIN_CHAIN_RECORDS_H

#include <certkern/chain.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "certkern/chain/decoded_extension.h"
#include "certkern/chain/normal_name.h"
#include "platform/owner.h"
#include "store/context_record.h"

namespace certkern {

using CertificateOwner = Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using CrlOwner = Owner<PCCRL_CONTEXT, CertFreeCRLContext>;

// Yes, no, or not yet computed.
enum class TriState : uint8_t { No = 0, Yes = 1, Unknown = 2 };

struct CertFacts;  // cert_facts.h
struct CrlFacts;   // crl_facts.h

struct CrlRecord;

// A base CRL and the delta that was read with it (null: none).
struct CrlPair {
  const CrlRecord* base = nullptr;
  const CrlRecord* delta = nullptr;
};

struct CertRecord {
  CertificateOwner context;
  std::shared_ptr<const CertFacts> facts;
  uint64_t sequence = 0;    // of interning: orders sets of records
  bool trusted = false;     // found in a trusted store
  bool isFromWire = false;  // came by URL and is not kept for the user yet
  bool crlChecked = false;
  std::vector<const CertRecord*> verifiedIssuers;
  std::vector<CrlPair> usedCrls;  // each pair once, in order of (base, delta) sequence
  CrlPair selected;
  // By issuer, whether this certificate was signed with its key: each pair is verified once (SignatureBy).
  mutable std::map<const CertRecord*, bool> signatures;

  std::span<const BYTE> encoded() const { return {context->pbCertEncoded, context->cbCertEncoded}; }
  const CERT_INFO& info() const { return *context->pCertInfo; }
};

struct CrlRecord {
  CrlOwner context;
  std::shared_ptr<const CrlFacts> facts;
  uint64_t sequence = 0;
  CertRecord* signer = nullptr;                          // whose key verified it
  mutable std::map<const CertRecord*, bool> signatures;  // as above
  std::set<std::string> urls;                            // the cache has it under these
  std::set<std::string> wireUrls;                        // it came from these, and may yet go into the cache

  std::span<const BYTE> encoded() const { return {context->pbCrlEncoded, context->cbCrlEncoded}; }
  const CRL_INFO& info() const { return *context->pCrlInfo; }
};

// Oldest record first: addresses would make verdicts depend on the allocator.
struct BySequence {
  template <class Record>
  bool operator()(const Record* a, const Record* b) const {
    return a->sequence < b->sequence;
  }
};
using CertSet = std::set<CertRecord*, BySequence>;
using CrlSet = std::set<CrlRecord*, BySequence>;

// Shorter encodings first, then by bytes. Keys point into the record's context.
struct EncodedLess {
  bool operator()(std::span<const BYTE> a, std::span<const BYTE> b) const;
};

// All records of one build, shared by the builder and its clones. An object that was interned before keeps its record; it
// becomes trusted once it is found in a trusted store, wherever it came from at first.
class InternedRecords {
 public:
  using CertMap = std::map<std::span<const BYTE>, std::unique_ptr<CertRecord>, EncodedLess>;
  using CrlMap = std::map<std::span<const BYTE>, std::unique_ptr<CrlRecord>, EncodedLess>;

  // Throws CryptException when the context can't be duplicated.
  CertRecord& certificate(PCCERT_CONTEXT context, bool trusted);
  CrlRecord& crl(PCCRL_CONTEXT context);

  // The lists that the network was asked for, by URL; null: nothing came. One build asks once: its data is fresh enough, and
  // a server that does not answer is not waited for again. The further chains of a call are builds of their own.
  std::map<std::string, CrlRecord*> wireLists;

  const CertMap& certificates() const { return certificates_; }
  const CrlMap& crls() const { return crls_; }
  // Grows with each object, and with each that becomes trusted.
  uint64_t version() const { return next_ + trustGained_; }

 private:
  CertMap certificates_;
  CrlMap crls_;
  uint64_t next_ = 0;
  uint64_t trustGained_ = 0;
};

}  // namespace certkern

#endif
