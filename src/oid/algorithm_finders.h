// Searches in the OID table that its own look-ups do not offer.
#ifndef CERTKERN_OID_ALGORITHM_FINDERS_H
#define CERTKERN_OID_ALGORITHM_FINDERS_H

#include "oid/oid_enumerators.h"

namespace certkern {

// A public key by identifier and class: one identifier stands for the key that signs and for the one that agrees.
class CFindPubKeyAlgId final : public ATL2::COidInfoEnum {
 public:
  // @param algorithmClass  ALG_CLASS_SIGNATURE or ALG_CLASS_KEY_EXCHANGE
  CFindPubKeyAlgId(LPCSTR oid, ALG_ID algorithmClass) : oid_(oid), class_(algorithmClass) {}
  virtual ~CFindPubKeyAlgId() = default;
  bool find();

  ALG_ID algorithm() const { return algorithm_; }
  PCCRYPT_OID_INFO info() const { return info_; }

 private:
  BOOL OnEnum(PCCRYPT_OID_INFO info) override;

  const LPCSTR oid_;
  const ALG_ID class_;
  ALG_ID algorithm_ = 0;
  PCCRYPT_OID_INFO info_ = nullptr;
};

// The first signature of the table that a key can make.
class CFindSignatureOidInfo final : public ATL2::COidInfoEnum {
 public:
  explicit CFindSignatureOidInfo(ALG_ID key) : key_(key) {}
  virtual ~CFindSignatureOidInfo() = default;
  PCCRYPT_OID_INFO find();

 private:
  BOOL OnEnum(PCCRYPT_OID_INFO info) override;

  const ALG_ID key_;
  PCCRYPT_OID_INFO info_ = nullptr;
};

}  // namespace certkern

namespace ATL2 {

// The first signature for a public key, whichever of the key's classes it goes with.
class CFindSignatureAlgPubKeyEnum final : private CPublicKeyAlgorithmOidEnum,
                                          private CSignatureAlgorithmOidEnum {
 public:
  virtual ~CFindSignatureAlgPubKeyEnum() = default;
  // Null when there is none.
  LPCSTR find(LPCSTR publicKeyOid);

 private:
  BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID algorithm) override;
  BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID hash, DWORD key, DWORD flags, DWORD providerType) override;

  LPCSTR wanted_ = nullptr;
  ALG_ID key_ = 0;
  LPCSTR signature_ = nullptr;
};

// The first signature over a hash.
class CFindSignatureAlgorithmEnum final : private CHashAlgorithmOidEnum, private CSignatureAlgorithmOidEnum {
 public:
  virtual ~CFindSignatureAlgorithmEnum() = default;
  // Null when there is none.
  LPCSTR find(LPCSTR hashOid);

 private:
  BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID algorithm) override;
  BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID hash, DWORD key, DWORD flags, DWORD providerType) override;

  LPCSTR wanted_ = nullptr;
  ALG_ID hash_ = 0;
  LPCSTR signature_ = nullptr;
};

}  // namespace ATL2

#endif
