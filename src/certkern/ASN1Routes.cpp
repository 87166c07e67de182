// The rows of the object codec that run on generated types.
#include <certkern/encode.h>
#include <certkern/errors.h>

#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "ber/generated_codec.h"
#include "ber/read_cursor.h"
#include "certkern/ASN1OcspTraits.h"
#include "certkern/ASN1SignerTraits.h"
#include "platform/sizes.h"
#include "platform/trace.h"

namespace certkern {
namespace {

using namespace asn1data;

// --- decoding: a type, its record, and the names that its trace lines bear ---

struct AttributeRead {
  using Control = ASN1C_Attribute;
  using Record = CRYPT_ATTRIBUTE;
  static constexpr const char* kFunction = "XnDllPKCSAttributeDecode";
  static constexpr const char* kSubject = "PKCS_ATTRIBUTE";
  static bool get(const ASN1T_Attribute& generated, Record& record, BerDecodeArena& arena) {
    AttributeTraits::get(generated, record, arena);
    return true;
  }
};

struct SignerRead {
  using Control = ASN1C_SignerInfo;
  static constexpr const char* kFunction = "XnDllPKCSSignerInfoDecode";
  static constexpr const char* kSubject = "PKCS7_SIGNER_INFO||CMS_SIGNER_INFO";
};
struct OlderSignerRead : SignerRead {
  using Record = CMSG_SIGNER_INFO;
  // the record has no field for a key's identifier
  static bool get(const ASN1T_SignerInfo& generated, Record& record, BerDecodeArena& arena) {
    if (generated.sid.t != ASN1T_SignerIdentifier::t_issuerAndSerialNumber) {
      TraceAs(kFunction, TRACE_ERROR,
              "Invalid choice in CMS_SINGER_INFO struct. CryptDecodeObject PKCS7_SIGNER_INFO");
      return false;
    }
    SignerInfoTraits::get(generated, record, arena);
    return true;
  }
};
struct CmsSignerRead : SignerRead {
  using Record = CMSG_CMS_SIGNER_INFO;
  static bool get(const ASN1T_SignerInfo& generated, Record& record, BerDecodeArena& arena) {
    if (SignerInfoTraits::get(generated, record, arena)) return true;
    TraceAs(kFunction, TRACE_ERROR,
            "Unsupported choice in CMSG_CMS_SINGER_INFO struct. CryptDecodeObject CMS_SIGNER_INFO");
    return false;
  }
};

// --- both directions ---

struct Ocsp {
  static constexpr const char* kFunction = "CryptDecodeObject";
};
struct SignedRequest : Ocsp, OcspSignedRequestTraits {
  using Control = ASN1C_OCSPRequestRaw;
  using Record = OCSP_SIGNED_REQUEST_INFO;
  static constexpr const char* kSubject = "OCSP_SIGNED_REQUEST";
};
struct Request : Ocsp, OcspRequestTraits {
  using Control = ASN1C_TBSRequest;
  using Record = OCSP_REQUEST_INFO;
  static constexpr const char* kSubject = "OCSP_REQUEST";
};
struct Response : Ocsp, OcspResponseTraits {
  using Control = ASN1C_OCSPResponse;
  using Record = OCSP_RESPONSE_INFO;
  static constexpr const char* kSubject = "OCSP_RESPONSE";
};
struct SignedResponse : Ocsp, OcspSignedResponseTraits {
  using Control = ASN1C_BasicOCSPResponseRaw;
  using Record = OCSP_BASIC_SIGNED_RESPONSE_INFO;
  static constexpr const char* kSubject = "OCSP_BASIC_SIGNED_RESPONSE";
};
struct BasicResponse : Ocsp, OcspBasicResponseTraits {
  using Control = ASN1C_ResponseData;
  using Record = OCSP_BASIC_RESPONSE_INFO;
  static constexpr const char* kSubject = "OCSP_BASIC_RESPONSE";
};

struct AlgorithmWrite {
  using Control = ASN1C_AlgorithmIdentifier;
  using Record = CRYPT_ALGORITHM_IDENTIFIER;
  static void set(ASN1Context& context, const Record& record, ASN1T_AlgorithmIdentifier& generated) {
    ASN1OBJID arcs;
    if (str2oid(record.pszObjId, arcs) != 0) throw CryptException(CRYPT_E_OID_FORMAT);
    AlgorithmTraits::set(context, record, generated);
  }
};

// --- the routes ---

// Codes that tell the caller what is wrong with the record; all others mean that it has no encoding.
DWORD EncodeFault(DWORD code) {
  const bool tells =
      code == CRYPT_E_ASN1_BADARGS || code == CRYPT_E_OID_FORMAT || code == ERROR_NOT_ENOUGH_MEMORY;
  return tells ? code : CRYPT_E_BAD_ENCODE;
}

// Runs what may throw; a false without a code is CRYPT_E_BAD_ENCODE, when decoding, too.
template <class Body>
bool Caught(const Body& body) {
  try {
    return body();
  } catch (const CryptException& exception) {
    return Fault(EncodeFault(exception.code()));
  } catch (const std::bad_alloc&) {
    return Fault(ERROR_NOT_ENOUGH_MEMORY);
  } catch (const ASN1RTLException& exception) {
    return Fault(exception.status() == ASN1_E_NO_MEMORY ? ERROR_NOT_ENOUGH_MEMORY : CRYPT_E_BAD_ENCODE);
  } catch (const std::exception&) {
    return Fault(CRYPT_E_BAD_ENCODE);
  }
}

// The sizing pass and the filling pass over one decoded value.
template <class Row, class Value>
bool Flatten(const Value& value, void* record, DWORD* size) {
  using Record = typename Row::Record;
  Record unkept{};
  BerDecodeArena counter(sizeof(Record));
  if (!Row::get(value, unkept, counter)) return Fault(CRYPT_E_BAD_ENCODE);
  if (!FitsDword(counter.size())) return Fault(ERROR_NOT_ENOUGH_MEMORY);
  const DWORD given = std::exchange(*size, static_cast<DWORD>(counter.size()));
  if (!record) return true;
  if (given < *size) {
    TraceAs(Row::kFunction, TRACE_ERROR, "Not enough space in buffer for %s", Row::kSubject);
    return Fault(ERROR_MORE_DATA);
  }
  std::memset(record, 0, sizeof(Record));
  BerDecodeArena arena(static_cast<BYTE*>(record), *size, sizeof(Record));
  return Row::get(value, *static_cast<Record*>(record), arena) || Fault(CRYPT_E_BAD_ENCODE);
}

template <class Row>
bool Decode(std::span<const BYTE> encoded, void* record, DWORD* size) {
  if (!size) {
    TraceAs(Row::kFunction, TRACE_ERROR, "Invalid arguments in CryptDecodeObject %s", Row::kSubject);
    return Fault(ERROR_INVALID_PARAMETER);
  }
  return Caught([&] {
    ASN1BERDecodeBuffer buffer(encoded.data(), encoded.size());
    buffer.context().setOpenValues(OpenValues::Kept);  // the records have bytes, whatever these hold
    typename Row::Control::ValueType value{};
    if (typename Row::Control(buffer, value).Decode() != ASN1_OK) return Fault(CRYPT_E_BAD_ENCODE);
    return Flatten<Row>(value, record, size);
  });
}

template <class Row>
bool Encode(const void* record, BYTE* encoded, DWORD* size) {
  if (!record || !size) return Fault(ERROR_INVALID_PARAMETER);
  return Caught([&] {
    ASN1BEREncodeBuffer buffer;
    buffer.context().setSetOrder(SetOrder::AsGiven);
    const auto fault = [&] {
      return Fault(buffer.GetStatus() == ASN1_E_NO_MEMORY ? ERROR_NOT_ENOUGH_MEMORY : CRYPT_E_BAD_ENCODE);
    };
    typename Row::Control::ValueType value{};
    try {
      Row::set(buffer.context(), *static_cast<const typename Row::Record*>(record), value);
    } catch (const Asn1Exception&) {
      return fault();
    }
    const int length = typename Row::Control(buffer, value).Encode();
    if (length <= 0) return fault();
    const DWORD given = std::exchange(*size, static_cast<DWORD>(length));
    if (!encoded) return true;
    if (given < *size) return Fault(ERROR_MORE_DATA);
    std::memcpy(encoded, buffer.GetMsgPtr(), *size);
    return true;
  });
}

template <class Row>
GeneratedType BothWays(LPCSTR type) {
  return {reinterpret_cast<uintptr_t>(type), Encode<Row>, Decode<Row>};
}
template <class Row>
GeneratedType ReadOnly(LPCSTR type) {
  return {reinterpret_cast<uintptr_t>(type), nullptr, Decode<Row>};
}
template <class Row>
GeneratedType WriteOnly(LPCSTR type) {
  return {reinterpret_cast<uintptr_t>(type), Encode<Row>, nullptr};
}

}  // namespace

std::span<const GeneratedType> GeneratedTypes() {
  static const GeneratedType kTypes[] = {
      WriteOnly<AlgorithmWrite>(X509_ALGORITHM_IDENTIFIER),
      BothWays<Response>(OCSP_RESPONSE),
      BothWays<SignedResponse>(OCSP_BASIC_SIGNED_RESPONSE),
      BothWays<BasicResponse>(OCSP_BASIC_RESPONSE),
      BothWays<SignedRequest>(OCSP_SIGNED_REQUEST),
      BothWays<Request>(OCSP_REQUEST),
      ReadOnly<OlderSignerRead>(PKCS7_SIGNER_INFO),
      ReadOnly<CmsSignerRead>(CMS_SIGNER_INFO),
      ReadOnly<AttributeRead>(PKCS_ATTRIBUTE),
  };
  return kTypes;
}

}  // namespace certkern
