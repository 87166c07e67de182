// Every exported function that takes a context, and whatever is not one: freed, never made, of the other kind. It is told
// by its address alone, so nothing is read through it; the sanitizer watches that. Calls that only read published fields
// take a context of the caller's making as well.
#include <certkern/cert.h>
#include <certkern/chain.h>
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keys.h>
#include <certkern/name.h>
#include <certkern/revocation.h>
#include <certkern/sv.h>
#include <certkern/url.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

const CertificateHandle& GoodCertificate() {
  static const CertificateHandle certificate = CreateCertificate(MakeCertificate({}));
  return certificate;
}
const CrlHandle& GoodCrl() {
  static const CrlHandle crl = CreateCrl(MakeCrl({}));
  return crl;
}
HCERTSTORE Store() {
  static const StoreHandle store = OpenMemoryStore(0);
  return store.get();
}

// What a call says of its argument: true when it took it.
template <class Context>
struct Call {
  const char* name;
  bool (*takes)(const Context* context);
  bool ofEitherKind = false;  // gives back what it was given, whatever it counts
};

DWORD size, flags;
void* Writable(const void* context) { return const_cast<void*>(context); }
bool Free(PCCERT_CONTEXT context) {  // the answer of a search
  CertFreeCertificateContext(context);
  return context != nullptr;
}
bool Free(PCCRL_CONTEXT context) {
  CertFreeCRLContext(context);
  return context != nullptr;
}
bool Verifies(DWORD subjectType, const void* subject, DWORD issuerType, const void* issuer) {
  return CryptVerifyCertificateSignatureEx(0, 1, subjectType, Writable(subject), issuerType, Writable(issuer),
                                           0, nullptr);
}
bool FindsCrl(DWORD type, const void* parameter) {
  return Free(CertFindCRLInStore(Store(), 1, 0, type, parameter, nullptr));
}

