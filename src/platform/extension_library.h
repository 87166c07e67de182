// The extension library, bound when one of its operations is first asked for. Where the library or that operation is
// missing, the call fails with a code and everything else goes on; a later call looks again, so that a library that is
// installed meanwhile is found. After the first success a call costs one atomic read and takes no lock. The library
// stays loaded as long as the process lives.
#ifndef CERTKERN_PLATFORM_EXTENSION_LIBRARY_H
#define CERTKERN_PLATFORM_EXTENSION_LIBRARY_H

#include <atomic>

#include "platform/extkern.h"

namespace certkern::extension {

class Symbol {
 public:
  constexpr explicit Symbol(const char* name) : name_(name) {}

 protected:
  // ERROR_MOD_NOT_FOUND: no library; ERROR_CALL_NOT_IMPLEMENTED: a library without this one.
  void* find();

 private:
  const char* name_;
  std::atomic<void*> address_{nullptr};
};

// Called as the operation itself is.
template <typename Function>
class Operation : private Symbol {
 public:
  using Symbol::Symbol;

  template <typename... Arguments>
  BOOL operator()(Arguments... arguments) {
    auto* const function = reinterpret_cast<Function*>(find());
    return function ? function(arguments...) : FALSE;
  }
};

#define CERTKERN_EXTENSION(name) inline constinit Operation<decltype(::name)> name(#name)
CERTKERN_EXTENSION(XnRsaPublicKeyEncode);
CERTKERN_EXTENSION(XnRsaPublicKeyDecode);
CERTKERN_EXTENSION(XnDllSigningCertificateEncode);
CERTKERN_EXTENSION(XnDllSigningCertificateDecode);
CERTKERN_EXTENSION(XnDllSigningCertificateV2Encode);
CERTKERN_EXTENSION(XnDllSigningCertificateV2Decode);
CERTKERN_EXTENSION(XnDllOtherSigningCertificateEncode);
CERTKERN_EXTENSION(XnDllOtherSigningCertificateDecode);
CERTKERN_EXTENSION(XnDllPrivateKeyUsagePeriodEncode);
CERTKERN_EXTENSION(XnDllPrivateKeyUsagePeriodDecode);
CERTKERN_EXTENSION(XnDllIssuerSignToolEncode);
CERTKERN_EXTENSION(XnDllIssuerSignToolDecode);
CERTKERN_EXTENSION(XnDllGostPrivateCertificateStoreEncode);
CERTKERN_EXTENSION(XnDllGostPrivateCertificateStoreDecode);
CERTKERN_EXTENSION(XnDllPrivateKeyDeriveCounterDecode);
CERTKERN_EXTENSION(XnDllGostPrivateKeyTimeValidityControlModeDecode);
CERTKERN_EXTENSION(XnConvertPublicKeyInfo);
CERTKERN_EXTENSION(XnEcdsaConvertPublicKeyInfo);
CERTKERN_EXTENSION(XnEdDSAConvertPublicKeyInfo);
CERTKERN_EXTENSION(XnRsaConvertPublicKeyInfo);
CERTKERN_EXTENSION(XnDllExportPublicKeyInfoEx);
#undef CERTKERN_EXTENSION

}  // namespace certkern::extension

#endif
