#include "oid/built_in_functions.h"

#include <certkern/policy.h>

namespace certkern {

std::span<const BuiltInFunction> BuiltInFunctions() {
  // the sets are there from the first, so that an entry installed in front is in front of whatever comes in here
  static const BuiltInFunction kRows[] = {
      {CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC, CERT_CHAIN_POLICY_BASE,
       reinterpret_cast<void*>(&VerifyBasePolicy)                 },
      {SV_OID_RETRIEVE_OBJECT_BY_URL_A_FUNC,           CRYPT_DEFAULT_OID,
       reinterpret_cast<void*>(&CryptRetrieveObjectByUrlAInternal)},
  };
  return kRows;
}

}  // namespace certkern
