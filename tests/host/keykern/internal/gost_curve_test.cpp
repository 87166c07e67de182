// The arithmetic of GOST R 34.10: the standard's examples, the bounds of numbers, and points that are none.
#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "keykern/gost/curve.h"
#include "keykern/gost/curve_internals.h"
#include "support/hex.h"

namespace {

using namespace keykern::gost;  // NOLINT(google-build-using-namespace): the names under test
using Bytes = std::vector<BYTE>;

Bytes Joined(const Bytes& first, const Bytes& second) {
  Bytes both = first;
  both.insert(both.end(), second.begin(), second.end());
  return both;
}

// A big-endian number as the interface wants it.
Bytes Little(std::string_view digits, size_t size = 0) {
  Bytes number = FromHex(digits);
  std::reverse(number.begin(), number.end());
  if (size) number.resize(size);
  return number;
}

Bytes Order(const ParameterSet& set) { return Little(NumbersOf(set.curve).q, set.bits / 8); }

// Without a carry: the lowest octets of all orders allow that.
Bytes OrderPlus(const ParameterSet& set, int difference) {
  Bytes number = Order(set);
  number[0] = static_cast<BYTE>(number[0] + difference);
  return number;
}

Bytes Reversed(Bytes bytes) {
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

const Curve& CurveNamed(std::string_view oid) { return *CurveOf(*FindParameterSet(oid)); }

// RFC 7091, 7.1 and 7.2; all numbers big-endian as printed there.
const struct {
  const char *oid, *d, *x, *y, *e, *k, *r, *s;
} kExamples[] = {
    {"1.2.643.2.2.35.0",    "7A929ADE789BB9BE10ED359DD39A72C11B60961F49397EEE1D19CE9891EC3B28",
     "7F2B49E270DB6D90D8595BEC458B50C58585BA1D4E9B788F6689DBD8E56FD80B",                                                                         "26F1B489D6701DD185C8413A977B3CBBAF64D1C593D26627DFFB101A87FF77DA",
     "2DFBC1B372D89A1188C09C52E0EEC61FCE52032AB1022E8E67ECE6672B043EE5",                                                                                                                                                                                                                         "77105C9B20BCD3122823C8CF6FCC7B956DE33814E95B7FE64FED924594DCEAB3",
     "41AA28D2F1AB148280CD9ED56FEDA41974053554A42767B83AD043FD39DC0493",                                                                                                                                                                                                                                                                                                                                                                         "01456C64BA4642A1653C235A98A60249BCD6D3F746B631DF928014F6C5BF9C40"    },
    {"1.2.643.7.1.2.1.2.0",
     "0BA6048AADAE241BA40936D47756D7C93091A0E8514669700EE7508E508B1020"
     "72E8123B2200A0563322DAD2827E2714A2636B7BFD18AADFC62967821FA18DD4",                        "115DC5BC96760C7B48598D8AB9E740D4C4A85A65BE33C1815B5C320C854621DD"
     "5A515856D13314AF69BC5B924C8B4DDFF75C45415C1D9DD9DD33612CD530EFE1", "37C7C90CD40B0F5621DC3AC1B751CFA0E2634FA0503B3D52639F5D7FB72AFD61"
     "EA199441D943FFE7F0C70A2759A3CDB84C114E1F9339FDF27F35ECA93677BEEC", "3754F3CFACC9E0615C4F4A7C4D8DAB531B09B6F9C170C533A71D147035B0C591"
     "7184EE536593F4414339976C647C5D5A407ADEDB1D560C4FC6777D2972075B8C", "0359E7F4B1410FEACC570456C6801496946312120B39D019D455986E364F3658"
     "86748ED7A44B3E794434006011842286212273A6D14CF70EA3AF71BB1AE679F1", "2F86FA60A081091A23DD795E1E3C689EE512A3C82EE0DCC2643C78EEA8FCACD3"
     "5492558486B20F1C9EC197C90699850260C93BCBCD9C5C3317E19344E173AE36", "1081B394696FFE8E6585E7A9362D26B6325F56778AADBC081C0BFBE933D52FF5"
     "823CE288E8C4F362526080DF7F70CE406A6EEB1F56919CB92A9853BDE73E5B4A"},
};

TEST(GostCurve, ExamplesOfTheStandard) {
  for (const auto& row : kExamples) {
    SCOPED_TRACE(row.oid);
    const Curve& curve = CurveNamed(row.oid);
    const Bytes point = Joined(Little(row.x), Little(row.y));
    const Bytes signature = Joined(FromHex(row.s), FromHex(row.r));
    SecretBytes made;
    ASSERT_TRUE(PublicOf(curve, Little(row.d), made));
    EXPECT_EQ(ToHex(made), ToHex(point));
    EXPECT_TRUE(IsPublic(curve, point));
    ASSERT_TRUE(SignWith(curve, Little(row.d), Little(row.e), Little(row.k), made));
    EXPECT_EQ(ToHex(made), ToHex(signature));
    EXPECT_TRUE(Verify(curve, point, Little(row.e), signature));
    for (size_t i = 0; i < signature.size(); i += 7) {
      Bytes wrong = signature;
      wrong[i] ^= 0x10;
      EXPECT_FALSE(Verify(curve, point, Little(row.e), wrong)) << i;
    }
  }
}

TEST(GostCurve, EverySet) {
  EXPECT_EQ(ParameterSets().size(), 15u);
  EXPECT_EQ(FindParameterSet("1.2.643.2.2.35.4"), nullptr);
  for (const ParameterSet& set : ParameterSets()) {
    SCOPED_TRACE(set.oid);
    const Curve* curve = CurveOf(set);
    ASSERT_NE(curve, nullptr);
    ASSERT_EQ(SizeOf(*curve), set.bits / 8);
    const Bytes one = Little("01", set.bits / 8);
    EXPECT_FALSE(IsPrivate(*curve, Bytes(set.bits / 8)));
    EXPECT_TRUE(IsPrivate(*curve, one));
    EXPECT_TRUE(IsPrivate(*curve, OrderPlus(set, -1)));
    EXPECT_FALSE(IsPrivate(*curve, Order(set)));
    EXPECT_FALSE(IsPrivate(*curve, OrderPlus(set, 1)));
    EXPECT_FALSE(IsPrivate(*curve, Bytes(set.bits / 8, 0xFF)));
    EXPECT_FALSE(IsPrivate(*curve, Joined(one, {0})));

    // (q - 1) P = -P: only the true order gives that.
    const CurveNumbers& numbers = NumbersOf(set.curve);
    SecretBytes generator, opposite;
    ASSERT_TRUE(PublicOf(*curve, one, generator));
    ASSERT_TRUE(PublicOf(*curve, OrderPlus(set, -1), opposite));
    EXPECT_EQ(ToHex(std::span(generator).first(set.bits / 8)), ToHex(Little(numbers.x, set.bits / 8)));
    EXPECT_EQ(ToHex(std::span(opposite).first(set.bits / 8)), ToHex(Little(numbers.x, set.bits / 8)));
    EXPECT_NE(generator, opposite);

    SecretBytes number, point, signature;
    ASSERT_TRUE(RandomPrivate(*curve, number));
    ASSERT_TRUE(PublicOf(*curve, number, point));
    EXPECT_TRUE(IsPublic(*curve, point));
    const Bytes hash(set.bits / 8, 0xFF);
    ASSERT_TRUE(Sign(*curve, number, hash, signature));
    EXPECT_TRUE(Verify(*curve, point, hash, signature));
    EXPECT_FALSE(Verify(*curve, opposite, hash, signature));
  }
}

TEST(GostCurve, BoundsOfSignatures) {
  // The order has 255 bits, so a half of the signature may be shifted by it and still fit.
  const ParameterSet& set = *FindParameterSet("1.2.643.7.1.2.1.1.1");
  const Curve& curve = *CurveOf(set);
  const Bytes number = Little("1234567890", 32), hash(32, 0x5A), zero(32), q = Reversed(Order(set));
  SecretBytes point, signature;
  ASSERT_TRUE(PublicOf(curve, number, point));
  ASSERT_TRUE(Sign(curve, number, hash, signature));
  const Bytes s(signature.begin(), signature.begin() + 32), r(signature.begin() + 32, signature.end());
  const auto plusOrder = [&q](Bytes half) {
    unsigned carry = 0;
    for (size_t i = half.size(); i-- > 0;) {
      carry += unsigned{half[i]} + q[i];
      half[i] = static_cast<BYTE>(carry);
      carry >>= 8;
    }
    return half;
  };
  const struct {
    const char* name;
    Bytes signature;
    bool ok;
  } rows[] = {
      {"as made",        Joined(s,         r),                              true},
      {"s = 0",                Joined(zero,                          r),                               false},
      {"r = 0",           Joined(s,                           zero),                      false},
      {"both 0",           Joined(zero,zero),      false},
      {"s = q",Joined(q,           r),                                false},
      {"r = q",          Joined(s,                        q),                                           false},
      {"s + q",                Joined(plusOrder(s),                          r),                                        false},
      {"r + q",           Joined(s,                           plusOrder(r)),          false},
      {"swapped",              Joined(r,s),false},
      {"an octet more",Joined(Joined(s,r),{0}), false},
      {"an octet between",        Joined(Joined(s,   {0}),                                 r), false},
      {"an octet less",                Bytes(signature.begin(),                  signature.end() - 1),                                     false},
      {"a half",            s,                       false                                                              },
      {"nothing",{},    false},
  };
  for (const auto& row : rows) EXPECT_EQ(Verify(curve, point, hash, row.signature), row.ok) << row.name;
  EXPECT_FALSE(Verify(curve, point, Bytes(64, 0x5A), signature)) << "a longer hash";
  EXPECT_FALSE(Sign(curve, number, Bytes(31), signature));
  EXPECT_FALSE(Sign(curve, Order(set), hash, signature));
  EXPECT_FALSE(SignWith(curve, number, hash, zero, signature));
  EXPECT_FALSE(SignWith(curve, number, hash, Order(set), signature));
}

// Where the equation itself holds, only the bounds stand against the forgery.
TEST(GostCurve, ForgeriesWithZero) {
  const ParameterSet& a = *FindParameterSet("1.2.643.2.2.35.1");
  SecretBytes made;
  ASSERT_TRUE(PublicOf(*CurveOf(a), Little("77", 32), made));
  const Bytes point(made.begin(), made.end()), x(made.begin(), made.begin() + 32);
  // s = 0 and e = r = x(Q): the sum is -Q.
  EXPECT_FALSE(Verify(*CurveOf(a), point, x, Joined(Bytes(32), Reversed(x))));
  EXPECT_FALSE(Verify(*CurveOf(a), point, x, Joined(Reversed(Order(a)), Reversed(x))));
  // r = 0 and s = e: the sum is the generator, whose x is 0 on this curve.
  const Curve& c = CurveNamed("1.2.643.2.2.35.3");
  ASSERT_TRUE(PublicOf(c, Little("77", 32), made));
  EXPECT_FALSE(Verify(c, made, Little("05", 32), Joined(Reversed(Little("05", 32)), Bytes(32))));
}

TEST(GostCurve, HashThatIsZeroModuloTheOrderCountsAsOne) {
  const ParameterSet& set = *FindParameterSet("1.2.643.2.2.35.1");
  const Curve& curve = *CurveOf(set);
  const Bytes number = Little("77", 32), one = Little("01", 32), two = Little("02", 32);
  SecretBytes point, signature;
  ASSERT_TRUE(PublicOf(curve, number, point));
  for (const Bytes& hash : {Bytes(32), Order(set)}) {
    ASSERT_TRUE(Sign(curve, number, hash, signature));
    EXPECT_TRUE(Verify(curve, point, hash, signature));
    EXPECT_TRUE(Verify(curve, point, one, signature));
    EXPECT_FALSE(Verify(curve, point, two, signature));
  }
}

// On the two curves with cofactor 4: points of order 4, 2 and 4q, computed from the equations of the curves.
const struct {
  const char *oid, *four, *two, *whole;
} kTwisted[] = {
    {"1.2.643.7.1.2.1.1.1",
     "77592F8C11C5E7ACC09D6AF3D1805DBC5393C3955D5AB43875003505C6807F7F"
     "CAEE715BCBB048F9BD26C0258A7DE7CA0446B53EE7F0E255A0FE60F0AD7D8181", "AA4AA1E7DC7530A67EC42A195CFE448758D978D4444B978E15FF95F573FE0001"
     "0000000000000000000000000000000000000000000000000000000000000000", "CCDAEBF990D19838B0D7EC0B3E97818ECB96C4DBADBE172296D5234A42B24C6B"
     "5577BE389B9D5E510CA0CAA0AFBEC3572592C1CF3D2E4929979A343C7D0C18FF"},
    {"1.2.643.7.1.2.1.2.3",
     "8F740111DBA626EF70D251705A9932C9727B5D577A19ED1471FFE2237F5DC69C"
     "5DFAA37EA2F2D102D77B89A8E3A6BA31240063EDBA2EB2138889355534B8CEB2"
     "1E62043391F473CD5277F5500FCC975B587218066F4CC73E53FEA86B7D1853D6"
     "18EFEB7BE7D7750885739CF9AAF42F956C0029C8308C163B989CA0FF9C286C18", "7112FDDD49B2B2211E5B5C1F4BCD9A6D1A0945510BCD25D61D013AB8014573C6"
     "440BB802BB1A5CFA5108EDAE38B28A9CB7FF39258AA29BD8EFEC9455978F629A"
     "0000000000000000000000000000000000000000000000000000000000000000"
     "0000000000000000000000000000000000000000000000000000000000000000", "A4E6ED24EC636A8AC0A1271E5866279238AAF84E58056D8F2FA8EDD094BA97AE"
     "8B15442EE2DB611A91BFE39469733A9247D58FA3C55018300372555FD235F118"
     "20EE2422A553FF004A2DF01813E4286D2A2B124D31DC726DEFE1D3CE5CA61690"
     "7F5129E3BE2649F089FFA188301C15AEFAB44EB06B07841968073005458B3794"},
};

TEST(GostCurve, PointsOfSmallOrder) {
  for (const auto& row : kTwisted) {
    SCOPED_TRACE(row.oid);
    const Curve& curve = CurveNamed(row.oid);
    const Bytes number = Little("1234567890", SizeOf(curve)), ukm = {1};
    SecretBytes shared;
    for (const char* point : {row.four, row.two, row.whole}) EXPECT_FALSE(IsPublic(curve, FromHex(point)));
    EXPECT_FALSE(SharedPoint(curve, number, ukm, FromHex(row.four), shared));
    EXPECT_FALSE(SharedPoint(curve, number, ukm, FromHex(row.two), shared));
  }
}

TEST(GostCurve, PointsThatAreNone) {
  for (const ParameterSet& set : ParameterSets()) {
    SCOPED_TRACE(set.oid);
    const Curve& curve = *CurveOf(set);
    const size_t size = set.bits / 8;
    SecretBytes made;
    ASSERT_TRUE(PublicOf(curve, Little("03", size), made));
    const Bytes point(made.begin(), made.end());
    Bytes offCurve = point;
    offCurve[0] ^= 1;
    const Bytes p = Little(NumbersOf(set.curve).p, size);
    Bytes swapped = point;
    std::rotate(swapped.begin(), swapped.begin() + static_cast<std::ptrdiff_t>(size), swapped.end());
    const Bytes bad[] = {offCurve,
                         swapped,
                         Bytes(2 * size),  // the usual encoding of infinity
                         Bytes(2 * size, 0xFF),
                         Joined(p, p),
                         Bytes(point.begin(), point.end() - 1),
                         Joined(point, {0}),
                         {}};
    const Bytes hash(size, 1), ukm = {1};
    for (size_t i = 0; i < std::size(bad); ++i) {
      EXPECT_FALSE(IsPublic(curve, bad[i])) << i;
      EXPECT_FALSE(Verify(curve, bad[i], hash, Bytes(2 * size, 1))) << i;
      EXPECT_FALSE(SharedPoint(curve, hash, ukm, bad[i], made)) << i;
    }
  }
  // x = 0 is on this curve, so that x = p would be the same point in another encoding.
  const CurveNumbers& numbers = NumbersOf(FindParameterSet("1.2.643.2.2.35.3")->curve);
  const Curve& curve = CurveNamed("1.2.643.2.2.35.3");
  EXPECT_TRUE(IsPublic(curve, Joined(Bytes(32), Little(numbers.y, 32))));
  EXPECT_FALSE(IsPublic(curve, Joined(Little(numbers.p), Little(numbers.y, 32))));
  EXPECT_EQ(ERR_peek_error(), 0u) << "the queue is the host's";
}

TEST(GostCurve, AgreementNeedsAFactor) {
  const ParameterSet& set = *FindParameterSet("1.2.643.7.1.2.1.1.1");
  const Curve& curve = *CurveOf(set);
  const Bytes number = Little("1234567890", 32);
  SecretBytes point, shared, sum;
  ASSERT_TRUE(PublicOf(curve, Little("77", 32), point));
  for (const Bytes& ukm : {Bytes(), Bytes(8), Order(set)}) {
    EXPECT_FALSE(SharedPoint(curve, number, ukm, point, shared));
  }
  EXPECT_FALSE(SharedPoint(curve, Bytes(32), Bytes{1}, point, shared));
  // q + 1 is 1, and the length of the UKM is free.
  ASSERT_TRUE(SharedPoint(curve, number, Bytes{1}, point, shared));
  ASSERT_TRUE(SharedPoint(curve, number, Joined(OrderPlus(set, 1), Bytes(8)), point, sum));
  EXPECT_EQ(shared, sum);
}

}  // namespace
