// certkern fetch: objects by URL, as the library gets them.
#include "command.h"
#include "decoded.h"
#include "failure.h"
#include "input.h"
#include "output.h"
#include "shape.h"
#include "store_fields.h"
#include "stores.h"
#include "text.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/url.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

namespace certkern::cli {
namespace {

constexpr DWORD kUsualTimeout = 15'000;  // milliseconds
constexpr DWORD kLongestTimeout = 3'600'000;

struct FetchArguments {
  std::string url;
  std::string out;
  std::string type = "any";
  DWORD timeout = kUsualTimeout;
  bool cacheOnly = false;
  bool wireOnly = false;
  bool json = false;

  DWORD flags() const {
    return (cacheOnly ? CRYPT_CACHE_ONLY_RETRIEVAL : 0) | (wireOnly ? CRYPT_WIRE_ONLY_RETRIEVAL : 0);
  }
  std::string shown() const { return Escaped(Utf8Of(std::string_view(url))); }
};

// What came: a description, and the bytes for --out.
struct Fetched {
  std::vector<Field> objects;
  Bytes bytes;

  void add(Field field, std::span<const BYTE> encoded) {
    objects.push_back(std::move(field));
    bytes.insert(bytes.end(), encoded.begin(), encoded.end());
  }
  void add(const CERT_CONTEXT& certificate) {
    add(SummaryOf(certificate), {certificate.pbCertEncoded, certificate.cbCertEncoded});
  }
  void add(const CRL_CONTEXT& crl) { add(SummaryOf(crl), {crl.pbCrlEncoded, crl.cbCrlEncoded}); }
};

void* Retrieve(const FetchArguments& arguments, LPCSTR type, DWORD flags) {
  void* object = nullptr;
  SetLastError(0);
  const BOOL done = CryptRetrieveObjectByUrlA(arguments.url.c_str(), type, arguments.flags() | flags,
                                              arguments.timeout, &object, nullptr, nullptr, nullptr, nullptr);
  return done ? object : nullptr;
}

bool FetchCertificates(const FetchArguments& arguments, Fetched& fetched) {
  const StoreHandle store(Retrieve(arguments, CONTEXT_OID_CERTIFICATE, CRYPT_RETRIEVE_MULTIPLE_OBJECTS));
  if (!store) return false;
  ForEachObject(store.get(), [&](const auto& context) { fetched.add(context); });
  return true;
}

bool FetchCrl(const FetchArguments& arguments, Fetched& fetched) {
  const CrlHandle crl(static_cast<PCCRL_CONTEXT>(Retrieve(arguments, CONTEXT_OID_CRL, 0)));
  if (crl) fetched.add(*crl.get());
  return static_cast<bool>(crl);
}

Field DataField(std::span<const BYTE> bytes) {
  Field field("Data");
  field.add("Size", static_cast<int64_t>(bytes.size()));
  return field;
}

// One element, as what it looks like; anything else is data.
void AddElement(std::span<const BYTE> bytes, Fetched& fetched) {
  const std::optional<ObjectKind> kind = RecognizeObject(bytes);
  const DWORD size = CheckedSize(bytes.size());
  const CertificateHandle certificate(
      kind == ObjectKind::Certificate ? CertCreateCertificateContext(X509_ASN_ENCODING, bytes.data(), size)
                                      : nullptr);
  const CrlHandle crl(kind == ObjectKind::Crl ? CertCreateCRLContext(X509_ASN_ENCODING, bytes.data(), size)
                                              : nullptr);
  if (certificate) {
    fetched.add(*certificate.get());
  } else if (crl) {
    fetched.add(*crl.get());
  } else {
    fetched.add(DataField(bytes), bytes);
  }
}

// What the bytes tell; the caches, which keep objects of known types, are asked only where the network must not be.
bool FetchAny(const FetchArguments& arguments, Fetched& fetched) {
  if (arguments.cacheOnly) return FetchCertificates(arguments, fetched) || FetchCrl(arguments, fetched);
  const Decoded<CRYPT_BLOB_ARRAY> array(static_cast<CRYPT_BLOB_ARRAY*>(Retrieve(arguments, nullptr, 0)));
  if (!array) return false;
  AddElement(BytesOf(*array->rgBlob), fetched);
  return true;
}

struct TypeRow {
  const char* name;
  bool (*fetch)(const FetchArguments& arguments, Fetched& fetched);
};
constexpr TypeRow kTypes[] = {
    {"any",         FetchAny         },
    {"certificate", FetchCertificates},
    {"crl",         FetchCrl         },
};

std::string ReasonOfFailure(const FetchArguments& arguments, DWORD code) {
  if (code == CRYPT_E_NOT_FOUND && arguments.cacheOnly) {
    return "the cache has nothing of this URL that is valid now";
  }
  if (code == CRYPT_E_NOT_FOUND) {
    return fmt::format(
        "the transfer failed: no such server or page, not finished in {} ms, too large, or no http, https or "
        "ldap",
        arguments.timeout);
  }
  if (code == E_INVALIDARG) return "the server has nothing there, or nothing newer than what has run out";
  if (arguments.type == "any") return ReasonOf(code);
  return fmt::format("what came is no {} that the library reads (code 0x{:08x}); --type any takes anything",
                     arguments.type == "crl" ? "CRL" : "certificate", code);
}

int RunFetch(const FetchArguments& arguments) {
  const auto* const row = std::ranges::find(kTypes, arguments.type, &TypeRow::name);
  Fetched fetched;
  if (!row->fetch(arguments, fetched)) {
    throw Failure(fmt::format("{}: {}", arguments.shown(), ReasonOfFailure(arguments, GetLastError())));
  }
  OutputOptions output{.file = arguments.out, .der = true};
  if (!arguments.out.empty()) WriteObject(output, "CERTIFICATE", fetched.bytes);
  if (arguments.out != "-") PrintObjects(fetched.objects, arguments.json);
  return FlushOutput() ? 0 : kFailed;
}

}  // namespace

Runner PrepareFetch(CLI::App& command) {
  const auto arguments = std::make_shared<FetchArguments>();
  std::vector<std::string> types;
  for (const TypeRow& row : kTypes) types.emplace_back(row.name);
  command.add_option("URL", arguments->url, "An http, https or ldap URL")->required()->type_name("");
  command.add_option("--type", arguments->type, "What has to come; any unless given")
      ->check(CLI::IsMember(types));
  command.add_option("--out", arguments->out, "Write the bytes, decoded if they came as text, into a file")
      ->type_name("FILE");
  command.add_option("--timeout", arguments->timeout, "For the whole transfer; 15000 unless given")
      ->check(CLI::Range(DWORD{1}, kLongestTimeout))
      ->type_name("MS");
  CLI::Option* const cacheOnly =
      command.add_flag("--cache-only", arguments->cacheOnly, "Look in the cache, not at the network");
  command.add_flag("--wire-only", arguments->wireOnly, "Do not look in the cache")->excludes(cacheOnly);
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object for each that came");
  command.footer(
      "Certificates and CRLs are kept in the user's cache until they run out; \"certkern cache\" shows it.\n"
      "Exit status: 0 it came; 1 it did not; 2 wrong usage.\n\n"
      "Examples:\n"
      "  certkern fetch --type crl http://ca.example/ca.crl\n"
      "  certkern fetch --out - http://ca.example/ca.cer | certkern show");
  return [arguments] { return RunFetch(*arguments); };
}

}  // namespace certkern::cli
