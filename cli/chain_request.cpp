#include "chain_request.h"

#include "extension_options.h"
#include "failure.h"
#include "input.h"
#include "shape.h"
#include "text.h"

#include <certkern/errors.h>
#include <fmt/format.h>

#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace certkern::cli {
namespace {

struct RevocationRow {
  const char* name;
  DWORD flag;
};
constexpr RevocationRow kRevocations[] = {
    {"none",         0                                             },
    {"end",          CERT_CHAIN_REVOCATION_CHECK_END_CERT          },
    {"chain",        CERT_CHAIN_REVOCATION_CHECK_CHAIN             },
    {"exclude-root", CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT},
};

std::string Shown(const std::string& name) { return Escaped(Utf8Of(std::string_view(name))); }

// Puts all certificates and CRLs of a file into a store, the first certificate of which may be asked for.
class FileLoader {
 public:
  FileLoader(const std::string& path, HCERTSTORE store) : path_(path), store_(store) {}

  CertificateHandle load() {
    const FileContent content = ReadInput(path_);
    if (!content.error.empty()) fail(content.error);
    ReadBlocks(content.bytes,
               {[this](const Block& block) { addBlock(block); },
                [this](const std::string& text) { fail(text); }, [](const std::string&) {}});
    if (!count_) fail("expected certificates and CRLs, found none");
    return std::move(first_);
  }

 private:
  [[noreturn]] void fail(const std::string& text) const {
    throw Failure(fmt::format("{}: {}", Shown(path_), text));
  }

  void addBlock(const Block& block) {
    for (size_t offset = 0; offset < block.bytes.size();) {
      const std::span<const BYTE> rest = block.bytes.subspan(offset);
      const std::optional<size_t> size = ElementSize(rest);
      const std::optional<ObjectKind> kind = RecognizeObject(rest.first(size.value_or(rest.size())));
      if (!size || !kind) fail("neither a certificate nor a CRL at " + block.place(offset));
      add(*kind, rest.first(*size), block.place(offset));
      offset += *size;
    }
  }

  void add(ObjectKind kind, std::span<const BYTE> bytes, const std::string& place) {
    const DWORD size = CheckedSize(bytes.size());
    BOOL added = FALSE;
    if (kind == ObjectKind::Certificate) {
      PCCERT_CONTEXT* const first = first_ ? nullptr : first_.out();
      added = CertAddEncodedCertificateToStore(store_, X509_ASN_ENCODING, bytes.data(), size,
                                               CERT_STORE_ADD_ALWAYS, first);
    } else if (kind == ObjectKind::Crl) {
      added = CertAddEncodedCRLToStore(store_, X509_ASN_ENCODING, bytes.data(), size, CERT_STORE_ADD_ALWAYS,
                                       nullptr);
    } else {
      fail("neither a certificate nor a CRL at " + place);
    }
    if (!added) fail(fmt::format("{}: {}", place, ReasonOf(GetLastError())));
    ++count_;
  }

  const std::string& path_;
  const HCERTSTORE store_;
  CertificateHandle first_;
  size_t count_ = 0;
};

bool HasRoots() {
  const StoreHandle store(CertOpenStore(
      CERT_STORE_PROV_SYSTEM_W, 0, 0,
      CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG, L"Root"));
  const CertificateHandle any(store ? CertEnumCertificatesInStore(store.get(), nullptr) : nullptr);
  return static_cast<bool>(any);
}

constexpr const char* kNoRoots =
    "no root is trusted on this machine yet: the stores \"Root\" of the user and of the machine are "
    "empty.\n"
    "To trust the roots that the system comes with:\n"
    "  sudo certkern store import Root --machine /etc/ssl/certs/ca-certificates.crt\n"
    "To trust others for this once: --store FILE";

EngineHandle MakeEngine(HCERTSTORE trusted) {
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  config.hExclusiveRoot = trusted;
  EngineHandle engine;
  if (!CertCreateCertificateChainEngine(&config, engine.out())) ThrowLastError("the chain engine");
  return engine;
}

// "2026-01-31", or with "T12:00:00" behind it; UTC.
FILETIME TimeOf(const std::string& text) {
  FILETIME time{};
  if (text.empty()) {
    GetSystemTimeAsFileTime(&time);
    return time;
  }
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, used = 0;
  const bool isDay = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &used) == 3;
  const std::string rest = isDay ? text.substr(static_cast<size_t>(used)) : "?";
  int end = 0;
  const bool isWhole = rest.empty()
      || (std::sscanf(rest.c_str(), "T%2d:%2d:%2d%n", &hour, &minute, &second, &end) == 3
          && (rest.substr(static_cast<size_t>(end)) == "Z" || rest.size() == static_cast<size_t>(end)));
  SYSTEMTIME parts{};
  parts.wYear = static_cast<WORD>(year);
  parts.wMonth = static_cast<WORD>(month);
  parts.wDay = static_cast<WORD>(day);
  parts.wHour = static_cast<WORD>(hour);
  parts.wMinute = static_cast<WORD>(minute);
  parts.wSecond = static_cast<WORD>(second);
  if (!isWhole || !SystemTimeToFileTime(&parts, &time))
    throw WrongUsage(
        fmt::format("--time {}: a date as 2026-01-31, or a time as 2026-01-31T12:00:00Z", Shown(text)));
  return time;
}

DWORD FlagsOf(const ChainOptions& options) {
  const auto* row = std::find_if(std::begin(kRevocations), std::end(kRevocations),
                                 [&](const RevocationRow& each) { return options.revocation == each.name; });
  DWORD flags = row->flag;
  if (options.cacheOnly)
    flags |= CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL | CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
  if (options.sharedTimeout) flags |= CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT;
  if (options.verifyLast) flags |= CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING;
  if (options.all) flags |= CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS;
  return flags;
}

}  // namespace

