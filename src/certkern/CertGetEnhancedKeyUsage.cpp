#include "certkern/CertGetEnhancedKeyUsage.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <optional>
#include <span>
#include <vector>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"
#include "platform/exceptions.h"
#include "platform/sizes.h"
#include "store/certificate_primitives.h"
#include "store/certificate_usages.h"
#include "store/context_record.h"

namespace certkern {
namespace {

// A failure always has a code of the decoder; what the caller's last error was before must not pass for one.
bool Decode(std::span<const BYTE> encoded, UsageRecord& usages) {
  const DWORD before = GetLastError();
  SetLastError(ERROR_SUCCESS);
  void* record = nullptr;
  if (!DecodeObjectEx(X509_ASN_ENCODING, X509_ENHANCED_KEY_USAGE, encoded.data(),
                      CheckedDword(encoded.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr)) {
    return false;
  }
  usages.reset(static_cast<CERT_ENHKEY_USAGE*>(record));
  SetLastError(before);
  return true;
}

// Another thread may set a longer value between two calls.
std::optional<std::vector<BYTE>> ReadProperty(PCCERT_CONTEXT context) {
  const LastErrorKeeper keeper;
  std::vector<BYTE> value;
  DWORD size = 0;
  const auto read = [&](BYTE* out) {
    return CertGetCertificateContextProperty(context, CERT_ENHKEY_USAGE_PROP_ID, out, &size) != FALSE;
  };
  bool done = read(nullptr);
  while (done && size > value.size()) {
    value.resize(size);
    done = read(value.data()) || GetLastError() == ERROR_MORE_DATA;
  }
  if (!done && GetLastError() == CRYPT_E_NOT_FOUND) return std::nullopt;
  if (!done) ThrowLastError();
  value.resize(size);
  return value;
}

UsageRecord UsagesOfProperty(PCCERT_CONTEXT context) {
  UsageRecord usages;
  const std::optional<std::vector<BYTE>> value = ReadProperty(context);
  if (value && !Decode(*value, usages)) ThrowLastError();
  return usages;
}

bool UsagesOfExtension(const CERT_INFO& certificate, UsageRecord& usages) {
  const CERT_EXTENSION* extension = FindExtension(szOID_ENHANCED_KEY_USAGE, certificate);
  if (!extension || Decode({extension->Value.pbData, extension->Value.cbData}, usages)) return true;
  return Fault(GetLastError() == ERROR_NOT_ENOUGH_MEMORY ? ERROR_NOT_ENOUGH_MEMORY : CRYPT_E_ASN1_ERROR);
}

bool Write(std::span<const LPCSTR> purposes, PCERT_ENHKEY_USAGE usage, DWORD& size) {
  const DWORD needed = CheckedDword(sizeof *usage + PackedSize(purposes));
  const DWORD room = std::exchange(size, needed);
  if (!usage) return true;
  if (room < needed) return Fault(ERROR_MORE_DATA);
  auto* const texts = reinterpret_cast<LPSTR*>(usage + 1);
  Pack(purposes, texts);
  *usage = {static_cast<DWORD>(purposes.size()), purposes.empty() ? nullptr : texts};
  return true;
}

}  // namespace

bool GetEnhancedKeyUsage(PCCERT_CONTEXT context, DWORD flags, PCERT_ENHKEY_USAGE usage, DWORD& size) {
  const bool asksProperty = flags != CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG;
  ContextRecord* const record = FindLiveContext(context, ElementType::Certificate);
  if (asksProperty ? !record : !ReadableCertificate(context)) return Fault(ERROR_INVALID_PARAMETER);
  if (record) AddContextReference(*record);
  const ContextOwner pinned(record);
  UsageRecord property, extension;
  if (asksProperty) property = UsagesOfProperty(context);
  if (flags != CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG && !UsagesOfExtension(*context->pCertInfo, extension)) {
    return false;
  }
  const std::span<const LPSTR> narrowing = PurposesOf(property), given = PurposesOf(extension);
  const std::span<const LPSTR> start = narrowing.empty() ? given : narrowing;
  std::vector<LPCSTR> purposes(start.begin(), start.end());
  if (!narrowing.empty() && !given.empty()) KeepCommon(purposes, given);
  if (!purposes.empty()) return Write(purposes, usage, size);
  // by itself no list is a failure; under both it is an answer, which the code alone tells from a list
  if (flags) return Fault(CRYPT_E_NOT_FOUND);
  if (!Write(purposes, usage, size)) return false;
  SetLastError(CRYPT_E_NOT_FOUND);
  return true;
}

}  // namespace certkern
