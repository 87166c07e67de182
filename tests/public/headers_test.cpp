// The public headers as a package: every exported name is declared once and with its contract, every header stands
// alone in C and in C++, and names, values and identifiers agree with each other and with what others publish.

// g++ 12 under a sanitizer takes the state machine of std::regex for uninitialised.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <certkern/certkern.h>

#include <gtest/gtest.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

extern "C" DWORD SizeOfPublicUse(void);

namespace {

// What the C++ compiler makes of the same declarations.
#define FUNCTION(name) static_assert(sizeof(decltype(&(name))) == sizeof(void (*)()));
#define DATA(name) static_assert(std::is_integral_v<decltype(name)>);
#include "exported_names.inc"
#undef FUNCTION
#undef DATA
static_assert(sizeof(pkivalidator_db_ctx) == 8 && sizeof(_strictPkupCheck) == 4);

const std::vector<std::string> kNames = {
#define FUNCTION(name) #name,
#define DATA(name) #name,
#include "exported_names.inc"
#undef FUNCTION
#undef DATA
};

const std::filesystem::path kSource = CERTKERN_SOURCE_DIR;
const std::filesystem::path kHeaders = kSource / "include/certkern";

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::filesystem::path> PublicHeaders() {
  std::vector<std::filesystem::path> headers;
  for (const auto& entry : std::filesystem::directory_iterator(kHeaders)) headers.push_back(entry.path());
  std::sort(headers.begin(), headers.end());
  return headers;
}

// Output and exit status of a command; both streams.
std::pair<std::string, int> RunCommand(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return {"popen failed", -1};
  std::string output;
  std::array<char, 4096> buffer;
  while (const size_t count = fread(buffer.data(), 1, buffer.size(), pipe))
    output.append(buffer.data(), count);
  return {output, pclose(pipe)};
}

struct Declaration {
  std::string header;
  bool documented;
};

// Exported declarations by name. A docstring ends on the line above.
std::multimap<std::string, Declaration> Declarations() {
  static const std::regex kDeclaration(R"(((\*/)?)\n(?:extern )?CERTKERN_API [^;(]*?(\w+)\s*[;(])");
  std::multimap<std::string, Declaration> found;
  for (const auto& header : PublicHeaders()) {
    const std::string text = ReadFile(header);
    for (std::sregex_iterator match(text.begin(), text.end(), kDeclaration), end; match != end; ++match) {
      found.emplace((*match)[3], Declaration{header.filename(), (*match)[2].matched});
    }
  }
  return found;
}

TEST(PublicHeaders, DeclareEveryExportOnceAndWithItsContract) {
  std::ifstream list(kSource / "src/exports.txt");
  const std::vector<std::string> exports{std::istream_iterator<std::string>(list), {}};
  EXPECT_EQ(kNames, exports) << "exported_names.inc and src/exports.txt differ";

  const auto declarations = Declarations();
  for (const std::string& name : exports) {
    SCOPED_TRACE(name);
    ASSERT_EQ(declarations.count(name), 1u);
    EXPECT_TRUE(declarations.find(name)->second.documented) << declarations.find(name)->second.header;
  }
}

TEST(PublicHeaders, DeclareNothingThatIsNotExported) {
  const std::set<std::string> exports(kNames.begin(), kNames.end());
  for (const auto& [name, declaration] : Declarations()) {
    if (declaration.header == "keykern.h") continue;  // the key level has exports of its own
    EXPECT_TRUE(exports.contains(name)) << name << " in " << declaration.header;
  }
}

const std::string kInclude = " -I" + (kSource / "include").string();

TEST(PublicHeaders, EachStandsAloneInBothLanguages) {
  const std::string common = " -Wall -Wextra -Wpedantic -Werror -fsyntax-only" + kInclude + " -include ";
  const std::string compilers[] = {"cc -std=c11 -Wstrict-prototypes -x c", "c++ -std=c++20 -x c++"};
  for (const auto& header : PublicHeaders()) {
    SCOPED_TRACE(header.filename());
    for (const std::string& compiler : compilers) {
      std::string command = "echo 'extern int used;' | ";
      command.append(compiler).append(common).append(header.string()).append(" -");
      const auto [output, status] = RunCommand(command);
      EXPECT_EQ(status, 0) << compiler << "\n" << output;
    }
  }
}

TEST(PublicHeaders, NamesAreNotMangledInCpp) {
  const std::string object =
      (std::filesystem::temp_directory_path() / ("names-" + std::to_string(getpid()) + ".o"));
  std::string source = "#include <certkern/certkern.h>\nconst void* const kAll[] = {";
  for (const std::string& name : kNames) source += "(const void*)&" + name + ",";
  source += "};\nconst void* const* All() { return kAll; }\n";
  const auto [output, status] = RunCommand("printf '" + source + "' | c++ -std=c++20" + kInclude + " -c -o "
                                           + object + " -x c++ - && nm -u --format=just-symbols " + object);
  std::filesystem::remove(object);
  ASSERT_EQ(status, 0) << output;
  std::istringstream words(output);
  std::vector<std::string> undefined{std::istream_iterator<std::string>(words), {}};
  undefined.erase(std::remove(undefined.begin(), undefined.end(), "_GLOBAL_OFFSET_TABLE_"), undefined.end());
  std::vector<std::string> expected = kNames;
  std::sort(undefined.begin(), undefined.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(undefined, expected);
}

TEST(PublicHeaders, CertkernIncludesAll) {
  const std::string all = ReadFile(kHeaders / "certkern.h");
  for (const auto& header : PublicHeaders()) {
    if (header.filename() == "certkern.h") continue;
    EXPECT_NE(all.find("#include <certkern/" + header.filename().string() + ">"), std::string::npos)
        << header;
  }
  EXPECT_EQ(SizeOfPublicUse(), 168u + 64 + 24 + 24);
}

std::map<std::string, std::string> Macros(const char* header, const std::regex& pattern) {
  std::map<std::string, std::string> macros;
  const std::string text = ReadFile(kHeaders / header);
  for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
    macros.emplace((*match)[1], (*match)[2]);
  }
  return macros;
}

TEST(ErrorCodes, AreDistinctAndOfTheirFacility) {
  const auto macros = Macros("errors.h", std::regex(R"(#define (\w+) (0x[0-9A-F]{8}u|\d+)\b)"));
  ASSERT_GT(macros.size(), 100u);
  const std::map<std::string, uint32_t> facilities = {
      {"NTE_",          0x80090000},
      {"CRYPT_E_ASN1_", 0x80093100},
      {"CRYPT_E_",      0x80090000},
      {"CERT_E_",       0x800B0100},
      {"ERROR_",        0         }
  };
  const std::set<std::string> aliases = {"NO_ERROR", "S_OK", "S_FALSE"};
  std::map<uint32_t, std::string> byValue;
  for (const auto& [name, value] : macros) {
    SCOPED_TRACE(name);
    const auto code = static_cast<uint32_t>(std::stoul(value, nullptr, 0));
    if (!aliases.contains(name)) {
      const auto [other, isNew] = byValue.emplace(code, name);
      EXPECT_TRUE(isNew) << "same value as " << other->second;
    }
    for (const auto& [prefix, facility] : facilities) {
      if (!name.starts_with(prefix)) continue;
      const uint32_t mask =
          prefix == "CRYPT_E_" || prefix == "NTE_" || prefix == "ERROR_" ? 0xFFFF0000 : 0xFFFFFF00;
      EXPECT_EQ(code & mask, facility);
    }
  }
}

TEST(ErrorCodes, WrapAsHresult) {
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), HRESULT(0x80070002u));
  EXPECT_EQ(HRESULT_FROM_WIN32(CRYPT_E_NOT_FOUND), HRESULT(CRYPT_E_NOT_FOUND));
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_SUCCESS), 0);
  EXPECT_TRUE(FAILED(HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER)));
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER), HRESULT(E_INVALIDARG));
}

