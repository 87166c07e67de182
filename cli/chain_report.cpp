#include "chain_report.h"

#include "decoded.h"
#include "name_fields.h"
#include "text.h"

#include <certkern/errors.h>
#include <certkern/name.h>
#include <certkern/properties.h>
#include <certkern/revocation.h>
#include <fmt/format.h>

#include <span>

namespace certkern::cli {
namespace {

using Elements = std::span<const PCERT_CHAIN_ELEMENT>;

Elements ElementsOf(const CERT_SIMPLE_CHAIN& path) { return {path.rgpElement, path.cElement}; }

std::string DayOf(const FILETIME& time) { return TimeText(time).substr(0, 10); }

std::string AgeText(DWORD seconds) {
  constexpr DWORD kMinute = 60, kHour = 3600, kDay = 86400;
  if (seconds >= 2 * kDay) return fmt::format("{} {}", seconds / kDay, Say("days", "дн."));
  if (seconds >= 2 * kHour) return fmt::format("{} {}", seconds / kHour, Say("hours", "ч."));
  return fmt::format("{} {}", seconds / kMinute, Say("minutes", "мин."));
}

// Lines about one element, below its name.
std::vector<std::string> RemarksOn(const CERT_CHAIN_ELEMENT& element) {
  std::vector<std::string> remarks;
  for (const std::string_view sentence : StatusSentences(element.TrustStatus.dwErrorStatus))
    remarks.push_back(fmt::format("! {}", sentence));
  const CERT_REVOCATION_INFO* revocation = element.pRevocationInfo;
  if (!revocation || !revocation->pCrlInfo || !revocation->pCrlInfo->pBaseCrlContext) return remarks;
  const CERT_REVOCATION_CRL_INFO& crls = *revocation->pCrlInfo;
  remarks.push_back(fmt::format("CRL: {}, {} {}, {} {}", NameLine(crls.pBaseCrlContext->pCrlInfo->Issuer),
                                Say("age", "возраст"), AgeText(revocation->dwFreshnessTime),
                                Say("next update", "следующий"),
                                TimeText(crls.pBaseCrlContext->pCrlInfo->NextUpdate)));
  if (crls.pDeltaCrlContext) {
    remarks.push_back(fmt::format("{}: {}", Say("delta CRL of", "дельта-CRL от"),
                                  TimeText(crls.pDeltaCrlContext->pCrlInfo->ThisUpdate)));
  }
  if (crls.pCrlEntry) {
    remarks.push_back(fmt::format("{} {}", Say("listed as revoked since", "отозван с"),
                                  TimeText(crls.pCrlEntry->RevocationDate)));
  }
  return remarks;
}

void AppendPath(std::string& out, const CERT_SIMPLE_CHAIN& path) {
  const Elements elements = ElementsOf(path);
  std::string indent;
  for (size_t i = elements.size(); i-- > 0;) {
    const CERT_INFO& info = *elements[i]->pCertContext->pCertInfo;
    const bool first = i + 1 == elements.size();
    out += fmt::format("{}{}{}  ({} {})\n", indent, first ? "" : "└─ ", NameLine(info.Subject),
                       Say("until", "до"), DayOf(info.NotAfter));
    if (!first) indent += "   ";
    for (const std::string& remark : RemarksOn(*elements[i]))
      out += fmt::format("{}{} {}\n", indent, i ? "│ " : "  ", remark);
  }
}

void AddCrl(Field& list, std::string_view label, PCCRL_CONTEXT crl) {
  if (!crl) return;
  Field& field = list.add(label);
  field.add(NameField("Issuer", BytesOf(crl->pCrlInfo->Issuer)));
  field.add("This update", Words{TimeText(crl->pCrlInfo->ThisUpdate)});
  field.add("Next update", Words{TimeText(crl->pCrlInfo->NextUpdate)});
}

void AddRevocation(Field& object, const CERT_REVOCATION_INFO& revocation) {
  Field& field = object.add("Revocation");
  switch (revocation.dwRevocationResult) {
    case ERROR_SUCCESS:
      field.add("Result", Words{revocation.fHasFreshnessTime ? "good" : "notChecked"});
      break;
    case CRYPT_E_REVOKED:
      field.add("Result", Words{"revoked"});
      break;
    default:
      field.add("Result", Words{"unknown"});
  }
  if (revocation.fHasFreshnessTime) field.add("Age", int64_t{revocation.dwFreshnessTime});
  if (!revocation.pCrlInfo) return;
  AddCrl(field, "Base CRL", revocation.pCrlInfo->pBaseCrlContext);
  AddCrl(field, "Delta CRL", revocation.pCrlInfo->pDeltaCrlContext);
  if (revocation.pCrlInfo->pCrlEntry)
    field.add("Revoked since", Words{TimeText(revocation.pCrlInfo->pCrlEntry->RevocationDate)});
}

void AddStatus(Field& object, DWORD errorStatus) {
  Field& list = object.addList("Errors");
  for (const std::string_view name : StatusNames(errorStatus)) list.add(Field({}, Words{std::string(name)}));
}

void AddUsages(Field& object, std::string_view label, const CERT_ENHKEY_USAGE* usages) {
  if (!usages) return;
  Field& list = object.addList(label);
  for (const LPSTR usage : std::span(usages->rgpszUsageIdentifier, usages->cUsageIdentifier))
    list.add(Field({}, Oid{usage, {}}));
}

Field ElementField(const CERT_CHAIN_ELEMENT& element) {
  const CERT_INFO& info = *element.pCertContext->pCertInfo;
  Field object;
  object.add(NameField("Subject", BytesOf(info.Subject)));
  object.add(NameField("Issuer", BytesOf(info.Issuer)));
  object.add("Not before", Words{TimeText(info.NotBefore)});
  object.add("Not after", Words{TimeText(info.NotAfter)});
  AddStatus(object, element.TrustStatus.dwErrorStatus);
  if (element.pRevocationInfo) AddRevocation(object, *element.pRevocationInfo);
  AddUsages(object, "Issuance policies", element.pIssuanceUsage);
  AddUsages(object, "Application policies", element.pApplicationUsage);
  return object;
}

}  // namespace

std::string NameLine(const CERT_NAME_BLOB& name) {
  CERT_NAME_BLOB blob = name;
  std::wstring text(CertNameToStrW(X509_ASN_ENCODING, &blob, CERT_X500_NAME_STR, nullptr, 0), L'\0');
  CertNameToStrW(X509_ASN_ENCODING, &blob, CERT_X500_NAME_STR, text.data(), CheckedSize(text.size()));
  text.pop_back();
  return text.empty() ? "(no name)" : Escaped(Utf8Of(std::wstring_view(text)));
}

Verdict VerdictOnAll(const BuiltChain& built, const std::optional<PolicyResult>& policy) {
  const Verdict chain = VerdictOf(built.context().TrustStatus.dwErrorStatus);
  // a policy overlooks what the user told it to
  return policy ? VerdictOfPolicy(policy->error) : chain;
}

std::string PathText(const BuiltChain& built) {
  std::string out;
  AppendPath(out, built.path());
  return out;
}

std::string VerdictText(Verdict verdict, DWORD errorStatus) {
  std::string out(VerdictWord(verdict));
  out += errorStatus ? ":" : ".";
  for (const std::string_view sentence : StatusSentences(errorStatus)) out += fmt::format(" {}", sentence);
  return out;
}

std::string ChainText(const BuiltChain& built, const std::optional<PolicyResult>& policy) {
  std::string out = PathText(built);
  const CERT_CHAIN_CONTEXT& context = built.context();
  for (DWORD i = 0; i < context.cLowerQualityChainContext; ++i) {
    out += fmt::format("\n{}:\n", Say("Another valid path", "Другой действительный путь"));
    AppendPath(out, *context.rgpLowerQualityChainContext[i]->rgpChain[0]);
  }
  out += fmt::format("\n{}\n", VerdictText(VerdictOnAll(built, policy), context.TrustStatus.dwErrorStatus));
  if (policy && policy->error)
    out += fmt::format("{} {}: {}\n", Say("Policy", "Политика"), policy->name, PolicySentence(policy->error));
  return out;
}

Field ChainField(const BuiltChain& built, const std::optional<PolicyResult>& policy) {
  const CERT_CHAIN_CONTEXT& context = built.context();
  Field object("Chain");
  object.add("Verdict", Words{std::string(VerdictName(VerdictOnAll(built, policy)))});
  object.add("Time", Words{TimeText(built.sources->time)});
  AddStatus(object, context.TrustStatus.dwErrorStatus);
  if (policy) {
    Field& field = object.add("Policy");
    field.add("Name", Words{policy->name});
    field.add("Error", Words{fmt::format("0x{:08x}", policy->error)});
  }
  Field& elements = object.addList("Elements");
  for (const PCERT_CHAIN_ELEMENT element : ElementsOf(built.path())) elements.add(ElementField(*element));
  if (context.cLowerQualityChainContext) {
    Field& others = object.addList("Other paths");
    for (DWORD i = 0; i < context.cLowerQualityChainContext; ++i) {
      Field& other = others.add(Field());
      Field& list = other.addList("Elements");
      for (const PCERT_CHAIN_ELEMENT element :
           ElementsOf(*context.rgpLowerQualityChainContext[i]->rgpChain[0]))
        list.add(ElementField(*element));
    }
  }
  return object;
}

}  // namespace certkern::cli
