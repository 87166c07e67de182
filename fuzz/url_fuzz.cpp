// Any bytes as what comes with a URL: what a cached object carries, the text of a directory's answer, and the body of a
// server's, as each of the objects that can be asked for.
#include <certkern/keykern.h>
#include <certkern/store.h>
#include <certkern/url.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <span>

#include "fetchkern/ldap_answer.h"
#include "platform/exceptions.h"
#include "url/cached_url.h"
#include "url/download.h"
#include "url/retrieved_object.h"

using namespace certkern;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// What reads is a prefix that would be written alike.
void Property(std::span<const BYTE> bytes) {
  const auto value = DecodeCachedUrl(bytes);
  if (!value) return;
  const std::vector<BYTE> written = EncodeCachedUrl(*value);
  Require(written.size() <= bytes.size() && std::equal(written.begin(), written.end(), bytes.begin()));
}

void DirectoryAnswer(std::span<const BYTE> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const auto value = fetch::FirstLdapValue(text);
  Require(!value || value->size() < text.size());
}

// An object, or an exception with a code.
void Body(const ObjectKind& kind, bool multiple, std::span<const BYTE> bytes) {
  try {
    std::vector<BYTE> decoded;
    const RetrievedObject object = ProcessNetworkData(kind, multiple, DecodeBody(bytes, decoded));
    Require(object.context || object.store || object.raw);
    Require(!object.raw || object.raw->rgBlob->cbData <= bytes.size());
  } catch (const RetrieveObjectException& exception) {
    Require(exception.code() != 0);
  }
}

struct Form {
  LPCSTR type;
  bool multiple;
};
constexpr uintptr_t kForms = 6;
Form FormOf(uintptr_t choice) {
  const Form forms[kForms] = {
      {nullptr,                 false},
      {CONTEXT_OID_CERTIFICATE, false},
      {CONTEXT_OID_CERTIFICATE, true },
      {CONTEXT_OID_CRL,         false},
      {CONTEXT_OID_CRL,         true },
      {CONTEXT_OID_PKCS7,       true }
  };
  return forms[choice % kForms];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const auto exact =
      std::make_unique<BYTE[]>(size - 1);  // so that the sanitizer sees the first byte too many
  std::copy(data + 1, data + size, exact.get());
  const std::span<const BYTE> bytes(exact.get(), size - 1);
  if (data[0] == 'p') {
    Property(bytes);
  } else if (data[0] == 'd') {
    DirectoryAnswer(bytes);
  } else {
    const Form form = FormOf(data[0]);
    Body(*FindObjectKind(form.type), form.multiple, bytes);
  }
  return 0;
}