const Call<CERT_CONTEXT> kCertificateCalls[] = {
    {"duplicate", [](PCCERT_CONTEXT c) { return Free(CertDuplicateCertificateContext(c)); }},
    {"free",      [](PCCERT_CONTEXT c) { return CertFreeCertificateContext(c) != FALSE; },   true},
    {"get property",
     [](PCCERT_CONTEXT c) { return CertGetCertificateContextProperty(c, 3, nullptr, &size) != FALSE; }                                                                      },
    {"set property",
     [](PCCERT_CONTEXT c) { return CertSetCertificateContextProperty(c, 11, 0, nullptr) != FALSE; }},
    {"enumerate properties",
     [](PCCERT_CONTEXT c) { return CertEnumCertificateContextProperties(c, 0) != 0; }                                                              },
    {"delete",           [](PCCERT_CONTEXT c) { return CertDeleteCertificateFromStore(c) != FALSE; }              },
    {"add",
     [](PCCERT_CONTEXT c) { return CertAddCertificateContextToStore(Store(), c, 4, nullptr) != FALSE; }                                                                 },
    {"link",           [](PCCERT_CONTEXT c) { return CertAddCertificateLinkToStore(Store(), c, 4, nullptr) != FALSE; }             },
    {"serialize",
     [](PCCERT_CONTEXT c) { return CertSerializeCertificateStoreElement(c, 0, nullptr, &size) != FALSE; }                                                            },
    {"find from",
     [](PCCERT_CONTEXT c) {
       return Free(CertFindCertificateInStore(Store(), 1, 0, CERT_FIND_ANY, nullptr, c));
     }             },
    {"find the same",
     [](PCCERT_CONTEXT c) {
       return Free(CertFindCertificateInStore(Store(), 1, 0, CERT_FIND_EXISTING, c, nullptr));
     }                                                        },
    {"enumerate from",           [](PCCERT_CONTEXT c) { return Free(CertEnumCertificatesInStore(Store(), c)); }            },
    {"issuer of",
     [](PCCERT_CONTEXT c) {
       flags = 0;
       return Free(CertGetIssuerCertificateFromStore(Store(), c, nullptr, &flags));
     }                                                             },
    {"issuer from",
     [](PCCERT_CONTEXT c) {
       flags = 0;
       return Free(CertGetIssuerCertificateFromStore(Store(), GoodCertificate().get(), c, &flags));
     }          },
    {"check of a subject",
     [](PCCERT_CONTEXT c) {
       flags = 3;
       return CertVerifySubjectCertificateContext(c, GoodCertificate().get(), &flags) != FALSE;
     }                                                      },
    {"check by an issuer",
     [](PCCERT_CONTEXT c) {
       flags = 3;
       return CertVerifySubjectCertificateContext(GoodCertificate().get(), c, &flags) != FALSE;
     }          },
    {"signature of",           [](PCCERT_CONTEXT c) { return Verifies(2, c, 2, GoodCertificate().get()); }                                                            },
    {"signature by",           [](PCCERT_CONTEXT c) { return Verifies(2, GoodCertificate().get(), 2, c); }          },
    {"entry of a list",
     [](PCCERT_CONTEXT c) {
       PCRL_ENTRY entry;
       return CertFindCertificateInCRL(c, GoodCrl().get(), 0, nullptr, &entry) != FALSE;
     }                                                         },
    {"list by an issuer",           [](PCCERT_CONTEXT c) { return FindsCrl(CRL_FIND_ISSUED_BY, c); }        },
    {"list for a subject",
     [](PCCERT_CONTEXT c) {
       const CRL_FIND_ISSUED_FOR_PARA whose{c, GoodCertificate().get()};
       return FindsCrl(CRL_FIND_ISSUED_FOR, &whose);
     }                                                        },
    {"list for an issuer",
     [](PCCERT_CONTEXT c) {
       const CRL_FIND_ISSUED_FOR_PARA whose{GoodCertificate().get(), c};
       return FindsCrl(CRL_FIND_ISSUED_FOR, &whose);
     }        },
    {"list from a store",
     [](PCCERT_CONTEXT c) {
       flags = 0;
       return Free(CertGetCRLFromStore(Store(), c, nullptr, &flags));
     }                                                         },
    {"is the list its own",
     [](PCCERT_CONTEXT c) { return CertIsValidCRLForCertificate(c, GoodCrl().get(), 0, nullptr) != FALSE; }      },
    {"purposes",           [](PCCERT_CONTEXT c) { return CertGetEnhancedKeyUsage(c, 2, nullptr, &size) != FALSE; }                                                                    },
    {"application's purpose",
     [](PCCERT_CONTEXT c) {
       return IsValidByApplicationUsage(c, nullptr, "1.2.3", TRUE, 0, 0, 0) != SV_USAGE_NOT_VALID;
     }},
    {"name, wide",
     [](PCCERT_CONTEXT c) { return CertGetNameStringW(c, CERT_NAME_RDN_TYPE, 0, nullptr, nullptr, 0) != 1; }                                                                               },
    {"name",
     [](PCCERT_CONTEXT c) { return CertGetNameStringA(c, CERT_NAME_DNS_TYPE, 0, nullptr, nullptr, 0) != 1; }},
    {"private key",
     [](PCCERT_CONTEXT c) {
       HCRYPTPROV provider;
       return CryptAcquireCertificatePrivateKey(c, 0, nullptr, &provider, nullptr, nullptr) != FALSE;
     }                                                                        },
    {"chain",
     [](PCCERT_CONTEXT c) {
       CERT_CHAIN_PARA para{};
       para.cbSize = sizeof para;
       PCCERT_CHAIN_CONTEXT chain;
       return CertGetCertificateChain(nullptr, c, nullptr, nullptr, &para, 0, nullptr, &chain) != FALSE;
     }     },
    {"revocation",
     [](PCCERT_CONTEXT c) {
       PVOID contexts[] = {Writable(c)};
       CERT_REVOCATION_STATUS status{};
       status.cbSize = sizeof status;
       return CertVerifyRevocation(1, CERT_CONTEXT_REVOCATION_TYPE, 1, contexts, 0, nullptr, &status)
           != FALSE;
     }                                                                   },
    {"addresses",
     [](PCCERT_CONTEXT c) {
       return CryptGetObjectUrl(URL_OID_CERTIFICATE_CRL_DIST_POINT, Writable(c), 0, nullptr, &size, nullptr,
                                nullptr, nullptr)
           != FALSE;
     }      },
};

const Call<CRL_CONTEXT> kCrlCalls[] = {
    {"duplicate", [](PCCRL_CONTEXT c) { return Free(CertDuplicateCRLContext(c)); }},
    {"free",      [](PCCRL_CONTEXT c) { return CertFreeCRLContext(c) != FALSE; },   true},
    {"get property",
     [](PCCRL_CONTEXT c) { return CertGetCRLContextProperty(c, 3, nullptr, &size) != FALSE; }                                                             },
    {"set property",           [](PCCRL_CONTEXT c) { return CertSetCRLContextProperty(c, 11, 0, nullptr) != FALSE; }},
    {"enumerate properties",           [](PCCRL_CONTEXT c) { return CertEnumCRLContextProperties(c, 0) != 0; }                                                     },
    {"delete",           [](PCCRL_CONTEXT c) { return CertDeleteCRLFromStore(c) != FALSE; }              },
    {"add",           [](PCCRL_CONTEXT c) { return CertAddCRLContextToStore(Store(), c, 4, nullptr) != FALSE; }                                                        },
    {"link",           [](PCCRL_CONTEXT c) { return CertAddCRLLinkToStore(Store(), c, 4, nullptr) != FALSE; }             },
    {"serialize",
     [](PCCRL_CONTEXT c) { return CertSerializeCRLStoreElement(c, 0, nullptr, &size) != FALSE; }                                                   },
    {"find from",
     [](PCCRL_CONTEXT c) { return Free(CertFindCRLInStore(Store(), 1, 0, CRL_FIND_ANY, nullptr, c)); }             },
    {"find the same",           [](PCCRL_CONTEXT c) { return FindsCrl(CRL_FIND_EXISTING, c); }                                               },
    {"enumerate from",           [](PCCRL_CONTEXT c) { return Free(CertEnumCRLsInStore(Store(), c)); }            },
    {"list from",
     [](PCCRL_CONTEXT c) {
       flags = 0;
       return Free(CertGetCRLFromStore(Store(), nullptr, c, &flags));
     }                                                    },
    {"entry",
     [](PCCRL_CONTEXT c) {
       PCRL_ENTRY entry;
       return CertFindCertificateInCRL(GoodCertificate().get(), c, 0, nullptr, &entry) != FALSE;
     }                },
    {"is the list its own",
     [](PCCRL_CONTEXT c) {
       return CertIsValidCRLForCertificate(GoodCertificate().get(), c, 0, nullptr) != FALSE;
     }                                      },
    {"signature of",           [](PCCRL_CONTEXT c) { return Verifies(3, c, 2, GoodCertificate().get()); }                       },
};

