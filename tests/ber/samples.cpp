#include "samples.h"

namespace {

const Sample kSamples[] = {
    {"certificate",                         2,
     "30818DA0 03020102 02020080 300A0608 2A850307 01010302 300D310B 30090603 5504030C 02434130 20170D34"
     "39303130 32303330 3430355A 180F3230 35303031 30323033 30343035 5A300D31 0B300906 03550403 0C024545"
     "3012300A 06082A85 03070101 01010304 000401AA 810204F0 A31E301C 300C0603 551D1301 01FF0402 3000300C"
     "0603551D 0E040504 03010203",                                                                                         208 + 8 + 24 + 16 + 16 + 24 + 8 + 8 + 64 + 16 + 8 + 16 + 8, true },
    {"extensions",                          5,
     "30 1C 30 0C 06 03 55 1D 13 01 01 FF 04 02 30 00 30 0C 06 03 55 1D 0E 04 05 04 03 01 02 03",                          16 + 2 * 32 + 16 + 8 + 16 + 8,                              true },
    {"signed object",                       1,     "30 13 30 03 02 01 05 30 07 06 03 2A 03 04 05 00 03 03 00 AB CD",       64 + 8 + 8 + 8 + 8,
     true                                                                                                                                                                                   },
    {"public key info",                     8,     "30 12 30 0A 06 08 2A 85 03 07 01 01 01 01 03 04 00 04 01 AA",          48 + 24 + 8,                                                true },
    {"UTF-8 value",                         6,     "0C 02 D0 AF",                                                          24 + 8,                                                     true },
    {"printable value",                     6,     "13 03 41 31 42",                                                       24 + 8,                                                     true },
    {"BMP value",                           6,     "1E 04 04 2F 00 41",                                                    24 + 16,                                                    true },
    {"universal value",                     6,     "1C 04 00 01 F6 00",                                                    24 + 8,                                                     true },
    {"name",                                7,     "30 0D 31 0B 30 09 06 03 55 04 03 0C 02 41 42",                         16 + 16 + 32 + 8 + 16,                                      true },
    {"name for display",                    32968, "30 0D 31 0B 30 09 06 03 55 04 03 0C 02 41 42",                         88,                                                         false},
    {"name of two attributes in one set",   7,
     "30 1A 31 18 30 09 06 03 55 04 06 13 02 52 55 30 0B 06 03 55 04 0A 0C 04 D0 AF D0 AE",                                16 + 16 + 64 + 32 + 16,                                     true },
    {"name with wide values",               20,    "30 0D 31 0B 30 09 06 03 55 04 03 13 02 41 42",                         88,                                                         true },
    {"wide value",                          24,    "1E 04 04 2F 00 41",                                                    24 + 16,                                                    true },
    {"authority key identifier, opaque",    9,     "30 0A 80 02 01 02 81 01 30 82 01 7F",                                  48 + 8 + 8 + 8,                                             true },
    {"authority key identifier",            31,    "30 0E 80 02 01 02 A1 05 82 03 61 2E 62 82 01 7F",                      48 + 8 + 24 + 16 + 8,
     true                                                                                                                                                                                   },
    {"DNS name",                            12,    "30 05 82 03 61 2E 62",                                                 16 + 24 + 16,                                               true },
    {"general names of each readable kind", 12,
     "3039A00A 06032A03 04A0030C 01418103 61406282 03612E62 A411300F 310D300B 06035504 030C0454 65737486"
     "03663A67 87047F00 00018803 2A0304",                                                                                  16 + 7 * 24 + 24 + 8 + 8 + 16 + 16 + 24 + 16 + 8 + 8,       true },
    {"key usage",                           14,    "03 02 05 A0",                                                          24 + 8,                                                     true },
    {"bit string",                          26,    "03 02 05 A0",                                                          24 + 8,                                                     true },
    {"basic constraints of a CA",           15,    "30 06 01 01 FF 02 01 03",                                              12,                                                         true },
    {"basic constraints, empty",            15,    "30 00",                                                                12,                                                         true },
    {"policies",                            16,    "30 14 30 12 06 03 2A 03 04 30 0B 30 09 06 03 2A 03 05 16 02 68 69",
     16 + 24 + 8 + 24 + 8 + 8,                                                                                                                                                         true },
    {"policy without qualifiers",           16,    "30 07 30 05 06 03 2A 03 04",                                           16 + 24 + 8,                                                true },
    {"UTC time",                            17,    "17 0D 34 39 31 32 33 31 32 33 35 39 35 39 5A",                         8,                                                          true },
    {"generalized time",                    30,    "18 0F 32 30 35 30 30 31 30 31 30 30 30 30 30 30 5A",                   8,                                                          true },
    {"content info",                        23,    "30 0D 06 03 2A 03 04 A0 06 30 04 05 00 05 00",                         24 + 8 + 2 * 16 + 2 * 8,                                    true },
    {"octet string",                        25,    "04 03 01 02 03",                                                       16 + 8,                                                     true },
    {"integer",                             27,    "02 01 FF",                                                             8,                                                          true },
    {"long integer",                        28,    "02 02 00 80",                                                          16 + 8,                                                     true },
    {"enumerated",                          29,    "0A 01 0A",                                                             8,                                                          true },
    {"access descriptions",                 32,    "30 12 30 10 06 08 2B 06 01 05 05 07 30 01 86 04 68 74 3A 2F",
     16 + 32 + 24 + 24,                                                                                                                                                                true },
    {"sequence of any",                     34,    "30 05 05 00 02 01 05",                                                 16 + 2 * 16 + 2 * 8,                                        true },
    {"distribution points",                 35,    "30 15 30 13 A0 07 A0 05 86 03 66 3A 67 81 02 01 7E A2 04 82 02 61 62",
     16 + 64 + 24 + 16 + 8 + 24 + 16,                                                                                                                                                  true },
    {"enhanced key usage",                  36,    "30 14 06 08 2B 06 01 05 05 07 03 01 06 08 2B 06 01 05 05 07 03 02",
     16 + 16 + 24 + 24,                                                                                                                                                                true },
    {"unsigned long integer",               38,    "02 03 00 FF 01",                                                       16 + 8,                                                     true },
    {"user notice",                         46,    "30 06 1E 04 04 2F 00 41",                                              16 + 16,                                                    true },
    {"DH parameters",                       47,    "30 07 02 02 00 83 02 01 05",                                           32 + 8 + 8,                                                 true },
    {"issuing distribution point",          54,    "3013A007 A0058603 663A6781 01FF8302 017E8401 FF",                      64 + 24 + 16 + 8,
     true                                                                                                                                                                                   },
    {"policy mappings",                     56,    "30 0C 30 0A 06 03 2A 03 04 06 03 2A 03 05",                            16 + 16 + 8 + 8,                                            true },
    {"policy constraints",                  57,    "30 06 80 01 00 81 01 05",                                              16,                                                         false},
    {"certificate template",                64,    "30 0B 06 03 2A 03 04 02 01 64 02 01 02",                               24 + 8,                                                     true },
    {"object identifier",                   73,    "06 09 2A 86 48 86 F7 0D 01 07 02",                                     8 + 24,                                                     true },
    {"OID of the RSA company",              73,    "06 06 2A 86 48 86 F7 0D",                                              8 + 16,                                                     true },
    {"element",                             4097,  "30 03 02 01 05",                                                       16 + 8,                                                     true },
    {"enrollment pair",                     32966, "30 08 1E 02 00 41 1E 02 00 42",                                        16 + 8 + 8,                                                 true },
    {"enrollment provider",                 32967, "30 0B 02 01 01 1E 02 00 43 03 02 00 FF",                               40 + 8 + 8,                                                 true },
    {"list of a plain revocation",          3,
     "30420201 01300706 032A0304 05003000 170D3236 30313031 30303030 30305A30 23302102 02008017 0D323630"
     "31303130 30303030 305A300C 300A0603 551D1504 030A0101",                                                              96 + 8 + 8 + 8 + 40 + 8 + 32,                               true },
    {"list with all of its fields",         3,
     "30750201 01300706 032A0304 05003000 170D3236 30313031 30303030 30305A17 0D323730 31303130 30303030"
     "305A3037 30120201 05170D32 36303130 31303030 3030305A 30210202 0080170D 32363031 30313030 30303030"
     "5A300C30 0A060355 1D150403 0A0101A0 0E300C30 0A060355 1D140403 020107",                                              96 + 8 + 8 + 8 + 2 * 40 + 8 + 8 + 32 + 32 + 16 + 8,         true },
    {"request with an attribute",           4,
     "30310201 00300D31 0B300906 03550403 0C024545 300D3007 06032A03 04050003 0200ABA0 0E300C06 032A0305"
     "31050201 050500",                                                                                                    88 + 16 + 8 + 8 + 8 + 24 + 8 + 2 * 16 + 2 * 8,              true },
};

}  // namespace

std::span<const Sample> Samples() { return kSamples; }
