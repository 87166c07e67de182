#include "signing.h"

#include "algorithm_identifier.h"
#include "encoded.h"
#include "failure.h"
#include "grammar.h"
#include "hashes.h"

#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/oids.h>
#include <certkern/sv.h>
#include <fmt/format.h>
#include <CLI/Option.hpp>

#include <cassert>
#include <initializer_list>

namespace certkern::cli {
namespace {

// ECDSA signatures differ in length: what was measured may be less than what comes.
constexpr DWORD kSlack = 64;

bool IsEdwards(const KeyFamily& family) { return family.signature == CALG_EDDSA; }

// One element around others; all of them are short.
Bytes Element(BYTE tag, std::initializer_list<Bytes> parts) {
  Bytes element = {tag, 0};
  for (const Bytes& part : parts) element.insert(element.end(), part.begin(), part.end());
  assert(element.size() - 2 < 0x80);
  element[1] = static_cast<BYTE>(element.size() - 2);
  return element;
}

// RSASSA-PSS-params ::= SEQUENCE { hashAlgorithm [0], maskGenAlgorithm [1], saltLength [2] }. RFC 4055, 3.1
Bytes PssParameters(const HashRow& hash) {
  const Bytes hashAlgorithm = EncodeAlgorithm({
      hash.oid, {kNullTag, 0}
  });
  const Bytes mask = EncodeAlgorithm({szOID_RSA_MGF1, hashAlgorithm});
  const Bytes salt = Encode(X509_INTEGER, &hash.size, "RSASSA-PSS");
  return Element(kSequenceTag,
                 {Element(ContextTag(0), {hashAlgorithm}), Element(ContextTag(1), {mask}),
                  Element(ContextTag(2), {salt})});
}

SignatureAlgorithm ChoosePss(const ContainerKey& key, const HashRow& hash) {
  if (key.family->oid != std::string_view(szOID_RSA_RSA))
    throw WrongUsage("--pss: only RSA keys sign like that");
  return {szOID_RSA_SSA_PSS, PssParameters(hash)};
}

}  // namespace

void AddSigningOptions(CLI::App& command, SigningOptions& options) {
  command.add_option("--key", options.choice.place.name, "The key container")->required()->type_name("NAME");
  AddMachineOption(command, options.choice.place);
  AddPurposeOption(command, options.choice.purpose, "Which key of the container, where there are two");
  AddPinOptions(command, options.choice.pin, "pin");
  command.add_option("--hash", options.hash, "The hash that is signed; what suits the key unless given")
      ->check(CLI::IsMember(HashNames()));
  command.add_flag("--pss", options.pss, "RSASSA-PSS, with a salt as long as the hash");
}

const HashRow& UsualHash(const ContainerKey& key) {
  if (std::string_view(key.family->oid) != szOID_ECC_PUBLIC_KEY) return HashByName("sha256");
  const auto bits = KeyParam<DWORD>(key.key.get(), KP_KEYLEN, "the key");
  if (bits <= 256) return HashByName("sha256");
  return HashByName(bits <= 384 ? "sha384" : "sha512");
}

CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm::identifier() { return {oid.data(), BlobOf(parameters)}; }

SignatureAlgorithm ChooseSignature(const SigningOptions& options, const ContainerKey& key) {
  // a key of EdDSA is named by its curve
  const std::string keyOid = PublicKeyOf(key).info().Algorithm.pszObjId;
  if (IsEdwards(*key.family)) {
    if (!options.hash.empty() || options.pss)
      throw WrongUsage("--hash, --pss: signatures of Ed25519 and Ed448 have no variants");
    return {keyOid, {}};
  }
  const HashRow& hash = options.hash.empty() ? UsualHash(key) : HashByName(options.hash);
  if (options.pss) return ChoosePss(key, hash);
  const CRYPT_OID_INFO* row = options.hash.empty() && IsGost(*key.family)
      ? SVCryptGetDefaultSignatureOIDInfo(keyOid.c_str())
      : SVCryptGetSignatureOIDInfo(keyOid.c_str(), hash.oid);
  if (!row)
    throw WrongUsage(fmt::format("--hash {}: keys of {} do not sign it", hash.name, key.family->name));
  return {row->pszOID, {}};
}

Bytes SignRecord(const ContainerKey& key, LPCSTR type, const void* record, SignatureAlgorithm& algorithm) {
  CRYPT_ALGORITHM_IDENTIFIER identifier = algorithm.identifier();
  const auto sign = [&](BYTE* out, DWORD* size) {
    return CryptSignAndEncodeCertificate(key.provider.get(), key.spec, X509_ASN_ENCODING, type, record,
                                         &identifier, nullptr, out, size);
  };
  DWORD size = 0;
  if (!sign(nullptr, &size)) ThrowLastError("the signature");
  size += kSlack;
  Bytes encoded(size);
  if (!sign(encoded.data(), &size)) ThrowLastError("the signature");
  encoded.resize(size);
  return encoded;
}

}  // namespace certkern::cli
