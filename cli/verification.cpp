#include "verification.h"

#include "decoded.h"
#include "failure.h"
#include "message_file.h"
#include "text.h"

#include <certkern/attributes.h>
#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/oid.h>
#include <certkern/oids.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace certkern::cli {
namespace {

// Each has its chain built, and a few bytes make one: a verifier must not be kept busy for hours.
constexpr DWORD kMostSigners = 1000;

std::string Shown(const std::string& name) { return Escaped(Utf8Of(std::string_view(name))); }

// Nothing for a hash that the key library does not have.
std::optional<Bytes> HashOf(LPCSTR oid, std::span<const BYTE> bytes) {
  const ALG_ID algorithm = CertOIDToAlgId(oid);
  if (!algorithm) return std::nullopt;
  Bytes hash;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptHashCertificate(0, algorithm, 0, bytes.data(), CheckedSize(bytes.size()), out, size);
  };
  return AskBytes(ask, hash) ? std::optional(std::move(hash)) : std::nullopt;
}

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
  return message;
}

OpenedMessage OpenWithContent(const VerifyOptions& options) {
  const MessageFile file = ReadMessageFile(options.file, Shown(options.file));
  if (!IsSignedMessage(file.bytes)) file.fail("a message, but not a signed one");
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

CertificateHandle FindIn(HCERTSTORE store, const CERT_ID& id) {
  if (!store) return {};
  return CertificateHandle(CertFindCertificateInStore(store, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                                      CERT_FIND_CERT_ID, &id, nullptr));
}

CertificateHandle FindSigner(const ChainSources& sources, const CERT_ID& id) {
  CertificateHandle found = FindIn(sources.additional.get(), id);
  return found ? std::move(found) : FindIn(sources.trusted.get(), id);
}

ContentFinding JudgeContent(const CMSG_CMS_SIGNER_INFO& info, std::span<const BYTE> content) {
  const auto value = AttributeValue(info.AuthAttrs, szOID_RSA_messageDigest);
  const auto digest = value ? Decode<CRYPT_DATA_BLOB>(X509_OCTET_STRING, *value) : nullptr;
  const std::optional<Bytes> hash = HashOf(info.HashAlgorithm.pszObjId, content);
  if (!digest || !hash) return ContentFinding::Unknown;
  return std::ranges::equal(*hash, BytesOf(*digest)) ? ContentFinding::Intact : ContentFinding::Changed;
}

bool Names(const SV_CERT_HASH_ID& id, LPCSTR usualHash, PCCERT_CONTEXT certificate) {
  const LPCSTR oid = id.HashAlgorithm.pszObjId ? id.HashAlgorithm.pszObjId : usualHash;
  const std::optional<Bytes> hash = HashOf(oid, {certificate->pbCertEncoded, certificate->cbCertEncoded});
  return hash && std::ranges::equal(*hash, BytesOf(id.CertHash));
}

BindingFinding JudgeBinding(const CMSG_CMS_SIGNER_INFO& info, PCCERT_CONTEXT certificate) {
  struct Form {
    const char* oid;
    LPCSTR type;
    const char* usualHash;
  };
  static constexpr Form kForms[] = {
      {szOID_SIGNING_CERTIFICATE_V2, SV_SIGNING_CERTIFICATE_V2_STRUCT, szOID_NIST_sha256},
      {szOID_SIGNING_CERTIFICATE,    SV_SIGNING_CERTIFICATE_STRUCT,    szOID_OIWSEC_sha1},
  };
  BindingFinding finding = BindingFinding::None;
  for (const Form& form : kForms) {
    const auto value = AttributeValue(info.AuthAttrs, form.oid);
    if (!value) continue;
    const auto record = Decode<SV_SIGNING_CERTIFICATE>(form.type, *value);
    // the first one is the signer's
    if (!record || !record->cCert || !Names(record->rgCert[0], form.usualHash, certificate))
      return BindingFinding::Other;
    finding = BindingFinding::Same;
  }
  return finding;
}

void JudgeSignature(HCRYPTMSG message, PCCERT_CONTEXT certificate, SignerFindings& signer) {
  CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA para{};
  para.cbSize = sizeof para;
  para.dwSignerIndex = signer.number - 1;
  para.dwSignerType = CMSG_VERIFY_SIGNER_CERT;
  para.pvSigner = const_cast<CERT_CONTEXT*>(certificate);
  if (CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &para)) {
    signer.signature = SignatureFinding::Valid;
    signer.content = ContentFinding::Intact;
    return;
  }
  signer.code = GetLastError();
  signer.signature = signer.code == NTE_BAD_ALGID ? SignatureFinding::Unchecked : SignatureFinding::Invalid;
}

SignerFindings JudgeSigner(const OpenedMessage& message, DWORD number, const VerifyOptions& options,
                           const std::shared_ptr<const ChainSources>& sources) {
  SignerFindings signer;
  signer.number = number;
  signer.record = MessageBytes(message.handle.get(), CMSG_CMS_SIGNER_INFO_PARAM, number - 1);
  signer.signingTime = SigningTime(signer.info().AuthAttrs);
  signer.content = JudgeContent(signer.info(), message.content);
  CertificateHandle certificate = FindSigner(*sources, signer.info().SignerId);
  if (!certificate) return signer;
  JudgeSignature(message.handle.get(), certificate.get(), signer);
  signer.binding = JudgeBinding(signer.info(), certificate.get());
  signer.chain = BuildChain(options.chain, sources, std::move(certificate),
                            fmt::format("{}: signer {}", Shown(options.file), number));
  return signer;
}

}  // namespace

Verdict VerdictOn(const SignerFindings& signer) {
  if (signer.content == ContentFinding::Changed || signer.signature == SignatureFinding::Invalid
      || signer.binding == BindingFinding::Other)
    return Verdict::Invalid;
  const Verdict chain = signer.chain ? VerdictOnAll(*signer.chain, std::nullopt) : Verdict::Undetermined;
  if (chain == Verdict::Valid && signer.signature == SignatureFinding::Unchecked)
    return Verdict::Undetermined;
  return chain;
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
  const std::shared_ptr<const ChainSources> sources = LoadChainSources(options.chain);
  if (const size_t refused = TakeCertificates(message.handle.get(), sources->additional.get()))
    fmt::print(stderr, "certkern: {}: {} of the certificates and CRLs in the message can't be read\n",
               Shown(options.file), refused);
  const DWORD first = options.signer ? options.signer : 1;
  const DWORD last = options.signer ? options.signer : findings.signerCount;
  for (DWORD number = first; number <= last; ++number)
    findings.signers.push_back(JudgeSigner(message, number, options, sources));
  return findings;
}

}  // namespace certkern::cli
