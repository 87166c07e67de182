// certkern sign: makes signed messages.
#include "chain_request.h"
#include "command.h"
#include "encoded.h"
#include "failure.h"
#include "hashes.h"
#include "input.h"
#include "message_file.h"
#include "message_signer.h"
#include "oid_names.h"
#include "output.h"
#include "shape.h"
#include "signer_faults.h"
#include "signing.h"
#include "text.h"

#include <certkern/cert.h>
#include <certkern/msg_simple.h>
#include <certkern/sv.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace certkern::cli {
namespace {

struct SignArguments {
  std::string file;
  SignerOptions signer;
  bool detached = false;
  std::string hash;
  std::vector<std::string> attributes;
  std::string cades;
  std::vector<std::string> additions;
  OutputOptions output;
};

std::string Shown(const std::string& text) { return Escaped(Utf8Of(std::string_view(text))); }

// --- attributes ---

struct Attribute {
  std::string oid;
  Bytes value;  // one whole element
};

Attribute AttributeOf(const std::string& option) {
  const std::string shown = Shown(option);
  const size_t equals = option.find('=');
  if (equals == option.npos || !IsDottedOid(option.substr(0, equals)))
    throw WrongUsage(fmt::format("--attribute {}: must be OID=HEX, as 1.2.3.4=0500", shown));
  Attribute attribute{option.substr(0, equals), BytesOfHex(option.substr(equals + 1), "--attribute")};
  if (ElementSize(attribute.value) != attribute.value.size())
    throw WrongUsage(fmt::format("--attribute {}: the value must be one whole DER element", shown));
  return attribute;
}

class AttributeList {
 public:
  explicit AttributeList(const std::vector<std::string>& options) {
    for (const std::string& option : options) attributes_.push_back(AttributeOf(option));
    for (Attribute& each : attributes_) blobs_.push_back(BlobOf(each.value));
    for (size_t i = 0; i < attributes_.size(); ++i)
      records_.push_back({attributes_[i].oid.data(), 1, &blobs_[i]});
  }
  std::vector<CRYPT_ATTRIBUTE>& records() { return records_; }

 private:
  std::vector<Attribute> attributes_;
  std::vector<CRYPT_ATTR_BLOB> blobs_;
  std::vector<CRYPT_ATTRIBUTE> records_;
};

// --- what is signed, and how ---

std::string HashOid(const SignArguments& arguments, const ContainerKey& key) {
  const std::string keyOid = PublicKeyOf(key).info().Algorithm.pszObjId;
  if (key.family->signature == CALG_EDDSA)
    throw Failure(fmt::format("keys of {} sign no messages", key.family->name));
  if (arguments.hash.empty()) {
    const CRYPT_OID_INFO* row = IsGost(*key.family) ? SVCryptGetDefaultHashOIDInfo(keyOid.c_str()) : nullptr;
    return row ? row->pszOID : UsualHash(key).oid;
  }
  std::string oid = IsDottedOid(arguments.hash) ? arguments.hash : HashByName(arguments.hash).oid;
  if (!SVCryptGetSignatureOIDInfo(keyOid.c_str(), oid.c_str()))
    throw WrongUsage(fmt::format("--hash {}: keys of {} do not sign it", arguments.hash, key.family->name));
  if (IsWeakHash(oid.c_str()))
    Complain("--hash {}: weak: other content can be made that the signature fits", arguments.hash);
  return oid;
}

DWORD CadesFlags(const SignArguments& arguments, const ContainerKey& key) {
  if (arguments.cades == "off") return SVCMSG_CADES_DISABLE;
  if (arguments.cades.empty()) return 0;
  if (!IsGost(*key.family))
    throw WrongUsage("--cades strict: only signatures of GOST keys get the attributes");
  return SVCMSG_CADES_STRICT;
}

// Everything that goes into the message beside the content.
class Companions {
 public:
  Companions(const SignArguments& arguments, PCCERT_CONTEXT signer) : certificates_{signer} {
    const StoreHandle store = OpenMemoryStore();
    for (const std::string& each : arguments.additions) LoadSource(each, store.get());
    ForEachCertificate(store.get(), [&](PCCERT_CONTEXT each) {
      if (CertCompareCertificate(X509_ASN_ENCODING, each->pCertInfo, signer->pCertInfo)) return;
      certificates_.push_back(owned_.emplace_back(CertDuplicateCertificateContext(each)).get());
    });
    ForEachCrl(store.get(), [&](PCCRL_CONTEXT each) {
      crls_.push_back(ownedCrls_.emplace_back(CertDuplicateCRLContext(each)).get());
    });
  }
  std::vector<PCCERT_CONTEXT>& certificates() { return certificates_; }
  std::vector<PCCRL_CONTEXT>& crls() { return crls_; }

