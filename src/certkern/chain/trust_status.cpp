#include "certkern/chain/trust_status.h"

#include <array>
#include <cstdio>

namespace certkern {
namespace {

struct TrustBit {
  DWORD bit;
  std::string_view name;
  std::string_view russian;
};

constexpr TrustBit kTrustBits[] = {
    {CERT_TRUST_IS_NOT_TIME_VALID,         "IS_NOT_TIME_VALID",
     "Срок действия этого сертификата или одного из сертификатов цепочки уже истек или еще не наступил."},
    {CERT_TRUST_IS_REVOKED,                "IS_REVOKED",                "Этот сертификат или один из сертификатов цепочки отозван."      },
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID,    "IS_NOT_SIGNATURE_VALID",
     "Этот сертификат или один из сертификатов цепочки содержит недействительную цифровую подпись."      },
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE,    "IS_NOT_VALID_FOR_USAGE",
     "Этот сертификат или один из сертификатов цепочки не содержит требуемого расширения использования "
     "ключа."                                                                                                                                                                        },
    {CERT_TRUST_IS_UNTRUSTED_ROOT,         "IS_UNTRUSTED_ROOT",
     "Нет доверия к корневому сертификату центра сертификации, поскольку он не найден в хранилище доверенных "
     "корневых сертификатов центров сертификации."                                                                                                 },
    {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, "REVOCATION_STATUS_UNKNOWN",
     "Не найден CRL для этого сертификата или одного из сертификатов цепочки."                                                   },
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "INVALID_BASIC_CONSTRAINTS",
     "Один из сертификатов цепочки содержит неверные основные ограничения."                                                   },
    {CERT_TRUST_IS_PARTIAL_CHAIN,          "IS_PARTIAL_CHAIN",
     "Этот сертификат не удалось проверить, проследив его до доверенного центра сертификации."                 },
};

struct NamedStatus {
  std::string_view name;
  DWORD status;
};
// Families of bits as a whole.
constexpr NamedStatus kNamedStatuses[] = {
    {"CERT_TRUST_NO_ERROR", CERT_TRUST_NO_ERROR},
    {"CT_NO_ERROR",         CERT_TRUST_NO_ERROR},
    {"NOT_SUCCESS",         0x1046D            },
    {"ANY_ERROR",           0x1042D            },
};

// Worst first. A path that reaches further is better than one that stops early, whatever it meets there.
constexpr DWORD kByBadness[] = {
    CERT_TRUST_IS_PARTIAL_CHAIN,
    CERT_TRUST_IS_NOT_SIGNATURE_VALID,
    CERT_TRUST_IS_UNTRUSTED_ROOT,
    CERT_TRUST_IS_NOT_TIME_VALID,
    CERT_TRUST_IS_REVOKED,
    CERT_TRUST_REVOCATION_STATUS_UNKNOWN,
    CERT_TRUST_IS_NOT_VALID_FOR_USAGE,
    CERT_TRUST_INVALID_BASIC_CONSTRAINTS,
};

std::string Join(DWORD status, std::string_view TrustBit::*text, std::string_view success,
                 std::string_view separator) {
  if (status == CERT_TRUST_NO_ERROR) return std::string(success);
  std::string joined;
  const auto add = [&](std::string_view part) {
    if (!joined.empty()) joined += separator;
    joined += part;
  };
  for (const TrustBit& each : kTrustBits) {
    if (!(status & each.bit)) continue;
    add(each.*text);
    status &= ~each.bit;
  }
  if (status) {
    std::array<char, 16> number;
    snprintf(number.data(), number.size(), "0x%x", status);
    add(number.data());
  }
  return joined;
}

}  // namespace

int CompareTrustStatus(DWORD a, DWORD b) {
  if (!a) return b ? 1 : 0;
  if (!b) return -1;
  for (const DWORD bit : kByBadness) {
    if ((a ^ b) & bit) return (b & bit) ? 1 : -1;
  }
  return 0;
}

std::string TrustStatusNames(DWORD status) {
  return Join(status, &TrustBit::name, "CERT_TRUST_NO_ERROR", "|");
}

std::string TrustStatusTextRussian(DWORD status) {
  return Join(status, &TrustBit::russian, "Сертификат действителен", " ");
}

std::optional<DWORD> TrustStatusFromName(std::string_view name) {
  for (const TrustBit& each : kTrustBits) {
    if (each.name == name) return each.bit;
  }
  for (const NamedStatus& each : kNamedStatuses) {
    if (each.name == name) return each.status;
  }
  return std::nullopt;
}

std::string_view ReasonName(DWORD reason) {
  constexpr std::string_view kReasons[] = {
      "unused",        "keyCompromise",        "cACompromise",    "affiliationChanged",
      "superseded",    "cessationOfOperation", "certificateHold", "",
      "removeFromCRL",
  };
  return reason < std::size(kReasons) ? kReasons[reason] : std::string_view();
}

}  // namespace certkern
