// The functions that stand in the process's sets before anybody installs one.
#ifndef CERTKERN_OID_BUILT_IN_FUNCTIONS_H
#define CERTKERN_OID_BUILT_IN_FUNCTIONS_H

#include <certkern/policy.h>
#include <certkern/url.h>

#include <span>

#include "oid/function_sets.h"

// Defined above, where retrievals are served.
extern "C" BOOL CryptRetrieveObjectByUrlAInternal(LPCSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags,
                                                  DWORD dwTimeout, LPVOID* ppvObject,
                                                  HCRYPTASYNC hAsyncRetrieve, PCRYPT_CREDENTIALS pCredentials,
                                                  LPVOID pvVerify, PCRYPT_RETRIEVE_AUX_INFO pAuxInfo);

namespace certkern {

std::span<const BuiltInFunction> BuiltInFunctions();

// CERT_CHAIN_POLICY_BASE. Defined upstairs, in the policies' room.
BOOL VerifyBasePolicy(LPCSTR oid, PCCERT_CHAIN_CONTEXT chain, PCERT_CHAIN_POLICY_PARA para,
                      PCERT_CHAIN_POLICY_STATUS status);

}  // namespace certkern

#endif
