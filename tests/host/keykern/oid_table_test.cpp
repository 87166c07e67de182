// Rules that every row of the OID table must keep, and the rows that others count on.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <clocale>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

std::vector<PCCRYPT_OID_INFO> Rows(DWORD group = 0) {
  std::vector<PCCRYPT_OID_INFO> rows;
  const auto collect = [](PCCRYPT_OID_INFO row, void* all) -> BOOL {
    static_cast<std::vector<PCCRYPT_OID_INFO>*>(all)->push_back(row);
    return TRUE;
  };
  EXPECT_TRUE(CryptEnumOIDInfo(group, 0, &rows, collect));
  return rows;
}

PCCRYPT_OID_INFO FindOid(const char* oid, DWORD group = 0) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(oid), group);
}
PCCRYPT_OID_INFO FindName(const wchar_t* name, DWORD group = 0) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_NAME_KEY, const_cast<wchar_t*>(name), group);
}
PCCRYPT_OID_INFO FindAlgid(ALG_ID id, DWORD group = 0) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &id, group);
}
std::vector<DWORD> Words(const CRYPT_OID_INFO& row) {
  std::vector<DWORD> words(row.ExtraInfo.cbData / sizeof(DWORD));
  if (!words.empty()) std::memcpy(words.data(), row.ExtraInfo.pbData, row.ExtraInfo.cbData);
  return words;
}

// A search walks the table from the front, so what it answers must be the first row that fits: judged by a walk of our
// own, for every key that any row has.
TEST(OidTable, EachKeyFindsItsFirstRow) {
  const std::vector<PCCRYPT_OID_INFO> rows = Rows();
  const auto first = [&](const auto& fits) {
    for (PCCRYPT_OID_INFO row : rows) {
      if (fits(*row)) return row;
    }
    return PCCRYPT_OID_INFO{};
  };
  for (PCCRYPT_OID_INFO row : rows) {
    SCOPED_TRACE(row->pszOID);
    for (const DWORD group : {DWORD{0}, row->dwGroupId}) {
      const auto inGroup = [group](const CRYPT_OID_INFO& r) { return !group || r.dwGroupId == group; };
      EXPECT_EQ(FindOid(row->pszOID, group), first([&](const CRYPT_OID_INFO& r) {
                  return inGroup(r) && std::strcmp(r.pszOID, row->pszOID) == 0;
                }));
      EXPECT_EQ(FindName(row->pwszName, group), first([&](const CRYPT_OID_INFO& r) {
                  return inGroup(r) && wcscasecmp(r.pwszName, row->pwszName) == 0;
                }));
      if (row->Algid && row->dwGroupId <= CRYPT_LAST_ALG_OID_GROUP_ID) {
        EXPECT_EQ(FindAlgid(row->Algid, group),
                  first([&](const CRYPT_OID_INFO& r) { return inGroup(r) && r.Algid == row->Algid; }));
      }
    }
    if (row->dwGroupId == CRYPT_SIGN_ALG_OID_GROUP_ID) {
      ALG_ID pair[2] = {row->Algid, Words(*row).at(0)};
      const PCCRYPT_OID_INFO found =
          CryptFindOIDInfo(CRYPT_OID_INFO_SIGN_KEY, pair, CRYPT_SIGN_ALG_OID_GROUP_ID);
      ASSERT_TRUE(found);
      EXPECT_EQ(found->Algid, pair[0]);
      EXPECT_EQ(Words(*found).at(0), pair[1]);
      EXPECT_LE(found, row);
    }
  }
}

