// Keys of GOST R 34.10-2001 and 34.10-2012. RFC 9215; RFC 4491; RFC 7836
#include "common/der.h"
#include "keykern/derive/derivation.h"
#include "keykern/digest.h"
#include "keykern/gost/curve.h"
#include "keykern/gost/private_number.h"
#include "keykern/key/asymmetric_key.h"
#include "platform/limits.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace keykern {
namespace {

namespace der = certkern::der;

constexpr size_t kKegUkmSize = 32;
constexpr size_t kKegSize = 64;
constexpr BYTE kKegLabel[] = {'k', 'd', 'f', ' ', 't', 'r', 'e', 'e'};

struct GostAlgorithm {
  Family family;
  std::string_view oid;
  DWORD bits;
  ALG_ID hash;                 // the only one that keys of this kind sign
  std::string_view digestOid;  // stands beside the sets of the older arc
  std::string_view usualParameters;
};

constexpr std::string_view kOlderSets = "1.2.643.2.2.";

constexpr GostAlgorithm kAlgorithms[] = {
    {Family::Gost2001,     "1.2.643.2.2.19",    256, CALG_GR3411,          "1.2.643.2.2.30.1",  "1.2.643.2.2.35.1"   },
    {Family::Gost2012_256, "1.2.643.7.1.1.1.1", 256, CALG_GR3411_2012_256, "1.2.643.7.1.1.2.2",
     "1.2.643.7.1.2.1.1.1"                                                                                           },
    {Family::Gost2012_512, "1.2.643.7.1.1.1.2", 512, CALG_GR3411_2012_512, "",                  "1.2.643.7.1.2.1.2.1"},
};

template <class Matches>
const GostAlgorithm* FindAlgorithm(Matches matches) {
  const auto* row = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms), matches);
  return row == std::end(kAlgorithms) ? nullptr : row;
}

// What both halves of a key share.
struct Domain {
  const GostAlgorithm* algorithm = nullptr;
  const gost::ParameterSet* set = nullptr;
  const gost::Curve* curve = nullptr;
  SecretBytes parameters;  // as they were read, so that a key is written as it came
};

// NTE_BAD_ALGID: the algorithm has no such parameter set.
DWORD ChooseSet(const std::string& oid, Domain& domain) {
  const gost::ParameterSet* set = gost::FindParameterSet(oid);
  if (!set || set->bits != domain.algorithm->bits) return NTE_BAD_ALGID;
  if (domain.algorithm->family == Family::Gost2001 && !set->oid.starts_with(kOlderSets)) return NTE_BAD_ALGID;
  domain.set = set;
  domain.curve = gost::CurveOf(*set);
  return domain.curve ? 0 : NTE_FAIL;
}

// SEQUENCE { publicKeyParamSet OID, digestParamSet OID OPTIONAL, encryptionParamSet OID OPTIONAL }
bool ReadParameterSet(std::span<const BYTE> parameters, std::string& set) {
  der::Reader whole(parameters), fields;
  if (!whole.take(der::kSequence, fields) || !whole.empty() || !fields.takeOid(set)) return false;
  std::string ignored;  // the algorithm alone decides about the hash
  for (int i = 0; i < 2 && !fields.empty(); ++i) {
    if (!fields.takeOid(ignored)) return false;
  }
  return fields.empty();
}

DWORD ReadDomain(const std::string& oid, std::span<const BYTE> parameters, DWORD malformed, Domain& domain) {
  domain.algorithm = FindAlgorithm([&](const GostAlgorithm& row) { return row.oid == oid; });
  std::string set;
  if (!domain.algorithm || !ReadParameterSet(parameters, set)) return malformed;
  domain.parameters = certkern::ToSecret(parameters);
  return ChooseSet(set, domain);
}

// RFC 9215, 4.2: the older sets have their digest beside them, the newer ones stand alone.
SecretBytes WriteParameters(const GostAlgorithm& algorithm, std::string_view set) {
  SecretBytes digest;
  if (set.starts_with(kOlderSets)) digest = der::Oid(algorithm.digestOid);
  return der::Sequence({der::Oid(set), digest});
}

