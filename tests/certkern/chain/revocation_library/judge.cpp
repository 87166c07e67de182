// A revocation library for the test. It answers as the environment says, and writes down what it was asked.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/revocation.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" CERTKERN_API BOOL CertDllVerifyRevocation(DWORD dwEncodingType, DWORD dwRevType, DWORD cContext,
                                                     PVOID rgpvContext[], DWORD dwFlags,
                                                     PCERT_REVOCATION_PARA pRevPara,
                                                     PCERT_REVOCATION_STATUS pRevStatus) {
  if (FILE* const file = fopen(getenv("JUDGE_LOG"), "a")) {
    fprintf(file, "%x %u %u flags=%x para=%u time=%d status=%u\n", dwEncodingType, dwRevType, cContext,
            dwFlags, pRevPara->cbSize, pRevPara->pftTimeToUse != nullptr, pRevStatus->cbSize);
    fclose(file);
  }
  const std::string_view answer = getenv("JUDGE_ANSWER");
  if (answer == "good") return TRUE;
  if (answer == "back") {  // asks the very library that is asking
    const BOOL good =
        CertVerifyRevocation(dwEncodingType, dwRevType, cContext, rgpvContext, 0, pRevPara, pRevStatus);
    SetLastError(CRYPT_E_REVOKED);
    return good;
  }
  if (answer == "revoked") SetLastError(CRYPT_E_REVOKED);
  if (answer == "offline") SetLastError(CRYPT_E_REVOCATION_OFFLINE);
  return FALSE;
}
