// certkern cache: what the library keeps of its downloads.
#include "command.h"
#include "failure.h"
#include "output.h"
#include "store_fields.h"
#include "stores.h"
#include "text.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/properties.h>
#include <fmt/format.h>

#include <cstring>
#include <memory>

namespace certkern::cli {
namespace {

struct CacheArguments {
  bool json = false;
};

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

constexpr wchar_t kStoreName[] = L"cache";

// Empty with the last error; asking must not make a cache.
StoreHandle TryOpenCache(DWORD flags) {
  return StoreHandle(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, kEncoding, 0,
                                   CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING_FLAG | flags,
                                   kStoreName));
}

// Nothing when there is no cache yet.
StoreHandle OpenCache(DWORD flags) {
  StoreHandle store = TryOpenCache(flags);
  if (!store && GetLastError() != ERROR_FILE_NOT_FOUND) ThrowLastError("the cache");
  return store;
}

BOOL GetProperty(const CERT_CONTEXT& context, BYTE* out, DWORD* size) {
  return CertGetCertificateContextProperty(&context, SV_URL_CACHE_PROP_ID, out, size);
}
BOOL GetProperty(const CRL_CONTEXT& context, BYTE* out, DWORD* size) {
  return CertGetCRLContextProperty(&context, SV_URL_CACHE_PROP_ID, out, size);
}

// Two times, then the URL and a NUL. Anybody may have written it: what is missing is not shown.
void AddCacheFields(Field& field, const Bytes& property) {
  FILETIME times[2]{};
  if (property.size() < sizeof times) return;
  std::memcpy(times, property.data(), sizeof times);
  const std::string rest(property.begin() + sizeof times, property.end());
  field.add("URL", Text{Utf8Of(std::string_view(rest).substr(0, rest.find('\0')))});
  field.add("Last modified", Words{TimeText(times[0])});
  field.add("Last used", Words{TimeText(times[1])});
}

int RunList(const CacheArguments& arguments) {
  std::vector<Field> objects;
  const StoreHandle store = OpenCache(CERT_STORE_READONLY_FLAG);
  const auto list = [&](const auto& context) {
    Bytes property;
    if (!AskBytes([&](BYTE* out, DWORD* size) { return GetProperty(context, out, size); }, property)) return;
    Field field = SummaryOf(context);
    AddCacheFields(field, property);
    objects.push_back(std::move(field));
  };
  if (store) ForEachObject(store.get(), list);
  PrintObjects(objects, arguments.json);
  return FlushOutput() ? 0 : kFailed;
}

// A deletion frees the context that it is given, and the walk goes on from its own.
bool Delete(const CERT_CONTEXT& context) {
  return CertDeleteCertificateFromStore(CertDuplicateCertificateContext(&context));
}
bool Delete(const CRL_CONTEXT& context) { return CertDeleteCRLFromStore(CertDuplicateCRLContext(&context)); }

// What can't be read can still go.
void RemoveCache() {
  const DWORD code = GetLastError();
  static_cast<void>(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, kEncoding, 0,
                                  CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_DELETE_FLAG, kStoreName));
  if (GetLastError() != ERROR_SUCCESS) ThrowCode("the cache", code);
}

int RunClear(const CacheArguments& arguments) {
  const StoreHandle store = TryOpenCache(0);
  if (!store && GetLastError() != ERROR_FILE_NOT_FOUND) RemoveCache();
  int64_t removed = 0;
  if (store) {
    ForEachObject(store.get(), [&](const auto& context) {
      if (Delete(context)) ++removed;
    });
    // tells, too, when the file cannot be written, and then nothing has gone
    if (!CertControlStore(store.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr)) ThrowLastError("the cache");
  }
  Field field("Cache");
  field.add("Removed", removed);
  PrintObjects({&field, 1}, arguments.json);
  return FlushOutput() ? 0 : kFailed;
}

Runner PrepareList(CLI::App& command) {
  const auto arguments = std::make_shared<CacheArguments>();
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object for each that is kept");
  return [arguments] { return RunList(*arguments); };
}

Runner PrepareClear(CLI::App& command) {
  const auto arguments = std::make_shared<CacheArguments>();
  command.add_flag("--json", arguments->json,
                   "Write JSON: an array with one object that tells how many went");
  return [arguments] { return RunClear(*arguments); };
}

constexpr Command kCommands[] = {
    {"list",  "List the certificates and CRLs that were downloaded", PrepareList },
    {"clear", "Forget them all",                                     PrepareClear},
};

}  // namespace

Runner PrepareCache(CLI::App& group) { return PrepareGroup(group, kCommands); }

}  // namespace certkern::cli