// One row each: our macro, and the long name under which the openssl tool shows the identifier.
struct KnownIdentifier {
  const char* macro;
  const char* oid;
  const char* name;
};
#define KNOWN(macro, name) \
  { #macro, macro, name }
const KnownIdentifier kKnownIdentifiers[] = {
    KNOWN(szOID_SUBJECT_KEY_IDENTIFIER, "X509v3 Subject Key Identifier"),
    KNOWN(szOID_KEY_USAGE, "X509v3 Key Usage"),
    KNOWN(szOID_PRIVATEKEY_USAGE_PERIOD, "X509v3 Private Key Usage Period"),
    KNOWN(szOID_SUBJECT_ALT_NAME2, "X509v3 Subject Alternative Name"),
    KNOWN(szOID_ISSUER_ALT_NAME2, "X509v3 Issuer Alternative Name"),
    KNOWN(szOID_BASIC_CONSTRAINTS2, "X509v3 Basic Constraints"),
    KNOWN(szOID_CRL_NUMBER, "X509v3 CRL Number"),
    KNOWN(szOID_CRL_REASON_CODE, "X509v3 CRL Reason Code"),
    KNOWN(szOID_DELTA_CRL_INDICATOR, "X509v3 Delta CRL Indicator"),
    KNOWN(szOID_ISSUING_DIST_POINT, "X509v3 Issuing Distribution Point"),
    KNOWN(szOID_CRL_DIST_POINTS, "X509v3 CRL Distribution Points"),
    KNOWN(szOID_CERT_POLICIES, "X509v3 Certificate Policies"),
    KNOWN(szOID_ANY_CERT_POLICY, "X509v3 Any Policy"),
    KNOWN(szOID_POLICY_MAPPINGS, "X509v3 Policy Mappings"),
    KNOWN(szOID_AUTHORITY_KEY_IDENTIFIER2, "X509v3 Authority Key Identifier"),
    KNOWN(szOID_POLICY_CONSTRAINTS, "X509v3 Policy Constraints"),
    KNOWN(szOID_ENHANCED_KEY_USAGE, "X509v3 Extended Key Usage"),
    KNOWN(szOID_FRESHEST_CRL, "X509v3 Freshest CRL"),
    KNOWN(szOID_INHIBIT_ANY_POLICY, "X509v3 Inhibit Any Policy"),
    KNOWN(szOID_AUTHORITY_INFO_ACCESS, "Authority Information Access"),
    KNOWN(szOID_PKIX_KP_SERVER_AUTH, "TLS Web Server Authentication"),
    KNOWN(szOID_PKIX_KP_CLIENT_AUTH, "TLS Web Client Authentication"),
    KNOWN(szOID_PKIX_OCSP, "OCSP"),
    KNOWN(szOID_PKIX_OCSP_BASIC_SIGNED_RESPONSE, "Basic OCSP Response"),
    KNOWN(szOID_PKIX_CA_ISSUERS, "CA Issuers"),
    KNOWN(szOID_COMMON_NAME, "commonName"),
    KNOWN(szOID_SUR_NAME, "surname"),
    KNOWN(szOID_DEVICE_SERIAL_NUMBER, "serialNumber"),
    KNOWN(szOID_X21_ADDRESS, "x121Address"),
    KNOWN(szOID_PSEUDONYM, "pseudonym"),
    KNOWN(szOID_DOMAIN_COMPONENT, "domainComponent"),
    KNOWN(szOID_RSA_emailAddr, "emailAddress"),
    KNOWN(szOID_OGRN, "OGRN"),
    KNOWN(szOID_SNILS, "SNILS"),
    KNOWN(szOID_INN, "INN"),
    KNOWN(szOID_SUBJECT_SIGN_TOOL, "Signing Tool of Subject"),
    KNOWN(szOID_ISSUER_SIGN_TOOL, "Signing Tool of Issuer"),
    KNOWN(szOID_RSA_data, "pkcs7-data"),
    KNOWN(szOID_RSA_signedData, "pkcs7-signedData"),
    KNOWN(szOID_RSA_envelopedData, "pkcs7-envelopedData"),
    KNOWN(szOID_RSA_digestedData, "pkcs7-digestData"),
    KNOWN(szOID_RSA_encryptedData, "pkcs7-encryptedData"),
    KNOWN(szOID_RSA_contentType, "contentType"),
    KNOWN(szOID_RSA_messageDigest, "messageDigest"),
    KNOWN(szOID_RSA_signingTime, "signingTime"),
    KNOWN(szOID_RSA_SMIMECapabilities, "S/MIME Capabilities"),
    KNOWN(szOID_SIGNING_CERTIFICATE, "id-smime-aa-signingCertificate"),
    KNOWN(szOID_SIGNING_CERTIFICATE_V2, "id-smime-aa-signingCertificateV2"),
    KNOWN(szOID_OTHER_SIGNING_CERTIFICATE, "id-smime-aa-ets-otherSigCert"),
    KNOWN(szOID_RSA_RSA, "rsaEncryption"),
    KNOWN(szOID_RSAES_OAEP, "rsaesOaep"),
    KNOWN(szOID_RSA_SSA_PSS, "rsassaPss"),
    KNOWN(szOID_RSA_MGF1, "mgf1"),
    KNOWN(szOID_ECC_PUBLIC_KEY, "id-ecPublicKey"),
    KNOWN(szOID_ED25519, "ED25519"),
    KNOWN(szOID_GOST_R3410_2001, "GOST R 34.10-2001"),
    KNOWN(szOID_GOST_R3410_2001_DH, "GOST R 34.10-2001 DH"),
    KNOWN(szOID_GOST_R3410_2012_256, "GOST R 34.10-2012 with 256 bit modulus"),
    KNOWN(szOID_GOST_R3410_2012_512, "GOST R 34.10-2012 with 512 bit modulus"),
    KNOWN(szOID_GOST_R3411_94, "GOST R 34.11-94"),
    KNOWN(szOID_GOST_R3411_2012_256, "GOST R 34.11-2012 with 256 bit hash"),
    KNOWN(szOID_GOST_R3411_2012_512, "GOST R 34.11-2012 with 512 bit hash"),
    KNOWN(szOID_GOST_R3411_94_R3410_2001, "GOST R 34.11-94 with GOST R 34.10-2001"),
    KNOWN(szOID_GOST_R3411_94_R3410_94, "GOST R 34.11-94 with GOST R 34.10-94"),
    KNOWN(szOID_GOST_R3411_2012_256_R3410, "GOST R 34.10-2012 with GOST R 34.11-2012 (256 bit)"),
    KNOWN(szOID_GOST_R3411_2012_512_R3410, "GOST R 34.10-2012 with GOST R 34.11-2012 (512 bit)"),
    KNOWN(szOID_HMAC_GOST_R3411_94, "HMAC GOST 34.11-94"),
    KNOWN(szOID_HMAC_GOST_R3411_2012_256, "HMAC GOST 34.11-2012 256 bit"),
    KNOWN(szOID_HMAC_GOST_R3411_2012_512, "HMAC GOST 34.11-2012 512 bit"),
    KNOWN(szOID_GOST_28147_89, "GOST 28147-89"),
    KNOWN(szOID_GOST_28147_89_MAC, "GOST 28147-89 MAC"),
    KNOWN(szOID_GOST_28147_89_PARAM_SET_Z, "GOST 28147-89 TC26 parameter set"),
    KNOWN(szOID_GOST_R3412_2015_MAGMA_CTR_ACPKM, "magma-ctr-acpkm"),
    KNOWN(szOID_GOST_R3412_2015_MAGMA_CTR_ACPKM_OMAC, "magma-ctr-acpkm-omac"),
    KNOWN(szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM, "kuznyechik-ctr-acpkm"),
    KNOWN(szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM_OMAC, "kuznyechik-ctr-acpkm-omac"),
    KNOWN(szOID_GOST_R3412_2015_MAGMA_WRAP_KEXP15, "magma-kexp15"),
    KNOWN(szOID_GOST_R3412_2015_KUZNYECHIK_WRAP_KEXP15, "kuznyechik-kexp15"),
    KNOWN(szOID_RSA_MD2, "md2"),
    KNOWN(szOID_RSA_MD4, "md4"),
    KNOWN(szOID_RSA_MD5, "md5"),
    KNOWN(szOID_OIWSEC_sha1, "sha1"),
    KNOWN(szOID_NIST_sha256, "sha256"),
    KNOWN(szOID_RSA_MD2RSA, "md2WithRSAEncryption"),
    KNOWN(szOID_RSA_MD4RSA, "md4WithRSAEncryption"),
    KNOWN(szOID_RSA_MD5RSA, "md5WithRSAEncryption"),
    KNOWN(szOID_RSA_SHA256RSA, "sha256WithRSAEncryption"),
    KNOWN(szOID_ECDSA_SPECIFIED, "ecdsa-with-Specified"),
    KNOWN(szOID_ECDSA_SHA256, "ecdsa-with-SHA256"),
    KNOWN(szOID_HMAC_SHA256, "hmacWithSHA256"),
    KNOWN(szOID_PKCS_5_PBKDF2, "PBKDF2"),
    KNOWN(szOID_PKCS_5_PBES2, "PBES2"),
    KNOWN(szOID_PKCS_12_pbeWithSHA1And128BitRC4, "pbeWithSHA1And128BitRC4"),
    KNOWN(szOID_PKCS_12_pbeWithSHA1And3KeyTripleDES, "pbeWithSHA1And3-KeyTripleDES-CBC"),
    KNOWN(szOID_PKCS_12_pbeWithSHA1And40BitRC2, "pbeWithSHA1And40BitRC2-CBC"),
    KNOWN(szOID_RSA_DES_EDE3_CBC, "des-ede3-cbc"),
    KNOWN(szOID_NIST_AES256_CBC, "aes-256-cbc"),
    KNOWN(szOID_DH_SINGLE_PASS_STDDH_SHA1_KDF, "dhSinglePass-stdDH-sha1kdf-scheme"),
    KNOWN(szOID_DH_SINGLE_PASS_STDDH_SHA224_KDF, "dhSinglePass-stdDH-sha224kdf-scheme"),
    KNOWN(szOID_DH_SINGLE_PASS_STDDH_SHA512_KDF, "dhSinglePass-stdDH-sha512kdf-scheme"),
    KNOWN(szOID_PKCS_12_SHROUDED_KEY_BAG, "pkcs8ShroudedKeyBag"),
    KNOWN(szOID_PKCS_12_CERT_BAG, "certBag"),
    KNOWN(szOID_PKCS_12_X509_CERTIFICATE, "x509Certificate"),
    KNOWN(szOID_PKCS_12_FRIENDLY_NAME_ATTR, "friendlyName"),
    KNOWN(szOID_PKCS_12_LOCAL_KEY_ID, "localKeyID"),
};
#undef KNOWN

TEST(ObjectIdentifiers, AreThoseThatOthersKnow) {
  const auto config = std::filesystem::temp_directory_path() / ("oids-" + std::to_string(getpid()) + ".cnf");
  std::ofstream file(config);
  file << "asn1 = SEQUENCE:all\n[all]\n";
  for (size_t i = 0; i < std::size(kKnownIdentifiers); ++i)
    file << "o" << i << " = OID:" << kKnownIdentifiers[i].oid << "\n";
  file.close();
  const auto [output, status] =
      RunCommand("openssl asn1parse -noout -genconf " + config.string() + " -out " + config.string()
                 + ".der && openssl asn1parse -inform DER -in " + config.string() + ".der");
  std::filesystem::remove(config);
  std::filesystem::remove(config.string() + ".der");
  ASSERT_EQ(status, 0) << output;

  const std::regex object(R"(OBJECT\s+:(.*))");
  std::sregex_iterator match(output.begin(), output.end(), object);
  for (const auto& [macro, oid, name] : kKnownIdentifiers) {
    ASSERT_NE(match, std::sregex_iterator()) << "no answer for " << macro;
    EXPECT_EQ((*match++)[1], name) << macro << " is " << oid;
  }
}

TEST(ObjectIdentifiers, AreDistinctAndWellFormed) {
  const auto macros = Macros("oids.h", std::regex(R"re(#define (szOID_\w+)[ \\\n]+"([^"]*)")re"));
  ASSERT_GT(macros.size(), 180u);
  const std::set<std::string> aliases = {"szOID_RSA_hashedData"};
  const std::regex wellFormed(R"([01]\.[1-3]?\d(\.(0|[1-9]\d*))+|2\.(0|[1-9]\d*)(\.(0|[1-9]\d*))+)");
  std::map<std::string, std::string> byValue;
  for (const auto& [name, oid] : macros) {
    EXPECT_TRUE(std::regex_match(oid, wellFormed)) << name << " is " << oid;
    if (aliases.contains(name)) continue;
    const auto [other, isNew] = byValue.emplace(oid, name);
    EXPECT_TRUE(isNew) << name << " and " << other->second << " are both " << oid;
  }
}

}  // namespace
