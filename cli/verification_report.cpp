#include "decoded.h"
#include "key_fields.h"
#include "message_fields.h"
#include "name_fields.h"
#include "oid_names.h"
#include "text.h"
#include "verification.h"

#include <fmt/format.h>

#include <sstream>

namespace certkern::cli {
namespace {

std::string_view ContentWord(ContentFinding finding) {
  switch (finding) {
    case ContentFinding::Intact:
      return Say("intact", "не изменено");
    case ContentFinding::Changed:
      return Say("changed after it was signed", "изменено после подписания");
    default:
      return Say("can't be told apart from the signature", "проверяется только вместе с подписью");
  }
}

std::string SignatureWord(const SignerFindings& signer) {
  switch (signer.certificate.signature) {
    case SignatureFinding::Valid:
      return std::string(IsWeakHash(signer.info().HashAlgorithm.pszObjId)
                             ? Say("valid (weak hash)", "действительна (слабая хэш-функция)")
                             : Say("valid", "действительна"));
    case SignatureFinding::Invalid: {
      std::string word(Say("not valid", "недействительна"));
      for (const SignerFault fault : signer.certificate.faults) {
        if (SubjectOf(fault) == FaultSubject::Signature) word += fmt::format(": {}", SentenceOf(fault));
      }
      return word;
    }
    default:
      break;
  }
  if (!signer.certificate.chain) {
    return std::string(
        Say("not checked: the signer's certificate is not there; --additional names a file with it",
            "не проверена: нет сертификата подписавшего; файл с ним задаёт --additional"));
  }
  return std::string(Say("not checked: the algorithm is not available", "не проверена: алгоритм недоступен"));
}

std::string_view BindingWord(BindingFinding finding) {
  switch (finding) {
    case BindingFinding::Same:
      return Say("named in the signature", "указан в подписи");
    case BindingFinding::Other:
      return Say("the signature names another one", "в подписи указан другой");
    default:
      return Say("not named in the signature", "в подписи не указан");
  }
}

std::string AlgorithmName(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, DWORD group) {
  const Oid oid = NamedOid(algorithm.pszObjId, group);
  return Escaped(oid.name.empty() ? oid.dotted : oid.name);
}

std::string SerialText(const CRYPT_INTEGER_BLOB& serial) {
  const std::span<const BYTE> little = BytesOf(serial);
  return HexText(Bytes(little.rbegin(), little.rend()));
}

// By what the message calls him.
std::string SignerName(const SignerFindings& signer) {
  if (signer.certificate.chain)
    return NameLine(signer.certificate.chain->certificate.get()->pCertInfo->Subject);
  const CERT_ID& id = signer.info().SignerId;
  if (id.dwIdChoice == CERT_ID_KEY_IDENTIFIER)
    return fmt::format("{} {}", Say("key", "ключ"), HexText(BytesOf(id.KeyId)));
  return fmt::format("{} {}, {} {}", Say("serial number", "серийный номер"),
                     SerialText(id.IssuerSerialNumber.SerialNumber), Say("issued by", "издатель"),
                     NameLine(id.IssuerSerialNumber.Issuer));
}

// Of the message; its signature may verify all the same.
std::string_view MessageVerdictWord(Verdict verdict) {
  switch (verdict) {
    case Verdict::Valid:
      return Say("Valid", "Сообщение действительно");
    case Verdict::Invalid:
      return Say("Not valid", "Сообщение недействительно");
    default:
      return Say("Undetermined", "Действительность сообщения не установлена");
  }
}

void AppendRow(std::string& out, std::string_view english, std::string_view russian, std::string_view value) {
  out += fmt::format("  {}: {}\n", Say(english, russian), value);
}

void AppendChain(std::string& out, const BuiltChain& chain) {
  const DWORD status = chain.context().TrustStatus.dwErrorStatus;
  AppendRow(out, "Chain", "Цепочка", VerdictText(VerdictOf(status), status));
  std::istringstream lines(PathText(chain));
  for (std::string line; std::getline(lines, line);) out += fmt::format("    {}\n", line);
}

void AppendFaults(std::string& out, const std::vector<SignerFault>& faults, FaultSubject subject,
                  std::string_view english, std::string_view russian) {
  for (const SignerFault fault : faults) {
    if (SubjectOf(fault) == subject) AppendRow(out, english, russian, SentenceOf(fault));
  }
}

void AppendSigner(std::string& out, const SignerFindings& signer) {
  const CMSG_CMS_SIGNER_INFO& info = signer.info();
  out += fmt::format("\n{} {}: {}\n", Say("Signer", "Подписавший"), signer.number, SignerName(signer));
  AppendRow(out, "Content", "Содержимое", ContentWord(signer.content));
  AppendFaults(out, signer.certificate.faults, FaultSubject::ContentType, "Content type", "Тип содержимого");
  AppendRow(out, "Signature", "Подпись", SignatureWord(signer));
  AppendRow(out, "Algorithm", "Алгоритм",
            fmt::format("{}, {}", AlgorithmName(info.HashEncryptionAlgorithm, CRYPT_SIGN_ALG_OID_GROUP_ID),
                        AlgorithmName(info.HashAlgorithm, CRYPT_HASH_ALG_OID_GROUP_ID)));
  if (signer.signingTime) {
    AppendRow(out, "Signed at", "Время подписи",
              fmt::format("{} ({})", TimeText(*signer.signingTime),
                          Say("by the signer's own clock", "по часам подписавшего")));
  }
  AppendRow(out, "Certificate", "Сертификат", BindingWord(signer.certificate.binding));
  AppendFaults(out, signer.certificate.faults, FaultSubject::Certificate, "Certificate", "Сертификат");
  if (signer.certificate.chain) AppendChain(out, *signer.certificate.chain);
}

Words NameOf(ContentFinding finding) {
  if (finding == ContentFinding::Unknown) return {"unknown"};
  return {finding == ContentFinding::Intact ? "intact" : "changed"};
}

Words NameOf(SignatureFinding finding) {
  if (finding == SignatureFinding::Unchecked) return {"notChecked"};
  return {finding == SignatureFinding::Valid ? "valid" : "invalid"};
}

Words NameOf(BindingFinding finding) {
  if (finding == BindingFinding::None) return {"none"};
  return {finding == BindingFinding::Same ? "same" : "other"};
}

Field SignerField(const SignerFindings& signer) {
  const CMSG_CMS_SIGNER_INFO& info = signer.info();
  const CertificateFindings& findings = signer.certificate;
  Field object;
  object.add("Signer", int64_t{signer.number});
  object.add("Verdict", Words{std::string(VerdictName(VerdictOn(signer)))});
  AddSignerId(object, info.SignerId);
  AddAlgorithm(object, "Hash algorithm", info.HashAlgorithm, CRYPT_HASH_ALG_OID_GROUP_ID);
  AddAlgorithm(object, "Signature algorithm", info.HashEncryptionAlgorithm, CRYPT_SIGN_ALG_OID_GROUP_ID);
  if (signer.signingTime) object.add("Signing time", Words{TimeText(*signer.signingTime)});
  object.add("Content", NameOf(signer.content));
  object.add("Signature", NameOf(findings.signature));
  if (findings.code) object.add("Error", Words{fmt::format("0x{:08x}", findings.code)});
  object.add("Weak hash", IsWeakHash(info.HashAlgorithm.pszObjId));
  object.add("Signing certificate", NameOf(findings.binding));
  Field& faults = object.addList("Faults");
  for (const SignerFault fault : findings.faults) faults.add(Field("", Words{std::string(NameOf(fault))}));
  if (findings.chain) object.add(ChainField(*findings.chain, std::nullopt));
  return object;
}

}  // namespace

std::string VerificationText(const MessageFindings& message) {
  std::string out = fmt::format("{}: {}, {} {}\n", Say("Content", "Содержимое"),
                                message.detached ? Say("in a file of its own", "в отдельном файле")
                                                 : Say("in the message", "в сообщении"),
                                message.contentSize, Say("bytes", "байт"));
  if (message.signers.size() != message.signerCount)
    out += fmt::format(
        "{}\n",
        Say("Other signers of the message were not looked at.", "Остальные подписавшие не проверялись."));
  for (const SignerFindings& each : message.signers) AppendSigner(out, each);
  out += fmt::format("\n{}.\n", MessageVerdictWord(VerdictOn(message)));
  return out;
}

Field VerificationField(const MessageFindings& message) {
  Field object("Signed message");
  object.add("Verdict", Words{std::string(VerdictName(VerdictOn(message)))});
  object.add("Detached", message.detached);
  object.add("Content size", static_cast<int64_t>(message.contentSize));
  object.add("Signer count", int64_t{message.signerCount});
  Field& signers = object.addList("Signers");
  for (const SignerFindings& each : message.signers) signers.add(SignerField(each));
  return object;
}

}  // namespace certkern::cli
