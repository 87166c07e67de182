// The picture of a chain: its path, and beside each link what else bears the issuer's name or key identifier.
#include "chain_report.h"
#include "decoded.h"
#include "text.h"

#include <certkern/cert.h>
#include <certkern/encode.h>
#include <certkern/keys.h>
#include <certkern/name.h>
#include <certkern/oids.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <span>
#include <vector>

namespace certkern::cli {
namespace {

constexpr size_t kMostCandidates = 32;  // of one certificate: more are no picture

std::string EncodedOf(PCCERT_CONTEXT certificate) {
  return {reinterpret_cast<const char*>(certificate->pbCertEncoded), certificate->cbCertEncoded};
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string DisplayName(PCCERT_CONTEXT certificate) {
  const DWORD size = CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0);
  std::wstring text(size ? size : 1, L'\0');
  CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, text.data(),
                     CheckedSize(text.size()));
  return Escaped(Utf8Of(std::wstring_view(text.c_str())));
}

// Why a certificate that looks like the issuer is none; empty: it is one.
std::string_view Objection(PCCERT_CONTEXT subject, PCCERT_CONTEXT candidate, const FILETIME& time) {
  FILETIME moment = time;
  if (CertVerifyTimeValidity(&moment, candidate->pCertInfo) != 0) return Say("not time valid", "срок");
  if (!CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, subject->pbCertEncoded, subject->cbCertEncoded,
                                       &candidate->pCertInfo->SubjectPublicKeyInfo))
    return Say("other key", "другой ключ");
  return {};
}

class Picture {
 public:
  explicit Picture(const BuiltChain& built)
      : built_(built), path_(built.path().rgpElement, built.path().cElement) {}

  std::string draw() {
    for (const PCERT_CHAIN_ELEMENT element : path_) node(element->pCertContext, element);
    for (size_t i = 0; i + 1 < path_.size(); ++i)
      edge(path_[i]->pCertContext, path_[i + 1]->pCertContext, "[penwidth=2]");
    for (const PCERT_CHAIN_ELEMENT element : path_) candidates(element->pCertContext);
    return "digraph chain {\n  rankdir=BT;\n  node [shape=box, style=rounded];\n" + body_ + "}\n";
  }

 private:
  // Its number; drawn when it is new.
  size_t node(PCCERT_CONTEXT certificate, const CERT_CHAIN_ELEMENT* element = nullptr) {
    const auto [place, isNew] = numbers_.try_emplace(EncodedOf(certificate), numbers_.size());
    if (!isNew) return place->second;
    const bool faulty = element && element->TrustStatus.dwErrorStatus;
    std::string label = fmt::format("{}\n{} {}", DisplayName(certificate), Say("until", "до"),
                                    TimeText(certificate->pCertInfo->NotAfter).substr(0, 10));
    if (faulty) {
      for (const std::string_view name : StatusNames(element->TrustStatus.dwErrorStatus))
        label += fmt::format("\n{}", name);
    }
    const char* color = !element ? "gray" : faulty ? "red" : "darkgreen";
    body_ += fmt::format("  n{} [label={}, color={}];\n", place->second, Quoted(label), color);
    return place->second;
  }

  void edge(PCCERT_CONTEXT from, PCCERT_CONTEXT to, const std::string& attributes) {
    const size_t start = node(from), end = node(to);
    if (!edges_
             .insert({
                 {start, end},
                 true
    })
             .second)
      return;
    body_ += fmt::format("  n{} -> n{} {};\n", start, end, attributes);
  }

  void candidates(PCCERT_CONTEXT subject) {
    if (CertCompareCertificateName(X509_ASN_ENCODING, &subject->pCertInfo->Subject,
                                   &subject->pCertInfo->Issuer))
      return;
    size_t drawn = 0;
    for (const HCERTSTORE store :
         {built_.sources->trusted.get(), built_.sources->additional.get(), view("Root"), view("CA")}) {
      if (!store) continue;
      PCCERT_CONTEXT each = nullptr;
      while ((each = CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_NAME,
                                                &subject->pCertInfo->Issuer, each))) {
        if (++drawn > kMostCandidates) continue;
        const std::string_view objection = Objection(subject, each, built_.sources->time);
        edge(subject, each,
             objection.empty() ? "[style=dashed]"
                               : fmt::format("[style=dotted, label={}]", Quoted(objection)));
      }
    }
  }

  HCERTSTORE view(const char* name) {
    if (built_.sources->trusted && std::string_view(name) == "Root") return nullptr;
    auto [place, isNew] = views_.try_emplace(name);
    if (isNew) {
      const std::wstring wide(name, name + std::string_view(name).size());
      place->second = StoreHandle(CertOpenStore(
          CERT_STORE_PROV_SYSTEM_W, 0, 0,
          CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG,
          wide.c_str()));
    }
    return place->second.get();
  }

  const BuiltChain& built_;
  const std::span<const PCERT_CHAIN_ELEMENT> path_;
  std::map<std::string, size_t> numbers_;
  std::map<std::pair<size_t, size_t>, bool> edges_;
  std::map<std::string, StoreHandle> views_;
  std::string body_;
};

}  // namespace

std::string ChainDot(const BuiltChain& built) { return Picture(built).draw(); }

}  // namespace certkern::cli
