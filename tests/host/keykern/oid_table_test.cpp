// The OID table against itself, walked as a caller walks it, and against libcrypto's names and signature pairs.
// first: types of libcrypto bear names that are macros of ours
#include <openssl/objects.h>

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using Row = PCCRYPT_OID_INFO;

std::vector<Row> RowsOf(DWORD group) {
  std::vector<Row> rows;
  const auto collect = [](Row row, void* arg) -> BOOL {
    static_cast<std::vector<Row>*>(arg)->push_back(row);
    return TRUE;
  };
  EXPECT_TRUE(CryptEnumOIDInfo(group, 0, &rows, collect));
  return rows;
}

Row ByOid(const char* oid, DWORD group) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(oid), group);
}
Row ByName(const std::wstring& name, DWORD group) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_NAME_KEY, const_cast<wchar_t*>(name.c_str()), group);
}
Row ByAlgorithm(ALG_ID algorithm, DWORD group) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &algorithm, group);
}
Row BySignature(ALG_ID hash, ALG_ID key, DWORD group) {
  ALG_ID pair[] = {hash, key};
  return CryptFindOIDInfo(CRYPT_OID_INFO_SIGN_KEY, pair, group);
}

std::vector<DWORD> WordsOf(Row row) {
  EXPECT_EQ(row->ExtraInfo.cbData % sizeof(DWORD), 0u);
  std::vector<DWORD> words(row->ExtraInfo.cbData / sizeof(DWORD));
  if (!words.empty()) std::memcpy(words.data(), row->ExtraInfo.pbData, row->ExtraInfo.cbData);
  return words;
}

std::wstring Folded(std::wstring name) {
  for (wchar_t& letter : name) letter = letter >= L'A' && letter <= L'Z' ? letter + 32 : letter;
  return name;
}

std::string Narrow(const wchar_t* name) { return {name, name + std::wcslen(name)}; }

TEST(OidTable, EveryKeyFindsTheFirstRowThatHasIt) {
  for (DWORD group = 0; group <= CRYPT_LAST_OID_GROUP_ID; ++group) {
    std::map<std::string, Row> oids;
    std::map<std::wstring, Row> names;
    std::map<ALG_ID, Row> algorithms;
    std::map<std::pair<ALG_ID, ALG_ID>, Row> signatures;
    for (const Row row : RowsOf(group)) {
      oids.emplace(row->pszOID, row);
      names.emplace(Folded(row->pwszName), row);
      if (row->Algid) algorithms.emplace(row->Algid, row);
      if (row->dwGroupId == CRYPT_SIGN_ALG_OID_GROUP_ID)
        signatures.emplace(std::pair(row->Algid, WordsOf(row)[0]), row);
    }
    // the upper half of a group is flags
    for (const DWORD flags : {0u, CRYPT_OID_DISABLE_SEARCH_DS_FLAG, 0x08000000u}) {
      SCOPED_TRACE(group | flags);
      for (const auto& [oid, row] : oids) EXPECT_EQ(ByOid(oid.c_str(), group | flags), row) << oid;
      for (const auto& [name, row] : names) {
        EXPECT_EQ(ByName(name, group | flags), row) << row->pszOID;
        EXPECT_EQ(ByName(row->pwszName, group | flags), row) << row->pszOID;
      }
      for (const auto& [id, row] : algorithms) EXPECT_EQ(ByAlgorithm(id, group | flags), row) << row->pszOID;
      for (const auto& [pair, row] : signatures) {
        EXPECT_EQ(BySignature(pair.first, pair.second, group | flags), row) << row->pszOID;
      }
    }
  }
}

TEST(OidTable, WhatIsNotThereIsNotFound) {
  SetLastError(77);
  for (const char* oid : {"", "1", "1.2.643.7.1.1.1", "1.2.643.7.1.1.1.1.", "1.2.643.7.1.1.1.10", "9"}) {
    EXPECT_EQ(ByOid(oid, 0), nullptr) << oid;
  }
  EXPECT_EQ(ByOid("2.5.4.3", CRYPT_HASH_ALG_OID_GROUP_ID), nullptr);
  EXPECT_EQ(ByOid("2.5.4.3", CRYPT_LAST_OID_GROUP_ID + 1), nullptr);
  EXPECT_EQ(ByName(L"", 0), nullptr);
  EXPECT_EQ(ByName(L"C", CRYPT_HASH_ALG_OID_GROUP_ID), nullptr);
  EXPECT_EQ(ByName(L"CNN", CRYPT_RDN_ATTR_OID_GROUP_ID), nullptr);
  EXPECT_EQ(ByAlgorithm(0, 0), nullptr) << "rows without an algorithm";
  EXPECT_EQ(ByAlgorithm(CALG_MD2, 0), nullptr);
  EXPECT_EQ(BySignature(CALG_GR3411, CALG_GR3410_12_256, 0), nullptr);
  EXPECT_EQ(BySignature(0, 0, 0), nullptr);
  EXPECT_EQ(BySignature(CALG_SHA1, CALG_RSA_SIGN, CRYPT_HASH_ALG_OID_GROUP_ID), nullptr);
  for (DWORD keyType = 0; keyType <= 5; ++keyType) {
    EXPECT_EQ(CryptFindOIDInfo(keyType, nullptr, 0), nullptr);
  }
  EXPECT_EQ(CryptFindOIDInfo(5, const_cast<char*>("2.5.4.3"), 0), nullptr);
  EXPECT_EQ(GetLastError(), 77u);
}