DWORD CheckInput(const Domain& domain, const SignatureInput& input) {
  if (input.pss) return NTE_BAD_FLAGS;
  if (input.hash != domain.algorithm->hash || input.value.size() != gost::SizeOf(*domain.curve))
    return NTE_BAD_HASH;
  return 0;
}

class GostPublicKey final : public PublicKey {
 public:
  GostPublicKey(Domain domain, SecretBytes point) : domain_(std::move(domain)), point_(std::move(point)) {}

  const Domain& domain() const { return domain_; }
  std::span<const BYTE> point() const { return point_; }

  Family family() const override { return domain_.algorithm->family; }
  DWORD bits() const override { return domain_.algorithm->bits; }
  std::string parameterSet() const override { return std::string(domain_.set->oid); }
  SecretBytes publicKeyInfo() const override {
    return der::Sequence({der::AlgorithmIdentifier(domain_.algorithm->oid, domain_.parameters),
                          der::BitString(der::OctetString(point_))});
  }
  DWORD verify(const SignatureInput& input, std::span<const BYTE> signature) const override {
    if (const DWORD code = CheckInput(domain_, input)) return code;
    const std::vector<BYTE> standard(signature.rbegin(), signature.rend());
    return gost::Verify(*domain_.curve, point_, input.value, standard) ? 0 : NTE_BAD_SIGNATURE;
  }

 private:
  const Domain domain_;
  const SecretBytes point_;
};

// Null where the key agrees on no value of that size.
DigestMaker AgreementDigest(Family family, size_t size) {
  if (size == 32) return family == Family::Gost2001 ? NewGost94 : NewStreebog256;
  return size == 64 && family != Family::Gost2001 ? NewStreebog512 : nullptr;
}

class GostPrivateKey final : public PrivateKey {
 public:
  GostPrivateKey(std::shared_ptr<const GostPublicKey> publicKey, SecretBytes number)
      : publicKey_(std::move(publicKey)), number_(std::move(number)) {}

  std::shared_ptr<const PublicKey> publicKey() const override { return publicKey_; }
  SecretBytes number() const override { return number_; }
  DWORD signatureSize() const override { return publicKey_->bits() / 4; }
  SecretBytes privateKeyInfo() const override;
  DWORD sign(const SignatureInput& input, SecretBytes& signature) const override;
  DWORD vko(const PublicKey& other, std::span<const BYTE> ukm, size_t size, SecretBytes& key) const override;
  DWORD keg(const PublicKey& other, std::span<const BYTE> ukm, SecretBytes& keys) const override;

 private:
  const Domain& domain() const { return publicKey_->domain(); }
  const GostPublicKey* peerOf(const PublicKey& other) const;

  const std::shared_ptr<const GostPublicKey> publicKey_;
  const SecretBytes number_;
};

// RFC 9548, 4: version 0, and the bare number, which every program reads.
SecretBytes GostPrivateKey::privateKeyInfo() const {
  return der::Sequence({der::Small(0), der::AlgorithmIdentifier(domain().algorithm->oid, domain().parameters),
                        der::OctetString(number_)});
}

DWORD GostPrivateKey::sign(const SignatureInput& input, SecretBytes& signature) const {
  if (const DWORD code = CheckInput(domain(), input)) return code;
  SecretBytes made;
  if (!gost::Sign(*domain().curve, number_, input.value, made)) return NTE_FAIL;
  std::reverse(made.begin(), made.end());
  signature = std::move(made);
  return 0;
}

// RFC 4357, 5: never with one's own key. Two names of one curve agree.
const GostPublicKey* GostPrivateKey::peerOf(const PublicKey& other) const {
  const auto* peer = dynamic_cast<const GostPublicKey*>(&other);
  if (!peer || peer->family() != publicKey_->family() || peer->domain().curve != domain().curve)
    return nullptr;
  return std::ranges::equal(peer->point(), publicKey_->point()) ? nullptr : peer;
}