// Memory that is no context can't be told from a context of the caller's making.
bool ReadsOnly(std::string_view name) {
  constexpr std::string_view kNames[] = {"find the same",
                                         "issuer of",
                                         "list from a store",
                                         "is the list its own",
                                         "purposes",
                                         "name, wide",
                                         "name",
                                         "check of a subject",
                                         "check by an issuer",
                                         "signature of",
                                         "signature by",
                                         "entry of a list",
                                         "list by an issuer",
                                         "list for a subject",
                                         "list for an issuer",
                                         "addresses",
                                         "entry"};
  return std::ranges::find(kNames, name) != std::end(kNames);
}

template <class Context, size_t count>
void ExpectRefused(const Call<Context> (&calls)[count], const Context* freed, const void* ofTheOtherKind) {
  const Context neverMade{};
  const struct {
    const char* name;
    const Context* context;
  } kStrangers[] = {
      {"freed",             freed                                      },
      {"never made",        &neverMade                                 },
      {"a number",          reinterpret_cast<const Context*>(1)        },
      {"of the other kind", static_cast<const Context*>(ofTheOtherKind)},
  };
  for (const auto& [name, takes, ofEitherKind] : calls) {
    for (const auto& [kind, stranger] : kStrangers) {
      if (ofEitherKind && stranger == ofTheOtherKind) continue;
      if (ReadsOnly(name) && stranger != &neverMade && stranger != ofTheOtherKind) continue;
      SetLastError(0);
      EXPECT_FALSE(takes(stranger)) << name << ", " << kind;
      EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << name << ", " << kind;
    }
  }
}

TEST(StrangerContext, IsRefusedEverywhere) {
  GoodCertificate(), GoodCrl();  // first, so that they do not get the place of those that are freed
  const auto freed = [] {
    const CertificateHandle certificate = CreateCertificate(MakeCertificate({}));
    const CrlHandle crl = CreateCrl(MakeCrl({}));
    return std::pair(certificate.get(), crl.get());
  }();
  const size_t before = contextRegistry.get()->size();
  ExpectRefused(kCertificateCalls, freed.first, GoodCrl().get());
  ExpectRefused(kCrlCalls, freed.second, GoodCertificate().get());
  EXPECT_EQ(contextRegistry.get()->size(), before) << "one was taken, freed or left behind";
  // a caller who has one type for both may give either back
  EXPECT_TRUE(
      CertFreeCertificateContext(reinterpret_cast<PCCERT_CONTEXT>(CertDuplicateCRLContext(GoodCrl().get()))));
  EXPECT_EQ(GoodCrl()->cbCrlEncoded, MakeCrl({}).size());
}

// An object is taken out of a store by the function of its kind alone.
TEST(StrangerContext, DeletesNothingOfTheOtherKind) {
  const StoreHandle store = OpenMemoryStore(0);
  ASSERT_TRUE(CertAddCRLContextToStore(store.get(), GoodCrl().get(), 4, nullptr));
  const CrlHandle held(CertEnumCRLsInStore(store.get(), nullptr));
  EXPECT_FALSE(CertDeleteCertificateFromStore(reinterpret_cast<PCCERT_CONTEXT>(held.get())));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), 1u);
}

// The usages of a certificate that can't be asked for restrict nothing: that goes for one that is none, too.
TEST(StrangerContext, IsPassedOverAmongOthers) {
  PCCERT_CONTEXT contexts[] = {reinterpret_cast<PCCERT_CONTEXT>(GoodCrl().get()),
                               reinterpret_cast<PCCERT_CONTEXT>(1)};
  int count = 77;
  EXPECT_TRUE(CertGetValidUsages(2, contexts, &count, nullptr, &size));
  EXPECT_EQ(count, -1);
}

}  // namespace