TEST(OidTable, RowsKeepTheRules) {
  const std::vector<PCCRYPT_OID_INFO> rows = Rows();
  DWORD group = CRYPT_FIRST_ALG_OID_GROUP_ID;
  for (PCCRYPT_OID_INFO row : rows) {
    SCOPED_TRACE(row->pszOID);
    EXPECT_EQ(row->cbSize, sizeof(CRYPT_OID_INFO));
    EXPECT_GE(row->dwGroupId, group) << "groups in order";
    group = row->dwGroupId;
    EXPECT_EQ(std::strspn(row->pszOID, "0123456789."), std::strlen(row->pszOID));
    const std::vector<DWORD> words = Words(*row);
    switch (row->dwGroupId) {
      case CRYPT_HASH_ALG_OID_GROUP_ID:
        EXPECT_EQ(GET_ALG_CLASS(row->Algid), ALG_CLASS_HASH);
        break;
      case CRYPT_ENCRYPT_ALG_OID_GROUP_ID:
        EXPECT_EQ(GET_ALG_CLASS(row->Algid), ALG_CLASS_DATA_ENCRYPT);
        break;
      case CRYPT_PUBKEY_ALG_OID_GROUP_ID:
        ASSERT_EQ(words.size(), 1u);
        EXPECT_EQ(words[0] & ~DWORD{CRYPT_OID_NO_NULL_ALGORITHM_PARA_FLAG}, 0u);
        break;
      case CRYPT_SIGN_ALG_OID_GROUP_ID:
        ASSERT_EQ(words.size(), 3u);
        EXPECT_EQ(GET_ALG_CLASS(row->Algid), ALG_CLASS_HASH);
        EXPECT_EQ(GET_ALG_CLASS(words[0]), ALG_CLASS_SIGNATURE);
        EXPECT_EQ(words[1] & CRYPT_OID_INHIBIT_SIGNATURE_FORMAT_FLAG, 0u)
            << "messages reverse every signature";
        break;
      case CRYPT_RDN_ATTR_OID_GROUP_ID:
        EXPECT_TRUE(words.empty() || words.back() == 0) << "the list of value types ends";
        break;
      default:
        break;
    }
  }
  EXPECT_EQ(group, DWORD{CRYPT_POLICY_OID_GROUP_ID});
}

// RFC 4519, RFC 4514 and the Russian qualified certificate's attributes; lower case is the same keyword.
TEST(OidTable, NameKeywords) {
  const struct {
    const wchar_t* keyword;
    const char* oid;
  } kKeywords[] = {
      {L"CN",     "2.5.4.3"                   },
      {L"C",      "2.5.4.6"                   },
      {L"L",      "2.5.4.7"                   },
      {L"ST",     "2.5.4.8"                   },
      {L"S",      "2.5.4.8"                   },
      {L"O",      "2.5.4.10"                  },
      {L"OU",     "2.5.4.11"                  },
      {L"STREET", "2.5.4.9"                   },
      {L"SN",     "2.5.4.4"                   },
      {L"T",      "2.5.4.12"                  },
      {L"G",      "2.5.4.42"                  },
      {L"I",      "2.5.4.43"                  },
      {L"dc",     "0.9.2342.19200300.100.1.25"},
      {L"UID",    "0.9.2342.19200300.100.1.1" },
      {L"e",      "1.2.840.113549.1.9.1"      },
      {L"INN",    "1.2.643.3.131.1.1"         },
      {L"OGRN",   "1.2.643.100.1"             },
      {L"SNILS",  "1.2.643.100.3"             },
  };
  for (const auto& [keyword, oid] : kKeywords) {
    const PCCRYPT_OID_INFO row = FindName(keyword, CRYPT_RDN_ATTR_OID_GROUP_ID);
    ASSERT_TRUE(row) << oid;
    EXPECT_STREQ(row->pszOID, oid);
  }
}

// Public key OIDs that also name signatures are looked for without a group, and must be found as keys.
TEST(OidTable, KeysBeforeSignatures) {
  for (const char* oid : {"1.2.840.113549.1.1.10", "1.3.101.112", "1.3.101.113"}) {
    ASSERT_TRUE(FindOid(oid)) << oid;
    EXPECT_EQ(FindOid(oid)->dwGroupId, DWORD{CRYPT_PUBKEY_ALG_OID_GROUP_ID}) << oid;
  }
  ALG_ID pair[2] = {CALG_SHA1, CALG_RSA_SIGN};
  EXPECT_STREQ(CryptFindOIDInfo(CRYPT_OID_INFO_SIGN_KEY, pair, 0)->pszOID, "1.2.840.113549.1.1.5");
}

std::string OidOf(int nid) {
  char text[80];
  OBJ_obj2txt(text, sizeof(text), OBJ_nid2obj(nid), 1);
  return text;
}

// libcrypto has a list of its own of which hash and key a signature names.
TEST(OidTable, SignaturesPairAsInLibcrypto) {
  for (PCCRYPT_OID_INFO row : Rows(CRYPT_SIGN_ALG_OID_GROUP_ID)) {
    SCOPED_TRACE(row->pszOID);
    int digest = 0, key = 0;
    ASSERT_EQ(OBJ_find_sigid_algs(OBJ_txt2nid(row->pszOID), &digest, &key), 1);
    if (key == NID_rsa) key = NID_rsaEncryption;  // its name for the key of the old arc, which nobody writes
    bool paired = false;
    for (PCCRYPT_OID_INFO keyRow : Rows(CRYPT_PUBKEY_ALG_OID_GROUP_ID)) {
      paired |= keyRow->pszOID == OidOf(key) && keyRow->Algid == Words(*row).at(0);
    }
    EXPECT_TRUE(paired) << OidOf(key);
    if (digest == NID_undef) continue;  // the parameters name it, or the message itself is signed
    const PCCRYPT_OID_INFO hash = FindAlgid(row->Algid, CRYPT_HASH_ALG_OID_GROUP_ID);
    ASSERT_TRUE(hash);
    EXPECT_EQ(hash->pszOID, OidOf(digest));
  }
}