DWORD GostPrivateKey::vko(const PublicKey& other, std::span<const BYTE> ukm, size_t size,
                          SecretBytes& key) const {
  const GostPublicKey* peer = peerOf(other);
  if (!peer) return NTE_BAD_KEY;
  const DigestMaker newDigest = AgreementDigest(publicKey_->family(), size);
  if (!newDigest) return NTE_BAD_LEN;
  const bool zero = std::ranges::all_of(ukm, [](BYTE octet) { return octet == 0; });
  if (zero || ukm.size() > certkern::kMaxUkmOctets) return NTE_BAD_DATA;
  SecretBytes shared;
  if (!gost::SharedPoint(*domain().curve, number_, ukm, peer->point(), shared)) return NTE_FAIL;
  const std::unique_ptr<Digest> digest = newDigest();
  if (!digest) return NTE_BAD_ALGID;
  SecretBytes value(size);
  if (!digest->add(shared) || !digest->finish(value)) return NTE_FAIL;
  key = std::move(value);
  return 0;
}

// RFC 9189, 8.3.1
DWORD GostPrivateKey::keg(const PublicKey& other, std::span<const BYTE> ukm, SecretBytes& keys) const {
  if (publicKey_->family() == Family::Gost2001) return NTE_BAD_KEY;
  if (ukm.size() != kKegUkmSize) return NTE_BAD_LEN;
  std::array<BYTE, 16> factor;
  std::reverse_copy(ukm.begin(), ukm.begin() + factor.size(), factor.begin());
  if (std::ranges::all_of(factor, [](BYTE octet) { return octet == 0; })) factor[0] = 1;
  if (publicKey_->bits() == 512) return vko(other, factor, kKegSize, keys);
  SecretBytes root;
  if (const DWORD code = vko(other, factor, 32, root)) return code;
  SecretBytes made(kKegSize);
  if (!KdfTree(root, kKegLabel, ukm.subspan(16, 8), made)) return NTE_FAIL;
  keys = std::move(made);
  return 0;
}

// number: checked
DWORD MakePrivateKey(Domain domain, SecretBytes number, PrivateKeyPtr& key) {
  SecretBytes point;
  if (!gost::PublicOf(*domain.curve, number, point)) return NTE_FAIL;
  auto publicKey = std::make_shared<const GostPublicKey>(std::move(domain), std::move(point));
  key = std::make_shared<const GostPrivateKey>(std::move(publicKey), std::move(number));
  return 0;
}

}  // namespace

DWORD ParseGostPublicKey(const std::string& oid, std::span<const BYTE> parameters, std::span<const BYTE> bits,
                         PublicKeyPtr& key) {
  Domain domain;
  if (const DWORD code = ReadDomain(oid, parameters, NTE_BAD_PUBLIC_KEY, domain)) return code;
  der::Reader in(bits);
  std::span<const BYTE> point;
  if (!in.take(der::kOctetString, point) || !in.empty() || !gost::IsPublic(*domain.curve, point)) {
    return NTE_BAD_PUBLIC_KEY;
  }
  key = std::make_shared<const GostPublicKey>(std::move(domain), certkern::ToSecret(point));
  return 0;
}

DWORD ParseGostPrivateKey(const std::string& oid, std::span<const BYTE> parameters,
                          std::span<const BYTE> octets, PrivateKeyPtr& key) {
  Domain domain;
  if (const DWORD code = ReadDomain(oid, parameters, NTE_BAD_KEY, domain)) return code;
  SecretBytes number;
  if (!gost::ReadPrivateNumber(*domain.curve, octets, number)) return NTE_BAD_KEY;
  return MakePrivateKey(std::move(domain), std::move(number), key);
}

DWORD GenerateGostKey(Family family, const std::string& parameterSet, PrivateKeyPtr& key) {
  Domain domain;
  domain.algorithm = FindAlgorithm([family](const GostAlgorithm& row) { return row.family == family; });
  if (!domain.algorithm) return NTE_BAD_ALGID;
  const std::string set =
      parameterSet.empty() ? std::string(domain.algorithm->usualParameters) : parameterSet;
  if (const DWORD code = ChooseSet(set, domain)) return code;
  domain.parameters = WriteParameters(*domain.algorithm, set);
  SecretBytes number;
  if (!gost::RandomPrivate(*domain.curve, number)) return NTE_FAIL;
  return MakePrivateKey(std::move(domain), std::move(number), key);
}

}  // namespace keykern
