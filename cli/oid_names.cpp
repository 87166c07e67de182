#include "oid_names.h"

#include "text.h"

#include <certkern/oids.h>

#include <algorithm>
#include <string_view>

namespace certkern::cli {
namespace {

struct NameRow {
  std::string_view dotted;
  const char* name;
  int curveBits;  // of curves and of keys that are a curve of their own; else 0
};

constexpr NameRow Curve(std::string_view dotted, const char* name, int bits) { return {dotted, name, bits}; }
constexpr NameRow Name(std::string_view dotted, const char* name) { return {dotted, name, 0}; }

// What the key library need not know to work: curves and parameter sets as such, some methods and attributes.
constexpr NameRow kNames[] = {
    Curve("1.2.840.10045.3.1.1", "secp192r1", 192),
    Curve("1.3.132.0.33", "secp224r1", 224),
    Curve("1.2.840.10045.3.1.7", "secp256r1", 256),
    Curve("1.3.132.0.34", "secp384r1", 384),
    Curve("1.3.132.0.35", "secp521r1", 521),
    Curve("1.3.132.0.10", "secp256k1", 256),
    Curve("1.3.36.3.3.2.8.1.1.7", "brainpoolP256r1", 256),
    Curve("1.3.36.3.3.2.8.1.1.11", "brainpoolP384r1", 384),
    Curve("1.3.36.3.3.2.8.1.1.13", "brainpoolP512r1", 512),
    Curve(szOID_ED25519, "Ed25519", 256),
    Curve("1.3.101.113", "Ed448", 456),
    Curve(szOID_GOST_R3410_2001_PARAM_SET_TEST, "GOST R 34.10-2001 test set", 256),
    Curve(szOID_GOST_R3410_2001_PARAM_SET_A, "GOST R 34.10-2001 set A", 256),
    Curve(szOID_GOST_R3410_2001_PARAM_SET_B, "GOST R 34.10-2001 set B", 256),
    Curve(szOID_GOST_R3410_2001_PARAM_SET_C, "GOST R 34.10-2001 set C", 256),
    Curve(szOID_GOST_R3410_2001_PARAM_SET_XCHA, "GOST R 34.10-2001 exchange set A", 256),
    Curve(szOID_GOST_R3410_2001_PARAM_SET_XCHB, "GOST R 34.10-2001 exchange set B", 256),
    Curve(szOID_GOST_R3410_2012_256_PARAM_SET_A, "GOST R 34.10-2012 256-bit set A", 256),
    Curve(szOID_GOST_R3410_2012_256_PARAM_SET_B, "GOST R 34.10-2012 256-bit set B", 256),
    Curve(szOID_GOST_R3410_2012_256_PARAM_SET_C, "GOST R 34.10-2012 256-bit set C", 256),
    Curve(szOID_GOST_R3410_2012_256_PARAM_SET_D, "GOST R 34.10-2012 256-bit set D", 256),
    Curve(szOID_GOST_R3410_2012_512_PARAM_SET_TEST, "GOST R 34.10-2012 512-bit test set", 512),
    Curve(szOID_GOST_R3410_2012_512_PARAM_SET_A, "GOST R 34.10-2012 512-bit set A", 512),
    Curve(szOID_GOST_R3410_2012_512_PARAM_SET_B, "GOST R 34.10-2012 512-bit set B", 512),
    Curve(szOID_GOST_R3410_2012_512_PARAM_SET_C, "GOST R 34.10-2012 512-bit set C", 512),
    Name(szOID_GOST_R3411_94_PARAM_SET_TEST, "GOST R 34.11-94 test set"),
    Name(szOID_GOST_R3411_94_PARAM_SET, "GOST R 34.11-94 set A"),
    Name(szOID_GOST_28147_89_PARAM_SET_TEST, "GOST 28147-89 test set"),
    Name(szOID_GOST_28147_89_PARAM_SET_A, "GOST 28147-89 set A"),
    Name(szOID_GOST_28147_89_PARAM_SET_B, "GOST 28147-89 set B"),
    Name(szOID_GOST_28147_89_PARAM_SET_C, "GOST 28147-89 set C"),
    Name(szOID_GOST_28147_89_PARAM_SET_D, "GOST 28147-89 set D"),
    Name(szOID_GOST_28147_89_PARAM_SET_Z, "GOST 28147-89 set Z"),
    Name(szOID_PKIX_OCSP, "OCSP"),
    Name(szOID_PKIX_CA_ISSUERS, "CA issuers"),
    Name("1.3.6.1.5.5.7.48.3", "time stamping"),
    Name("1.3.6.1.5.5.7.48.5", "CA repository"),
    Name("1.3.6.1.4.1.311.20.2.3", "user principal name"),
    Name("1.3.6.1.4.1.311.13.2.3", "operating system version"),
};

const NameRow* FindRow(std::string_view dotted) {
  const auto row = std::find_if(std::begin(kNames), std::end(kNames),
                                [dotted](const NameRow& candidate) { return candidate.dotted == dotted; });
  return row == std::end(kNames) ? nullptr : row;
}

PCCRYPT_OID_INFO FindInfo(const char* dotted, DWORD group) {
  // the look-up takes a writable pointer and only reads
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(dotted), group);
}

}  // namespace

Oid NamedOid(const char* dotted, DWORD group) {
  if (!dotted) return {};
  PCCRYPT_OID_INFO info = group ? FindInfo(dotted, group) : nullptr;
  if (!info) info = FindInfo(dotted, 0);
  if (info && info->pwszName && *info->pwszName) return {dotted, Utf8Of(std::wstring_view(info->pwszName))};
  const NameRow* row = FindRow(dotted);
  return {dotted, row ? row->name : ""};
}

bool IsDottedOid(std::string_view text) {
  if (text.empty() || text[0] > '2' || text.find('.') != 1) return false;
  return text.find_first_not_of("0123456789.") == text.npos && text.find("..") == text.npos
      && text.back() != '.';
}

int CurveBits(const char* dotted) {
  const NameRow* row = dotted ? FindRow(dotted) : nullptr;
  return row ? row->curveBits : 0;
}

}  // namespace certkern::cli
