// Keys in containers of the test program's own, with certificates for them, and the stores "my" beside them.
#ifndef CERTKERN_TESTS_CERTKERN_CMS_SIGNERS_H
#define CERTKERN_TESTS_CERTKERN_CMS_SIGNERS_H

#include <certkern/keykern.h>
#include <certkern/oids.h>
#include <certkern/store.h>

#include <string>

#include "certkern/cms_objects.h"
#include "platform/owner.h"

namespace certkern::test {

using KeyProvider = Owner<HCRYPTPROV, CryptReleaseContext>;
using Store = Owner<HCERTSTORE, CertCloseStore>;

struct TestSigner {
  std::wstring container;
  DWORD providerType = 0;
  KeyProvider provider;
  DWORD spec = 0;

  // Self-signed, linked with its key. All of one signer have one issuer and serial number, and differ in their validity:
  // it ends in that year.
  Certificate certificate(WORD lastYear = 2040) const;
};
// A fresh key for signing.
TestSigner MakeSigner(DWORD providerType);
inline TestSigner GostSigner() { return MakeSigner(PROV_GOST_2012_256); }

// A system store "my".
Store OpenMy(DWORD location);

// Runs one test, which is disabled otherwise, in a process of its own under a configuration with these lines: settings are
// read once in a process.
void RunWithSettings(const std::string& test, const std::string& settings);

}  // namespace certkern::test

#endif