// RFC 3279 and 4055 want NULL parameters for RSA; RFC 5480, 5758, 8410 and 9215 want none, and PSS brings its own.
TEST(OidTable, NullParametersAreForRsa) {
  for (const DWORD group : {DWORD{CRYPT_PUBKEY_ALG_OID_GROUP_ID}, DWORD{CRYPT_SIGN_ALG_OID_GROUP_ID}}) {
    for (PCCRYPT_OID_INFO row : Rows(group)) {
      const std::string oid = row->pszOID;
      const bool rsa = oid.rfind("1.2.840.113549.1.1.", 0) == 0 || oid == "1.3.14.3.2.29";
      const DWORD flags = Words(*row).at(group == CRYPT_SIGN_ALG_OID_GROUP_ID ? 1 : 0);
      EXPECT_EQ(flags, rsa && oid != "1.2.840.113549.1.1.10" ? 0u : 4u) << oid;
    }
  }
}

// Of several names of an attribute the first is displayed; a list of types has a zero behind it, so that a single type
// takes two words.
TEST(OidTable, DisplayedNamesAndTypes) {
  const struct {
    const char* oid;
    const wchar_t* name;
    std::vector<DWORD> types;
  } kAttributes[] = {
      {"2.5.4.8",                    L"S",   {13, 0}},
      {"2.5.4.12",                   L"T",   {13, 0}},
      {"2.5.4.42",                   L"G",   {13, 0}},
      {"2.5.4.6",                    L"C",   {4, 0} },
      {"1.2.840.113549.1.9.1",       L"E",   {7, 0} },
      {"0.9.2342.19200300.100.1.25", L"DC",  {13, 0}},
      {"1.2.643.3.131.1.1",          L"INN", {3, 0} },
  };
  for (const auto& [oid, name, types] : kAttributes) {
    const PCCRYPT_OID_INFO row = FindOid(oid, CRYPT_RDN_ATTR_OID_GROUP_ID);
    ASSERT_TRUE(row) << oid;
    EXPECT_STREQ(row->pwszName, name);
    EXPECT_EQ(Words(*row), types) << oid;
  }
}

// In some locales the small form of a letter is another one, or that of a sign from elsewhere.
TEST(OidTable, NamesCompareTheSameInEveryLocale) {
  const std::string before = setlocale(LC_CTYPE, nullptr);
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_FALSE(
      FindName(L"\x212A"
               L"ey Usage"))
      << "the Kelvin sign is no K";
  EXPECT_TRUE(FindName(L"kEY uSAGE"));
  setlocale(LC_CTYPE, before.c_str());
}

TEST(OidTable, TheWalkEndsWhenTheCallerSaysSo) {
  int calls = 0;
  const auto third = [](PCCRYPT_OID_INFO, void* arg) -> BOOL { return ++*static_cast<int*>(arg) < 3; };
  SetLastError(77);
  EXPECT_FALSE(CryptEnumOIDInfo(0, 0, &calls, third));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(GetLastError(), 77u) << "the caller's own end is no fault";
}

TEST(OidTable, Misses) {
  EXPECT_FALSE(FindOid("1.2.3"));
  EXPECT_FALSE(FindOid(""));
  EXPECT_FALSE(FindOid("1.2.643.2.2.9", CRYPT_SIGN_ALG_OID_GROUP_ID)) << "in another group";
  EXPECT_TRUE(FindOid("1.2.643.2.2.9", CRYPT_HASH_ALG_OID_GROUP_ID | CRYPT_OID_DISABLE_SEARCH_DS_FLAG));
  EXPECT_FALSE(FindName(L"C", CRYPT_HASH_ALG_OID_GROUP_ID));
  EXPECT_FALSE(FindName(L"CNN"));
  EXPECT_FALSE(FindAlgid(0)) << "rows without an algorithm are no answer";
  EXPECT_FALSE(CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, nullptr, 0));
  EXPECT_FALSE(CryptFindOIDInfo(99, const_cast<char*>("2.5.4.3"), 0));
  SetLastError(0);
  EXPECT_FALSE(CryptEnumOIDInfo(0, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_TRUE(Rows(CRYPT_TEMPLATE_OID_GROUP_ID).empty());
}

}  // namespace