// In some locales the small form of a letter is another one, or that of a sign from elsewhere.
TEST(OidTable, NamesCompareTheSameInEveryLocale) {
  const std::string before = setlocale(LC_CTYPE, nullptr);
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(ByName(L"\x212A"
                   L"ey Usage",
                   0),
            nullptr)
      << "the Kelvin sign is no K";
  EXPECT_NE(ByName(L"kEY uSAGE", 0), nullptr);
  setlocale(LC_CTYPE, before.c_str());
}

TEST(OidTable, GroupsStandInOrderAndGostFirst) {
  DWORD group = 0;
  for (const Row row : RowsOf(0)) {
    EXPECT_EQ(row->cbSize, sizeof(CRYPT_OID_INFO));
    EXPECT_GE(row->dwGroupId, group) << row->pszOID;
    group = row->dwGroupId;
  }
  for (group = CRYPT_FIRST_ALG_OID_GROUP_ID; group <= CRYPT_LAST_ALG_OID_GROUP_ID; ++group) {
    bool gost = true;
    for (const Row row : RowsOf(group)) {
      const bool isGost = std::strncmp(row->pszOID, "1.2.643.", 8) == 0;
      EXPECT_TRUE(gost || !isGost) << row->pszOID;
      gost = isGost;
    }
  }
}

struct FirstRowCase {
  const char* oid;
  DWORD group;
  ALG_ID algorithm;
};
// What an OID stands for when nobody says which group: the exchange key of RSA, the signature key of the rest, and
// the key before the signature where one OID names both.
const FirstRowCase kFirstRows[] = {
    {"1.2.643.7.1.1.1.1",     CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2E49},
    {"1.2.643.7.1.1.1.2",     CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2E3D},
    {"1.2.643.2.2.19",        CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2E23},
    {"1.2.840.113549.1.1.1",  CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0xA400},
    {"1.2.840.113549.1.1.10", CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2400},
    {"1.2.840.10045.2.1",     CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2203},
    {"1.3.101.112",           CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2220},
    {"1.3.101.113",           CRYPT_PUBKEY_ALG_OID_GROUP_ID,  0x2220},
    {"1.2.643.2.2.9",         CRYPT_HASH_ALG_OID_GROUP_ID,    0x801E},
    {"1.2.643.2.2.21",        CRYPT_ENCRYPT_ALG_OID_GROUP_ID, 0x661E},
    {"1.2.643.7.1.1.3.2",     CRYPT_SIGN_ALG_OID_GROUP_ID,    0x8021},
};

TEST(OidTable, WithoutAGroupTheFirstMeaningIsFound) {
  for (const auto& [oid, group, algorithm] : kFirstRows) {
    SCOPED_TRACE(oid);
    const Row row = ByOid(oid, 0);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->dwGroupId, group);
    EXPECT_EQ(row->Algid, algorithm);
  }
  // each of these hashes and RSA has several OIDs; PSS and the old arc stand behind
  EXPECT_STREQ(BySignature(CALG_SHA1, CALG_RSA_SIGN, 4)->pszOID, "1.2.840.113549.1.1.5");
  EXPECT_STREQ(ByAlgorithm(CALG_GR3412_2015_M, 0)->pszOID, "1.2.643.7.1.1.5.1.1");
}

std::string OidOf(int nid) {
  char text[80];
  OBJ_obj2txt(text, sizeof(text), OBJ_nid2obj(nid), 1);
  return text;
}

