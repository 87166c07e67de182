// Types of the certificate group that no program at hand writes: their DER by the standards' tables, with each optional
// member and each tag at least once.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "asn1data/catalogue.h"
#include "asn1data/round_trip.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::asn1data;
using namespace certkern::test;

namespace {

const struct {
  const char *type, *name, *der;
} kValues[] = {
    {"GeneralName",                   "a postal address",
     "a342302a610413025255620412023132800131810174a20313017083016f840137a506800173810167a60313017530083006130"
     "174130176310a3008800101a103130163"                                                                                              },
    {"GeneralName",                   "an EDI party",                   "a50aa0030c0161a103130170"                                    },
    {"GeneralName",                   "another name",                   "a011060a2b060104018237140203a0030c0175"                      },
    {"ExtendedNetworkAddress",        "by network address",             "a00fa003040101a3083106040102040103"                          },
    {"ExtendedNetworkAddress",        "by number",                      "30088003343935810131"                                        },
    {"UnformattedPostalAddress",      "lines and text",                 "310b3006130161130162140163"                                  },
    {"PhysicalDeliveryOfficeName",    "a parameter",                    "3106130161140162"                                            },
    {"TeletexPersonalName",           "all parts",                      "310c800173810167820169830171"                                },
    {"TerminalType",                  "videotex",                       "020108"                                                      },
    {"PostalAddress",                 "two kinds of string",            "30070c01611e020062"                                          },
    {"AttributeCertificate",          "subject by certificate",
     "308193308181a01b30193010a40e300c310a300806035504030c0161020105030200013010a40e300c310a300806035504030c0"
     "161300906052b0e03021a05000201013022180f32303234303130313030303030305a180f32303235303130313030303030305a"
     "300c300a060355040c31030c017403020002300c300a0603551d0e0403040107300906052b0e03021a0500030200ff"                                 },
    {"AttributeCertificate",          "subject by name",
     "306b305aa1123010a40e300c310a300806035504030c01613010a40e300c310a300806035504030c0161300906052b0e03021a0"
     "5000201013022180f32303234303130313030303030305a180f32303235303130313030303030305a3000300906052b0e03021a"
     "0500030200ff"                                                                                                                   },
    {"AttributeCertificateAssertion", "all parts",
     "303ea010a10e300c310a300806035504030c0161a10e300c310a300806035504030c0161a211180f32303234303130313030303"
     "030305aa30731050603550403"                                                                                                      },
    {"CertificateAssertion",          "all parts",
     "3069800105a10e300c310a300806035504030c0161820101a303800101a40f170d3234303130313030303030305a850f3230323"
     "4303130313030303030305a86092a864886f70d01010187020780a8030a0102a9060604551d2000aa0e300c310a300806035504"
     "030c0161"                                                                                                                       },
    {"CertificatePairExactAssertion", "forward",                        "3013a011020105300c310a300806035504030c0161"                  },
    {"CertificateListAssertion",      "all parts",
     "302e300c310a300806035504030c016180010181010203020640170d3234303130313030303030305aa205a003860175"                               },
    {"SupportedAlgorithm",            "with its use",                   "3019300906052b0e03021a050080020780a10830060604551d2000"      },
    {"PrivateKeyUsagePeriod",         "both ends",
     "3022800f32303234303130313030303030305a810f32303235303130313030303030305a"                                                       },
    {"NameConstraintsSyntax",         "distances and forms",
     "3019a00b3009820161800101810102a20a80020560a10406022a03"                                                                         },
    {"AttributesSyntax",              "a directory attribute",          "300c300a060355040c31030c0174"                                },
    {"SigningCertificate",            "with a policy",
     "3028301c301a04010130153010a40e300c310a300806035504030c0161020105300830060604551d2000"                                           },
    {"SigningCertificateV2",          "with and without algorithm",
     "301730153003040101300e300906052b0e03021a0500040102"                                                                             },
    {"OtherSigningCertificate",       "both hashes",
     "3030302e30030401013027300e300906052b0e03021a050004010230153010a40e300c310a300806035504030c0161020105"                           },
    {"EnrollmentCSPInfo",             "an exchange key",                "300a0201011e020070030100"                                    },
    {"Gost28147-89-EncryptedKey",     "with a mask",                    "3009040101800102040103"                                      },
    {"DomainParameters",              "with validation",                "301602011702010502010b0201023008030200010202012c"            },
    {"AlgorithmIdentifier",           "an unknown one",                 "300a06032a03043003020101"                                    },
    {"AlgorithmIdentifier",           "2001 key",                       "301c06062a8503020213301206072a85030202230106072a850302021e01"},
    {"AlgorithmIdentifier",           "2001 key, parameters elsewhere", "300a06062a85030202620500"                                    },
    {"AlgorithmIdentifier",           "GOST 28147-89",
     "301d06062a850302021530130408000000000000000006072a850302021f01"                                                                 },
    {"AlgorithmIdentifier",           "Kuznyechik",
     "301f06092a85030701010502023012041000000000000000000000000000000000"                                                             },
    {"AlgorithmIdentifier",           "password",
     "3024060a2a864886f70d010c01503016041000000000000000000000000000000000020207d0"                                                   },
    {"AlgorithmIdentifier",           "DSA",                            "301406072a8648ce380401300902011702010b020102"                },
};

}  // namespace

TEST(CertificateGroup, RareValuesComeBack) {
  for (const auto& [type, name, der] : kValues) {
    SCOPED_TRACE(std::string(type) + ", " + name);
    ExpectRoundTrip(type, FromHex(der));
  }
}

// Parameters are decoded as the algorithm says, and stay bytes when nobody knows it. The key has a third parameter, as keys
// once had, which no member takes.
TEST(CertificateGroup, AlgorithmsSelectTheirParameters) {
  Decoded key(
      "AlgorithmIdentifier",
      FromHex("302806082A85030701010101301C06072A85030202240006082A8503070101020206072A850302021F01"));
  ASSERT_TRUE(key);
  const auto& parameters = key.as<ASN1T_AlgorithmIdentifier>().parameters;
  ASSERT_EQ(parameters.type, &kInfo__gost2012_256_PubKey_Type);
  EXPECT_EQ(parameters.encoded.numocts, 30u) << "the third parameter is gone";
  const auto& chosen = *static_cast<const ASN1T__gost2012_256_PubKey_Type*>(parameters.decoded);
  ASSERT_EQ(chosen.t, ASN1T__gost2012_256_PubKey_Type::t_publicKeyParameters);
  EXPECT_EQ(chosen.u.publicKeyParameters->publicKeyParamSet, ASN1V_id_GostR3410_2001_XchA_ParamSet);
  EXPECT_EQ(chosen.u.publicKeyParameters->digestParamSet, ASN1V_id_tc26_gost3411_12_256);

  Decoded unknown("AlgorithmIdentifier", FromHex("300a06032a03043003020101"));
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown.as<ASN1T_AlgorithmIdentifier>().parameters.type, nullptr);
}

// RFC 6960 gives the access method a second name; no other two are alike.
TEST(CertificateGroup, EachIdentifierStandsOnce) {
  EXPECT_EQ(AllOids().size(), 433u);
  std::set<std::vector<uint32_t>> values;
  for (const NamedOid& oid : AllOids()) {
    const auto arcs = AsField(*oid.id).arcs();
    const bool fresh = values.emplace(arcs.begin(), arcs.end()).second;
    EXPECT_TRUE(fresh || AsField(*oid.id) == ASN1V_id_ad_ocsp) << oid.name << " has another's value";
  }
  EXPECT_EQ(values.size(), AllOids().size() - 1);
}