 private:
  std::vector<CertificateHandle> owned_;
  std::vector<CrlHandle> ownedCrls_;
  std::vector<PCCERT_CONTEXT> certificates_;
  std::vector<PCCRL_CONTEXT> crls_;
};

Bytes Sign(CRYPT_SIGN_MESSAGE_PARA& para, const Bytes& content, bool detached) {
  static constexpr BYTE kNothing = 0;  // an empty content is a content, too
  const BYTE* pieces[] = {content.empty() ? &kNothing : content.data()};
  DWORD sizes[] = {CheckedSize(content.size())};
  Bytes message;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptSignMessage(&para, detached, 1, pieces, sizes, out, size);
  };
  if (!AskBytes(ask, message)) ThrowLastError("the signature");
  return message;
}

// Attributes of the user's may be such that nobody can read or believe the message, and the configuration may forbid those
// that he asks for.
void CheckResult(const SignArguments& arguments, const MessageSigner& signer, std::span<const BYTE> encoded) {
  if (const auto refusal = FindRefusal(encoded, OpenValues::Checked))
    throw Failure("nobody could read this message: " + refusal->text);
  const MessageHandle message = OpenMessage(encoded, ContentPlace::Inside);
  if (!message) ThrowLastError("this message");
  const Bytes record = MessageBytes(message.get(), CMSG_CMS_SIGNER_INFO_PARAM);
  const BindingFinding binding =
      JudgeBinding(RecordIn<CMSG_CMS_SIGNER_INFO>(record), signer.certificate.get());
  if (arguments.cades == "strict" && binding == BindingFinding::None)
    throw Failure(
        "--cades strict: the attributes are not there; the configuration may forbid them (AddEsAttribute)");
  if (binding == BindingFinding::Other)
    throw Failure(
        "this message would not be valid: an attribute names another certificate than the signer's");
}

int RunSign(const SignArguments& arguments) {
  CheckDestination(arguments.output, Secrecy::Public);
  AttributeList attributes(arguments.attributes);  // before a PIN is typed for nothing
  FileContent content = ReadInput(arguments.file);
  if (!content.error.empty()) throw Failure(fmt::format("{}: {}", Shown(arguments.file), content.error));
  const MessageSigner signer = OpenSigner(arguments.signer);
  std::string hash = HashOid(arguments, signer.key);
  Companions companions(arguments, signer.certificate.get());

  CRYPT_SIGN_MESSAGE_PARA para{};
  para.cbSize = sizeof para;
  para.dwMsgEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  para.pSigningCert = signer.certificate.get();
  para.HashAlgorithm.pszObjId = hash.data();
  para.cMsgCert = CheckedSize(companions.certificates().size());
  para.rgpMsgCert = companions.certificates().data();
  para.cMsgCrl = CheckedSize(companions.crls().size());
  para.rgpMsgCrl = companions.crls().data();
  para.cAuthAttr = CheckedSize(attributes.records().size());
  para.rgAuthAttr = attributes.records().data();
  para.dwFlags = CadesFlags(arguments, signer.key);
  const Bytes message = Sign(para, content.bytes, arguments.detached);
  Bytes().swap(content.bytes);  // the message has it; a large one need not be there twice
  CheckResult(arguments, signer, message);
  WriteObject(arguments.output, "CMS", message);
  return 0;
}

void AddHashOption(CLI::App& command, std::string& hash) {
  command
      .add_option("--hash", hash,
                  "The hash that is signed, by name or identifier; what suits the key unless given")
      ->check([](const std::string& text) {
        const std::vector<std::string> names = HashNames();
        if (IsDottedOid(text) || std::find(names.begin(), names.end(), text) != names.end())
          return std::string();
        return fmt::format("must be an identifier, or one of {}", fmt::join(names, ", "));
      })
      ->type_name("NAME|OID");
}

}  // namespace

Runner PrepareSign(CLI::App& command) {
  const auto arguments = std::make_shared<SignArguments>();
  command.add_option("FILE", arguments->file, "What is to be signed; - stands for standard input")
      ->required()
      ->type_name("");
  AddSignerOptions(command, arguments->signer);
  command.add_flag("--detached", arguments->detached, "Leave the content out of the message");
  AddHashOption(command, arguments->hash);
  command
      .add_option("--attribute", arguments->attributes,
                  "Sign this attribute, too; its value is one DER element")
      ->allow_extra_args(false)
      ->type_name("OID=HEX");
  command
      .add_option(
          "--cades", arguments->cades,
          "The attributes of an advanced signature, which GOST signatures get: strict insists on them, off "
          "leaves them out")
      ->check(CLI::IsMember(std::vector<std::string>{"strict", "off"}));
  command
      .add_option("--add-certificate", arguments->additions,
                  "Put the certificates and CRLs of this file or store into the message, too")
      ->allow_extra_args(false)
      ->type_name("FILE|NAME");
  AddOutputOptions(command, arguments->output);
  command.footer(
      "Keys of gost2012-256, gost2012-512, gost2001, rsa and ecdsa sign messages; those of ed25519 and ed448 "
      "do not.\n\n"
      "Examples:\n"
      "  certkern sign letter.txt --key anna -o letter.cms\n"
      "  certkern sign letter.txt --key anna --certificate anna.crt --add-certificate ca.crt --detached -o "
      "letter.sig");
  return [arguments] { return RunSign(*arguments); };
}

}  // namespace certkern::cli
