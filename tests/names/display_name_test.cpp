// What certificates are called, and questions about attributes.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>

#include <gtest/gtest.h>

#include <cstring>

#include "names/der_name.h"
#include "platform/owner.h"
#include "store/fault_plan.h"

using namespace certkern::test;  // NOLINT(google-build-using-namespace): the vocabulary of these tests
using namespace std::string_literals;

namespace {

using Context = certkern::Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;

constexpr DWORD kEmail = CERT_NAME_EMAIL_TYPE, kWhole = CERT_NAME_RDN_TYPE, kAttr = CERT_NAME_ATTR_TYPE,
                kSimple = CERT_NAME_SIMPLE_DISPLAY_TYPE, kFriendly = CERT_NAME_FRIENDLY_DISPLAY_TYPE,
                kDns = CERT_NAME_DNS_TYPE, kUrlType = CERT_NAME_URL_TYPE;

const Octets kOrg = Attribute(kOrganisation, 0x0C, "Org");
const Octets kOu = Attribute(kUnit, 0x0C, "Unit");
const Octets kMailAttr = Attribute(kMail, 0x16, "a@attribute");

Octets AltName(int last, const Octets& names) {
  const Octets oid = {0x06, 0x03, 0x55, 0x1D, static_cast<char>(last)};
  return Element(0x30, oid + Element(0x04, Element(0x30, names)));
}
Octets San(const Octets& names) { return AltName(17, names); }
const Octets kMailName = Element(0x81, "a@name");
const Octets kDnsName = Element(0x82, "name.example");
const Octets kUrl = Element(0x86, "http://name.example");

struct Subject {
  Octets name = NameOf({});
  Octets extensions;
};

Context Certificate(const Subject& subject, const Octets& issuer = NameOf({Cn("Issuer")})) {
  const Octets algorithm = Element(0x30, "\x06\x02\x2A\x03"), bits = Element(0x03, "\0\1"s);
  const Octets validity = Element(0x30, Element(0x17, "200101000000Z") + Element(0x17, "300101000000Z"));
  Octets body = Element(0xA0, Element(0x02, "\x02")) + Element(0x02, "\x01") + algorithm + issuer + validity
      + subject.name + Element(0x30, algorithm + bits);
  if (!subject.extensions.empty()) body += Element(0xA3, Element(0x30, subject.extensions));
  const Octets whole = Element(0x30, Element(0x30, body) + algorithm + bits);
  Context context(CertCreateCertificateContext(X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(whole.data()),
                                               static_cast<DWORD>(whole.size())));
  EXPECT_TRUE(context);
  return context;
}

std::wstring Ask(const Context& context, DWORD type, const void* parameter = nullptr, DWORD flags = 0) {
  void* para = const_cast<void*>(parameter);
  wchar_t text[200];
  const DWORD count = CertGetNameStringW(context.get(), type, flags, para, text, 200);
  EXPECT_EQ(CertGetNameStringW(context.get(), type, flags, para, nullptr, 0), count);
  EXPECT_EQ(text[count - 1], L'\0');
  return {text, count - 1};
}

void SetFriendlyName(const Context& context, Octets bytes) {
  const CRYPT_DATA_BLOB blob = BlobOf(bytes);
  ASSERT_TRUE(CertSetCertificateContextProperty(context.get(), CERT_FRIENDLY_NAME_PROP_ID, 0, &blob));
}

const struct {
  const char* name;
  Subject subject;
  DWORD type;
  const wchar_t* answer;
} kAnswers[] = {
    {"mail: alternative first",           {NameOf({kMailAttr}), San(kMailName)},               kEmail,    L"a@name"             },
    {"mail: the attribute",               {NameOf({kMailAttr}), San(kDnsName)},                kEmail,    L"a@attribute"        },
    {"an empty one is none",
     {NameOf({kMailAttr}), San(Element(0x81, "") + kMailName)},
     kEmail,                                                                                              L"a@attribute"        },
    {"of several the first",
     {NameOf({}), San(kDnsName + kMailName + Element(0x81, "b@name"))},
     kEmail,                                                                                              L"a@name"             },
    {"the old extension",                 {NameOf({}), AltName(7, kMailName)},                 kEmail,    L"a@name"             },
    {"the first extension ends it",       {NameOf({}), AltName(7, kMailName) + San(kDnsName)}, kEmail,    L""                   },
    {"one that does not decode does not",
     {NameOf({}), San("\x81\x7F") + AltName(7, kMailName)},
     kEmail,                                                                                              L"a@name"             },
    {"the issuer's is another",           {NameOf({}), AltName(18, kMailName)},                kEmail,    L""                   },
    {"the whole name",                    {NameOf({Cn("a,b"), kOu}), ""},                      kWhole,    L"\"a,b\", Unit"      },
    {"the last name's first",
     {Name({RelativeName({Cn("a")}), RelativeName({kOu, kOrg}), RelativeName({})}), ""},
     kAttr,                                                                                               L"Unit"               },
    {"shown: the common name",            {NameOf({Cn("a"), kOu}), San(kMailName)},            kSimple,   L"a"                  },
    {"shown: the unit",                   {NameOf({kOu, kOrg}), ""},                           kSimple,   L"Unit"               },
    {"shown: the organisation",           {NameOf({kMailAttr, kOrg}), ""},                     kSimple,   L"Org"                },
    {"shown: mail",                       {NameOf({kMailAttr}), San(kMailName)},               kSimple,   L"a@attribute"        },
    {"shown: alternative mail",           {NameOf({}), San(kMailName)},                        kSimple,   L"a@name"             },
    {"an empty name hides the unit",      {NameOf({kOu, Cn("")}), San(kMailName)},             kSimple,   L"a@name"             },
    {"of two the last",                   {NameOf({Cn("a"), Cn("b"), kOu}), ""},               kSimple,   L"b"                  },
    {"of two in one the first",           {Name({RelativeName({Cn("a"), Cn("b")})}), ""},      kSimple,   L"a"                  },
    {"two octets a character",
     {NameOf({Attribute(kCn, 0x1E, "\x04\x16\x04\x17")}), ""},
     kSimple,                                                                                             L"\u0416\u0417"       },
    {"the old 8-bit type",                {NameOf({Attribute(kCn, 0x14, "\xE9")}), ""},        kSimple,   L"\u00E9"             },
    {"a value that is no text",           {NameOf({Attribute(kCn, 0x03, "\1"), kOu}), ""},     kSimple,   L""                   },
    {"no friendly name",                  {NameOf({kOu}), ""},                                 kFriendly, L"Unit"               },
    {"DNS: alternative first",            {NameOf({Cn("a")}), San(kUrl + kDnsName)},           kDns,      L"name.example"       },
    {"DNS: the common name",              {NameOf({Cn("a"), kOu}), San(kUrl)},                 kDns,      L"a"                  },
    {"DNS: nothing else",                 {NameOf({kOu}), ""},                                 kDns,      L""                   },
    {"URL",                               {NameOf({Cn("a")}), San(kDnsName + kUrl)},           kUrlType,  L"http://name.example"},
    {"URL: nothing else",                 {NameOf({Cn("a")}), ""},                             kUrlType,  L""                   },
};

TEST(CertGetNameString, Answers) {
  for (const auto& [name, subject, type, answer] : kAnswers) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Ask(Certificate(subject), type), answer);
  }
}