TEST(OidTable, SignaturesPairTheirHashAndKeyAsLibcryptoDoes) {
  for (const Row row : RowsOf(CRYPT_SIGN_ALG_OID_GROUP_ID)) {
    SCOPED_TRACE(row->pszOID);
    const std::vector<DWORD> words = WordsOf(row);
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(words[1] & CRYPT_OID_INHIBIT_SIGNATURE_FORMAT_FLAG, 0u) << "every signature is reversed";
    EXPECT_EQ(GET_ALG_CLASS(words[0]), ALG_CLASS_SIGNATURE);
    int digest = 0, key = 0;
    ASSERT_EQ(OBJ_find_sigid_algs(OBJ_txt2nid(row->pszOID), &digest, &key), 1);
    if (key == NID_rsa)
      key = NID_rsaEncryption;  // libcrypto's name of the old arc's key, which nothing writes
    const Row keyRow = ByOid(OidOf(key).c_str(), CRYPT_PUBKEY_ALG_OID_GROUP_ID);
    ASSERT_NE(keyRow, nullptr);
    EXPECT_EQ(GET_ALG_CLASS(keyRow->Algid) == ALG_CLASS_SIGNATURE ? keyRow->Algid : (keyRow + 1)->Algid,
              words[0]);
    if (digest == NID_undef) continue;  // the parameters say, or the message itself is signed
    const Row hashRow = ByAlgorithm(row->Algid, CRYPT_HASH_ALG_OID_GROUP_ID);
    ASSERT_NE(hashRow, nullptr);
    EXPECT_EQ(hashRow->pszOID, OidOf(digest));
  }
}

TEST(OidTable, NullParametersAreForRsaAlone) {
  for (const DWORD group : {CRYPT_PUBKEY_ALG_OID_GROUP_ID, CRYPT_SIGN_ALG_OID_GROUP_ID}) {
    for (const Row row : RowsOf(static_cast<DWORD>(group))) {
      // RFC 3279 and 4055 want NULL; RFC 5480, 5758, 8410 and 9215 want nothing, and PSS brings its own
      const bool wantsNull = std::strncmp(row->pszOID, "1.2.840.113549.1.1.", 19) == 0
          ? std::strcmp(row->pszOID + 19, "10") != 0
          : std::strcmp(row->pszOID, "1.3.14.3.2.29") == 0;
      const DWORD flags = WordsOf(row)[group == CRYPT_SIGN_ALG_OID_GROUP_ID ? 1 : 0];
      EXPECT_EQ(flags, wantsNull ? 0u : DWORD{CRYPT_OID_NO_NULL_ALGORITHM_PARA_FLAG}) << row->pszOID;
    }
  }
}

TEST(OidTable, NameAttributesHaveTheirNamesAndTypes) {
  std::set<std::string> compared;
  for (const Row row : RowsOf(CRYPT_RDN_ATTR_OID_GROUP_ID)) {
    SCOPED_TRACE(row->pszOID);
    const std::vector<DWORD> types = WordsOf(row);
    if (!types.empty()) {
      EXPECT_GE(types.size(), 2u) << "a single word would not count as types";
      EXPECT_EQ(types.back(), 0u);
      EXPECT_TRUE(types[0] >= CERT_RDN_NUMERIC_STRING && types[0] <= CERT_RDN_UTF8_STRING);
    }
    const int nid = OBJ_sn2nid(Narrow(row->pwszName).c_str());
    if (nid == NID_undef) continue;
    EXPECT_EQ(OidOf(nid), row->pszOID);
    compared.insert(Narrow(row->pwszName));
  }
  for (const char* name : {"CN", "C", "L", "ST", "O", "OU", "SN", "DC", "INN", "OGRN", "SNILS"}) {
    EXPECT_EQ(compared.count(name), 1u) << name;
  }
  // of several names the first is what is displayed
  const std::pair<const char*, const wchar_t*> kDisplayed[] = {
      {"2.5.4.8",              L"S"},
      {"1.2.840.113549.1.9.1", L"E"},
      {"2.5.4.12",             L"T"},
      {"2.5.4.42",             L"G"},
      {"2.5.4.43",             L"I"}
  };
  for (const auto& [oid, name] : kDisplayed) {
    EXPECT_STREQ(ByOid(oid, CRYPT_RDN_ATTR_OID_GROUP_ID)->pwszName, name);
  }
}

TEST(OidTable, TheWalkEndsWhenTheCallerSaysSo) {
  int calls = 0;
  const auto third = [](Row, void* arg) -> BOOL { return ++*static_cast<int*>(arg) < 3; };
  SetLastError(77);
  EXPECT_FALSE(CryptEnumOIDInfo(0, 0, &calls, third));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(GetLastError(), 77u) << "the caller's own end is no fault";
  EXPECT_FALSE(CryptEnumOIDInfo(0, 0, &calls, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  SetLastError(0);
  EXPECT_FALSE(CryptEnumOIDInfo(0, 1, &calls, third));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
