#include "chain_words.h"

#include "failure.h"

#include <certkern/chain.h>
#include <certkern/errors.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace certkern::cli {
namespace {

struct StatusRow {
  DWORD bit;
  std::string_view name;
  std::string_view english;
  std::string_view russian;
};
constexpr StatusRow StatusOf(DWORD bit, std::string_view name, std::string_view english,
                             std::string_view russian) {
  return {bit, name, english, russian};
}
constexpr StatusRow kStatuses[] = {
    StatusOf(
        CERT_TRUST_IS_NOT_TIME_VALID, "IS_NOT_TIME_VALID",
        "The certificate, or one of its chain, has expired or is not valid yet.",
        "Срок действия этого сертификата или одного из сертификатов цепочки уже истек или еще не наступил."),
    StatusOf(CERT_TRUST_IS_REVOKED, "IS_REVOKED", "The certificate, or one of its chain, is revoked.",
             "Этот сертификат или один из сертификатов цепочки отозван."),
    StatusOf(CERT_TRUST_IS_NOT_SIGNATURE_VALID, "IS_NOT_SIGNATURE_VALID",
             "The certificate, or one of its chain, has a signature that does not verify.",
             "Этот сертификат или один из сертификатов цепочки содержит недействительную цифровую подпись."),
    StatusOf(CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "IS_NOT_VALID_FOR_USAGE",
             "The certificate, or one of its chain, is not meant for this use.",
             "Этот сертификат или один из сертификатов цепочки не содержит требуемого расширения "
             "использования ключа."),
    StatusOf(CERT_TRUST_IS_UNTRUSTED_ROOT, "IS_UNTRUSTED_ROOT",
             "The root certificate is not among those that are trusted.",
             "Нет доверия к корневому сертификату центра сертификации, поскольку он не найден в хранилище "
             "доверенных корневых "
             "сертификатов центров сертификации."),
    StatusOf(CERT_TRUST_REVOCATION_STATUS_UNKNOWN, "REVOCATION_STATUS_UNKNOWN",
             "No CRL tells if the certificate, or one of its chain, is revoked.",
             "Не найден CRL для этого сертификата или одного из сертификатов цепочки."),
    StatusOf(CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "INVALID_BASIC_CONSTRAINTS",
             "An issuer in the chain is no authority, or has more authorities below it than it may have.",
             "Один из сертификатов цепочки содержит неверные основные ограничения."),
    StatusOf(CERT_TRUST_IS_PARTIAL_CHAIN, "IS_PARTIAL_CHAIN",
             "No path leads from the certificate to a trusted root.",
             "Этот сертификат не удалось проверить, проследив его до доверенного центра сертификации."),
};

struct PolicyRow {
  DWORD code;
  std::string_view english;
  std::string_view russian;
};
constexpr PolicyRow PolicyOf(DWORD code, std::string_view english, std::string_view russian) {
  return {code, english, russian};
}
constexpr PolicyRow kPolicies[] = {
    PolicyOf(CERT_E_CN_NO_MATCH, "The certificate is for another server name.",
             "Сертификат выдан для другого имени сервера."),
    PolicyOf(CERT_E_WRONG_USAGE, "The certificate is not meant for this use.",
             "Сертификат не предназначен для такого использования."),
    PolicyOf(CERT_E_EXPIRED,
             "It has expired, is not valid yet, or was signed outside the signer's key period.",
             "Срок действия истек или еще не наступил, либо подпись сделана вне срока действия ключа."),
    PolicyOf(CERT_E_UNTRUSTEDROOT, "The root certificate is not trusted.",
             "Нет доверия к корневому сертификату."),
    PolicyOf(CERT_E_CHAINING, "No path leads to a trusted root.",
             "Нет пути до доверенного центра сертификации."),
    PolicyOf(CERT_E_REVOCATION_FAILURE, "Revocation could not be checked.", "Не удалось проверить отзыв."),
    PolicyOf(CRYPT_E_REVOKED, "A certificate is revoked.", "Сертификат отозван."),
    PolicyOf(TRUST_E_CERT_SIGNATURE, "A signature does not verify.", "Подпись сертификата недействительна."),
    PolicyOf(TRUST_E_BASIC_CONSTRAINTS, "An issuer is no authority.", "Неверные основные ограничения."),
};

constexpr int kInvalidChain = 3;
constexpr int kUndeterminedChain = 4;

}  // namespace

bool SpeaksRussian() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): one thread
    if (value && *value) return std::string_view(value).starts_with("ru");
  }
  return false;
}

std::string_view Say(std::string_view english, std::string_view russian) {
  static const bool inRussian = SpeaksRussian();
  return inRussian ? russian : english;
}

std::vector<std::string_view> StatusSentences(DWORD errorStatus) {
  std::vector<std::string_view> sentences;
  for (const StatusRow& row : kStatuses) {
    if (errorStatus & row.bit) sentences.push_back(Say(row.english, row.russian));
  }
  return sentences;
}

std::vector<std::string_view> StatusNames(DWORD errorStatus) {
  std::vector<std::string_view> names;
  for (const StatusRow& row : kStatuses) {
    if (errorStatus & row.bit) names.push_back(row.name);
  }
  return names;
}

std::string PolicySentence(DWORD code) {
  const auto* row = std::find_if(std::begin(kPolicies), std::end(kPolicies),
                                 [code](const PolicyRow& candidate) { return candidate.code == code; });
  return row == std::end(kPolicies) ? ReasonOf(code) : std::string(Say(row->english, row->russian));
}

Verdict VerdictOf(DWORD errorStatus) {
  constexpr DWORD kNotFoundOut = CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
  if (!errorStatus) return Verdict::Valid;
  return errorStatus & ~kNotFoundOut ? Verdict::Invalid : Verdict::Undetermined;
}

Verdict VerdictOfPolicy(DWORD code) {
  if (!code) return Verdict::Valid;
  return code == CERT_E_CHAINING || code == CERT_E_REVOCATION_FAILURE ? Verdict::Undetermined
                                                                      : Verdict::Invalid;
}

std::string_view VerdictName(Verdict verdict) {
  switch (verdict) {
    case Verdict::Valid:
      return "valid";
    case Verdict::Invalid:
      return "invalid";
    default:
      return "undetermined";
  }
}

std::string_view VerdictWord(Verdict verdict) {
  switch (verdict) {
    case Verdict::Valid:
      return Say("Valid", "Сертификат действителен");
    case Verdict::Invalid:
      return Say("Not valid", "Сертификат недействителен");
    default:
      return Say("Undetermined", "Действительность не установлена");
  }
}

int ExitStatusOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Valid:
      return 0;
    case Verdict::Invalid:
      return kInvalidChain;
    default:
      return kUndeterminedChain;
  }
}

}  // namespace certkern::cli
