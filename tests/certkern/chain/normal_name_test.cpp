#include "certkern/chain/normal_name.h"

#include <gtest/gtest.h>

#include "certkern/chain/made_certificate.h"

namespace certkern::test {
namespace {

constexpr BYTE kUtf8 = 0x0C, kPrintable = 0x13, kTeletex = 0x14, kIa5 = 0x16;
const char kCn[] = "2.5.4.3", kOrganization[] = "2.5.4.10", kSerialNumber[] = "2.5.4.5";

NormalName Name(const std::string& der) {
  return NormalName(std::span(reinterpret_cast<const BYTE*>(der.data()), der.size()));
}

// One RDN of these attributes.
std::string Rdn(const std::vector<std::string>& attributes) {
  std::string content;
  for (const std::string& each : attributes) content += each;
  return Der(0x31, content);
}

std::string Cn(BYTE tag, const std::string& value) {
  return DerSequence({Rdn({DerAttribute(kCn, tag, value)})});
}

TEST(NormalName, Equality) {
  using std::string_literals::operator""s;
  const std::string o = DerAttribute(kOrganization, kPrintable, "o");
  const std::string c = DerAttribute(kCn, kPrintable, "c");
  const struct {
    const char* name;
    std::string one, other;
    bool equal;
  } cases[] = {
      {"case",                         Cn(kPrintable,                                                                 "Test CA"),                                          Cn(kPrintable,"tEST cA"), true},
      {"white space around",                          Cn(kPrintable,                                                                                                       "a"),                                                                                                                                       Cn(kPrintable," \t a \n"), true},
      {"runs, and other white space",                 Cn(kPrintable,                                                                                   "a b c"),Cn(kPrintable,"a \t\n b\tc"), true},
      {"a blank is not nothing", Cn(kPrintable,"a b"),                               Cn(kPrintable,"ab"), false},
      {"NULs at the end",                              Cn(kPrintable,                                                                                    "a"),                                                                                                                          Cn(kPrintable,"a \0\0 \0"s), true},
      {"a NUL inside stays",                         Cn(kPrintable,                                                                                                 "ab"),                                                                                                                                                    Cn(kPrintable,               "a\0b"s), false},
      {"only white space",                          Cn(kPrintable,       ""),Cn(kPrintable," \t\0"s), true},
      {"only printable is folded",           Cn(kUtf8,                                                   "A"), Cn(kUtf8,"a"), false},
      {"the type is not compared",                         Cn(kPrintable,                                                                                                      "ABC"),                                                                                                                                        Cn(kTeletex,"abc"), true},
      {"but only one side is folded",                 Cn(kPrintable,                                                                                     "ABC"),                                                                                                                                                                                                                 Cn(kTeletex,                                                                                                                                                                                                                        "ABC"), false},
      {"an attribute not in the list",            DerSequence({Rdn({DerAttribute(kSerialNumber, kPrintable, "A")})}),
       DerSequence({Rdn({DerAttribute(kSerialNumber, kPrintable, "a")})}),                                                                              false                                                                                                                                                                                                                                         },
      {"e-mail is, where printable",
       DerSequence({Rdn({DerAttribute("1.2.840.113549.1.9.1", kPrintable, "A")})}),
       DerSequence({Rdn({DerAttribute("1.2.840.113549.1.9.1", kIa5, "a")})}),                                                                                                true},
      {"another attribute",                        DerSequence({Rdn({c})}),
       DerSequence({Rdn({DerAttribute(kOrganization, kPrintable, "c")})}),                                                                                                                                                    false                      },
      {"order of RDNs",                        DerSequence({Rdn({o}), Rdn({c})}),      DerSequence({Rdn({c}), Rdn({o})}),false},
      {"order inside an RDN", DerSequence({Rdn({o, c})}), DerSequence({Rdn({c, o})}),                                                                                                 false},
      {"grouping",   DerSequence({Rdn({o, c})}),                                   DerSequence({Rdn({o}), Rdn({c})}),                                                                                              false},
      {"a prefix",            DerSequence({Rdn({o})}),                                           DerSequence({Rdn({o}), Rdn({c})}),                                                                                                 false},
      {"two empty names",                DerSequence({}),                                     DerSequence({}),                                                  true},
      {"what does not decode equals nothing",          "\x30\x05",                                                             "\x30\x05",                                                                                      false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const NormalName one = Name(each.one), other = Name(each.other);
    EXPECT_EQ(one.equals(other), each.equal);
    EXPECT_EQ(other.equals(one), each.equal);
    EXPECT_TRUE(!each.equal || one.hash() == other.hash());
  }
}

}  // namespace
}  // namespace certkern::test
