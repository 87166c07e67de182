#include "certkern/chain/chain_trace.h"

#include <certkern/cert.h>
#include <certkern/encode.h>
#include <certkern/name.h>
#include <certkern/oids.h>

#include <arpa/inet.h>

#include <array>
#include <charconv>
#include <iostream>
#include <span>
#include <vector>

#include "certkern/chain/decoded_extension.h"
#include "platform/owner.h"
#include "platform/text_conversion.h"
#include "platform/trace.h"

namespace certkern {
namespace {

// The host may itself write wide text or narrow; only one of them works on a stream, so that all goes out as UTF-8.
std::string Utf8(LPCWSTR text) {
  const ByteText bytes = BytesFromWide(text, CP_UTF8);
  return bytes ? bytes.get() : "";
}

std::string NameText(const CERT_NAME_BLOB& name) {
  CERT_NAME_BLOB encoded = name;
  const DWORD size = CertNameToStrW(X509_ASN_ENCODING, &encoded, CERT_X500_NAME_STR, nullptr, 0);
  std::vector<WCHAR> text(size + 1);
  CertNameToStrW(X509_ASN_ENCODING, &encoded, CERT_X500_NAME_STR, text.data(), size);
  return Utf8(text.data());
}

std::string AddressText(std::span<const BYTE> address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = address.size() == 4 ? AF_INET : AF_INET6;
  if (address.size() != 4 && address.size() != 16) return "?";
  return inet_ntop(family, address.data(), text.data(), text.size()) ? text.data() : "?";
}

std::string AltNameText(const CERT_ALT_NAME_ENTRY& entry) {
  switch (entry.dwAltNameChoice) {
    case CERT_ALT_NAME_OTHER_NAME:
      return std::string("otherName=") + (entry.pOtherName ? entry.pOtherName->pszObjId : "");
    case CERT_ALT_NAME_RFC822_NAME:
      return "rfc822Name=" + Utf8(entry.pwszRfc822Name);
    case CERT_ALT_NAME_DNS_NAME:
      return "dNSName=" + Utf8(entry.pwszDNSName);
    case CERT_ALT_NAME_X400_ADDRESS:
      return "ALTNAME=<X400_ADDRESS>";
    case CERT_ALT_NAME_DIRECTORY_NAME:
      return "ALTNAME=<DIRECTORY_NAME>";
    case CERT_ALT_NAME_EDI_PARTY_NAME:
      return "ALTNAME=<EDI_PARTY_NAME>";
    case CERT_ALT_NAME_URL:
      return "uniformResourceIdentifier=" + Utf8(entry.pwszURL);
    case CERT_ALT_NAME_IP_ADDRESS:
      return "iPAddress=" + AddressText({entry.IPAddress.pbData, entry.IPAddress.cbData});
    case CERT_ALT_NAME_REGISTERED_ID:
      return std::string("registeredID=") + entry.pszRegisteredID;
    default:
      return "";
  }
}

// Of the subject (2.5.29.17) or the issuer (2.5.29.18); empty when the extension is absent or does not decode.
std::string AltNamesText(std::span<const CERT_EXTENSION> extensions, LPCSTR oid) {
  const auto names = DecodeExtension<CERT_ALT_NAME_INFO>(extensions, oid, X509_ALTERNATE_NAME);
  std::string text;
  for (DWORD i = 0; names && i < names->cAltEntry; ++i) {
    if (i) text += ", ";
    text += AltNameText(names->rgAltEntry[i]);
  }
  return text;
}

}  // namespace

bool IsChainTraceOn() { return ChainDetailWanted(); }

ChainTrace ChainTrace::nested() const {
  ChainTrace inner;
  inner.prefix_ = prefix_ + "  ";
  return inner;
}

void ChainTrace::certificate(PCCERT_CONTEXT context) const {
  if (!on()) return;
  const LastErrorKeeper keeper;
  const CERT_INFO& info = *context->pCertInfo;
  const std::span<const CERT_EXTENSION> extensions(info.rgExtension, info.cExtension);
  const std::string subject = AltNamesText(extensions, szOID_SUBJECT_ALT_NAME2);
  const std::string issuer = AltNamesText(extensions, szOID_ISSUER_ALT_NAME2);
  if (!subject.empty()) line("AltName:", subject);
  line("Subject:'", NameText(info.Subject), "'");
  if (!issuer.empty()) line("AltName:", issuer);
  line("Issuer:'", NameText(info.Issuer), "'");
}

void ChainTrace::crl(PCCRL_CONTEXT context) const {
  if (!on()) return;
  const LastErrorKeeper keeper;
  line("Issuer:'", NameText(context->pCrlInfo->Issuer), "'");
}

void ChainTrace::append(std::string& text, std::string_view part) { text += part; }

void ChainTrace::append(std::string& text, uint64_t number) { text += std::to_string(number); }

void ChainTrace::append(std::string& text, const void* pointer) {
  std::array<char, 2 * sizeof pointer> digits;
  const auto end =
      std::to_chars(digits.data(), digits.data() + digits.size(), reinterpret_cast<uintptr_t>(pointer), 16);
  text.append("0x").append(digits.data(), end.ptr);
}

void ChainTrace::write(const std::string& text) const {
  const LastErrorKeeper keeper;
  std::cout << prefix_ + text + '\n';
}

}  // namespace certkern