void AddTrustOptions(CLI::App& command, ChainOptions& options) {
  command
      .add_option("--store", options.trusted,
                  "Trust the certificates of this file or store, and not those of Root")
      ->allow_extra_args(false)
      ->type_name("FILE|NAME");
  command
      .add_option("--additional", options.additional, "Search this file or store for issuers and CRLs, too")
      ->allow_extra_args(false)
      ->type_name("FILE|NAME");
  command
      .add_option("--time", options.time,
                  "Judge at this time, not now; as 2026-01-31 or 2026-01-31T12:00:00Z")
      ->type_name("TIME");
  std::vector<std::string> names;
  for (const RevocationRow& row : kRevocations) names.emplace_back(row.name);
  command
      .add_option("--revocation", options.revocation,
                  "Which certificates are looked up in CRLs; exclude-root unless given")
      ->check(CLI::IsMember(names));
  command.add_flag("--cache-only", options.cacheOnly, "Fetch nothing over the network");
}

void AddChainOptions(CLI::App& command, ChainOptions& options) {
  command
      .add_option("CERT", options.file,
                  "The certificate; what stands behind it in the file is searched for issuers")
      ->required()
      ->type_name("");
  AddTrustOptions(command, options);
  command
      .add_option("--usage", options.usages,
                  "What the certificate must be for, as serverAuth or dotted identifiers")
      ->allow_extra_args(false)
      ->delimiter(',')
      ->type_name("NAMES");
  command.add_flag("--any-usage", options.anyUsage, "One of these usages is enough");
  command.add_option("--timeout", options.timeout, "Give each retrieval this time")->type_name("MS");
  command.add_flag("--shared-timeout", options.sharedTimeout, "Give all retrievals that time together");
  command.add_flag("--verify-last", options.verifyLast, "Verify signatures only when a path is whole");
  command.add_flag("--all", options.all, "Show further valid paths, to other roots");
}

void WarnOfTrustOptions(const ChainOptions& options) {
  if (options.revocation == "end")
    Complain("--revocation end looks up no certificate at all; chain and exclude-root do");
}

void LoadSource(const std::string& name, HCERTSTORE into) {
  if (name == "-" || access(name.c_str(), F_OK) == 0) {
    FileLoader(name, into).load();
    return;
  }
  const StoreHandle store = OpenStoreView({name, false});
  ForEachCertificate(store.get(), [&](PCCERT_CONTEXT each) {
    if (!CertAddCertificateContextToStore(into, each, CERT_STORE_ADD_ALWAYS, nullptr))
      ThrowLastError(Shown(name));
  });
  ForEachCrl(store.get(), [&](PCCRL_CONTEXT each) {
    if (!CertAddCRLContextToStore(into, each, CERT_STORE_ADD_ALWAYS, nullptr)) ThrowLastError(Shown(name));
  });
}

CertificateHandle LoadCertificateFile(const std::string& path, HCERTSTORE into) {
  CertificateHandle certificate = FileLoader(path, into).load();
  if (!certificate) throw Failure(Shown(path) + ": expected a certificate, found only CRLs");
  return certificate;
}

std::shared_ptr<ChainSources> LoadChainSources(const ChainOptions& options, WithoutRoots without) {
  auto sources = std::make_shared<ChainSources>();
  sources->time = TimeOf(options.time);
  if (options.trusted.empty()) {
    if (!HasRoots()) {
      if (without == WithoutRoots::Refuse) throw Failure(kNoRoots);
      Complain("{}", kNoRoots);
    }
  } else {
    sources->trusted = OpenMemoryStore();
    for (const std::string& each : options.trusted) LoadSource(each, sources->trusted.get());
    sources->engine = MakeEngine(sources->trusted.get());
  }
  sources->additional = OpenMemoryStore();
  for (const std::string& each : options.additional) LoadSource(each, sources->additional.get());
  return sources;
}

BuiltChain BuildChain(const ChainOptions& options) {
  std::shared_ptr<const ChainSources> sources = LoadChainSources(options);
  CertificateHandle certificate = LoadCertificateFile(options.file, sources->additional.get());
  return BuildChain(options, std::move(sources), std::move(certificate), Shown(options.file));
}

BuiltChain BuildChain(const ChainOptions& options, std::shared_ptr<const ChainSources> sources,
                      CertificateHandle certificate, const std::string& what) {
  std::vector<std::string> usages;
  std::vector<LPSTR> pointers;
  usages.reserve(options.usages.size());
  pointers.reserve(options.usages.size());
  for (const std::string& usage : options.usages) usages.push_back(PurposeOid(usage, "--usage"));
  for (std::string& usage : usages) pointers.push_back(usage.data());
  CERT_CHAIN_PARA para{};
  para.cbSize = sizeof para;
  para.RequestedUsage.dwType = options.anyUsage ? USAGE_MATCH_TYPE_OR : USAGE_MATCH_TYPE_AND;
  para.RequestedUsage.Usage = {CheckedSize(pointers.size()), pointers.data()};
  para.dwUrlRetrievalTimeout = options.timeout;
  BuiltChain built{std::move(certificate), std::move(sources), {}};
  FILETIME time = built.sources->time;
  if (!CertGetCertificateChain(built.sources->engine.get(), built.certificate.get(),
                               options.time.empty() ? nullptr : &time, built.sources->additional.get(), &para,
                               FlagsOf(options), nullptr, built.chain.out()))
    ThrowLastError(what);
  return built;
}

}  // namespace certkern::cli
