// What a certificate's subject or issuer is called: the answers of CertGetNameString.
#ifndef CERTKERN_NAMES_DISPLAY_NAME_H
#define CERTKERN_NAMES_DISPLAY_NAME_H

#include <certkern/name.h>

#include <string>

namespace certkern {

struct NameQuestion {
  PCCERT_CONTEXT certificate;
  DWORD type;             // CERT_NAME_..._TYPE
  DWORD flags;            // CERT_NAME_ISSUER_FLAG
  const void* parameter;  // what the type takes
  // A buffer of no characters: alternative names have nothing to give to it, while attributes tell their size.
  bool bufferWithoutRoom;
};

// Empty when the certificate has no such name. False with a code: ERROR_INVALID_PARAMETER for what is no certificate, for
// a type that does not exist, and for the friendly name, a property, of a context that the caller put together; or that of
// a property that is there and cannot be read.
[[nodiscard]] bool FindDisplayName(const NameQuestion& question, std::wstring& text);

}  // namespace certkern

#endif