TEST(CertGetNameString, Parameters) {
  const Context context =
      Certificate({NameOf({Cn("a"), Cn("b"), kOu}), ""}, Name({RelativeName({Cn("I"), kOrg})}));
  const DWORD form = CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG;
  EXPECT_EQ(Ask(context, kWhole, &form), L"OU=Unit, CN=b, CN=a");
  EXPECT_EQ(Ask(context, kAttr, "2.5.4.3"), L"b");
  EXPECT_EQ(Ask(context, kAttr, "2.5.4.10"), L"");
  EXPECT_EQ(Ask(context, kAttr, "2.5.4.10", CERT_NAME_ISSUER_FLAG), L"Org");
  const Context other = Certificate({NameOf({}), AltName(18, kMailName)});
  EXPECT_EQ(Ask(other, kEmail, nullptr, CERT_NAME_ISSUER_FLAG), L"a@name");
}

TEST(CertGetNameString, ContextWithoutFields) {
  const CERT_CONTEXT hollow{};
  for (DWORD type = kEmail; type <= kUrlType; ++type) {
    char text[8] = "text";
    SetLastError(0);
    EXPECT_EQ(CertGetNameStringA(&hollow, type, 0, nullptr, text, sizeof text), 1u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << type;
    EXPECT_STREQ(text, "");
  }
}

TEST(CertGetNameString, FriendlyName) {
  const Context context = Certificate({NameOf({kOu}), ""});
  const struct {
    const char* name;
    Octets bytes;
    const wchar_t* answer;
  } kCases[] = {
      {"with a NUL",            "\x16\x04\0\0a\0\0\0\0\0\0\0"s, L"\u0416a"},
      {"without a NUL",         "\x16\x04\0\0a\0\0\0"s,         L"\u0416a"},
      {"a part behind",         "a\0\0\0bc"s,                   L"a"      },
      {"empty",                 "\0\0\0\0a\0\0\0"s,             L"Unit"   },
      {"less than a character", "ab",                           L"Unit"   },
  };
  for (const auto& [name, bytes, answer] : kCases) {
    SCOPED_TRACE(name);
    SetFriendlyName(context, bytes);
    EXPECT_EQ(Ask(context, kFriendly), answer);
  }
}

TEST(CertGetNameString, Buffers) {
  const Context context = Certificate({NameOf({Cn("\xD0\x96\xD0\x97")}), San(kUrl)});
  wchar_t wide[2] = {L'?', L'?'};
  EXPECT_EQ(CertGetNameStringW(context.get(), kSimple, 0, nullptr, wide, 2), 2u);
  EXPECT_STREQ(wide, L"\u0416");
  EXPECT_EQ(CertGetNameStringA(context.get(), kSimple, 0, nullptr, nullptr, 0), 5u);
  for (const auto& [room, count] : {
           std::pair{5u, 5u},
           {4u, 3u},
           {2u, 1u}
  }) {
    char narrow[5];
    EXPECT_EQ(CertGetNameStringA(context.get(), kSimple, 0, nullptr, narrow, room), count);
    EXPECT_EQ(Octets(narrow), Octets("\xD0\x96\xD0\x97").substr(0, count - 1));
  }
  wide[0] = L'?';
  EXPECT_EQ(CertGetNameStringW(context.get(), kUrlType, 0, nullptr, wide, 0), 1u);
  EXPECT_EQ(CertGetNameStringW(context.get(), kDns, 0, nullptr, wide, 0), 3u);
  EXPECT_EQ(wide[0], L'?');
}

TEST(CertGetNameString, Refusals) {
  const Context context = Certificate({NameOf({Cn("a")}), ""});
  for (const auto& [certificate, type] : {
           std::pair{context.get(),    0u},
           {context.get(),    8u},
           {PCCERT_CONTEXT{}, 4u}
  }) {
    wchar_t wide = L'?';
    char narrow = '?';
    SetLastError(0);
    EXPECT_EQ(CertGetNameStringW(certificate, type, 0, nullptr, &wide, 1), 1u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(CertGetNameStringA(certificate, type, 0, nullptr, &narrow, 1), 1u);
    EXPECT_TRUE(wide == L'\0' && narrow == '\0');
  }
  SetLastError(7);
  EXPECT_EQ(CertGetNameStringW(context.get(), kUrlType, 0, nullptr, nullptr, 0), 1u);
  EXPECT_EQ(GetLastError(), 7u) << "none is an answer";
}

// --- attributes ---

TEST(CertFindRDNAttr, FirstOfTheFirst) {
  char cn[] = "2.5.4.3", unit[] = "2.5.4.11";
  CERT_RDN_ATTR first[] =
      {
          {nullptr, 0, {}},
          {unit,    0, {}}
  },
                second[] = {{cn, 1, {}}, {cn, 2, {}}};
  CERT_RDN relativeNames[] = {
      {2, first  },
      {2, second },
      {1, nullptr}
  };
  CERT_NAME_INFO name = {2, relativeNames};
  SetLastError(7);
  EXPECT_EQ(CertFindRDNAttr("2.5.4.3", &name), &second[0]);
  EXPECT_EQ(CertFindRDNAttr("2.5.4.11", &name), &first[1]);
  EXPECT_EQ(CertFindRDNAttr("2.5.4.1", &name), nullptr);
  EXPECT_EQ(GetLastError(), 7u);
  name.cRDN = 3;
  EXPECT_EQ(CertFindRDNAttr("2.5.4.1", &name), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "elements that are not there";
  SetLastError(7);
  EXPECT_EQ(CertFindRDNAttr(nullptr, &name), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  SetLastError(7);
  EXPECT_EQ(CertFindRDNAttr("2.5.4.3", nullptr), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(CertIsRDNAttrsInCertificateName, Matches) {
  const Octets encoded = Name({RelativeName({Attribute(kCn, 0x13, "ab")}), RelativeName({kOu})});
  CERT_NAME_BLOB name = BlobOf(encoded);
  char cn[] = "2.5.4.3", unit[] = "2.5.4.11";
  const Octets ab = "ab", upper = "AB", wideAb = "a\0\0\0b\0\0\0"s;
  const auto unicode = CERT_UNICODE_IS_RDN_ATTRS_FLAG;
  const struct {
    const char* name;
    DWORD flags;
    std::vector<CERT_RDN_ATTR> wanted;
    BOOL found;
  } kCases[] = {
      {"nothing is there",               0,       {},                                                 TRUE },
      {"anything",                       0,       {{nullptr, 0, {}}},                                 TRUE },
      {"an identifier",                  0,       {{unit, 0, {}}},                                    TRUE },
      {"type and bytes",                 0,       {{nullptr, CERT_RDN_PRINTABLE_STRING, BlobOf(ab)}}, TRUE },
      {"another type",                   0,       {{cn, CERT_RDN_UTF8_STRING, BlobOf(ab)}},           FALSE},
      {"bytes of another attribute",     0,       {{unit, 0, BlobOf(ab)}},                            FALSE},
      {"a beginning",                    0,       {{cn, 0, {1, BlobOf(ab).pbData}}},                  FALSE},
      {"case counts, whatever is asked",
       CERT_CASE_INSENSITIVE_IS_RDN_ATTRS_FLAG,   {{cn, 0, BlobOf(upper)}},
       FALSE                                                                                               },
      {"two, whatever their order",      0,       {{unit, 0, {}}, {cn, 0, BlobOf(ab)}},               TRUE },
      {"one of two",                     0,       {{unit, 0, {}}, {cn, 0, BlobOf(upper)}},            FALSE},
      {"wide values",                    unicode, {{cn, 0, BlobOf(wideAb)}},                          TRUE },
      {"wide values, narrow bytes",      unicode, {{cn, 0, BlobOf(ab)}},                              FALSE},
  };
  for (auto [title, flags, wanted, found] : kCases) {
    SCOPED_TRACE(title);
    CERT_RDN rdn = {static_cast<DWORD>(wanted.size()), wanted.data()};
    SetLastError(7);
    EXPECT_EQ(CertIsRDNAttrsInCertificateName(X509_ASN_ENCODING, flags, &name, &rdn), found);
    EXPECT_EQ(GetLastError(), 7u);
  }
  CERT_RDN broken = {1, nullptr};
  EXPECT_FALSE(CertIsRDNAttrsInCertificateName(X509_ASN_ENCODING, 0, &name, &broken));
  EXPECT_FALSE(CertIsRDNAttrsInCertificateName(X509_ASN_ENCODING, 0, &name, nullptr));
  EXPECT_FALSE(CertIsRDNAttrsInCertificateName(X509_ASN_ENCODING, 0, nullptr, &broken));
  EXPECT_EQ(GetLastError(), 7u);
  name.cbData -= 1;
  SetLastError(0);
  EXPECT_FALSE(CertIsRDNAttrsInCertificateName(X509_ASN_ENCODING, 0, &name, &broken));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR}) << "a name that does not decode";
}

}  // namespace

// A certificate that can't be read for want of memory is not one without alternative names.
TEST(CertGetNameString, WantOfMemoryIsNoOtherName) {
  const Context context = Certificate({NameOf({Cn("common name")}), San(kDnsName)});
  for (FaultPlan plan; plan.next();) {
    wchar_t text[200] = {};
    SetLastError(0);
    const bool done = plan.run(
        [&] { return CertGetNameStringW(context.get(), CERT_NAME_DNS_TYPE, 0, nullptr, text, 200) > 1; });
    EXPECT_EQ(std::wstring(text), done ? L"name.example" : L"") << plan.faults();
  }
}
