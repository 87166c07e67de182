// Asking the library for a chain: what the command line says, and what comes of it.
#ifndef CERTKERN_CLI_CHAIN_REQUEST_H
#define CERTKERN_CLI_CHAIN_REQUEST_H

#include "stores.h"

#include <certkern/chain.h>
#include <CLI/App.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace certkern::cli {

inline void FreeEngine(HCERTCHAINENGINE engine) { CertFreeCertificateChainEngine(engine); }
inline void FreeChain(PCCERT_CHAIN_CONTEXT chain) { CertFreeCertificateChain(chain); }
using EngineHandle = Owner<HCERTCHAINENGINE, FreeEngine, nullptr>;
using ChainHandle = Owner<PCCERT_CHAIN_CONTEXT, FreeChain, nullptr>;

struct ChainOptions {
  std::string file;
  std::vector<std::string> trusted;     // stores or files, in place of "Root"
  std::vector<std::string> additional;  // stores or files, searched and not trusted
  std::string time;
  std::string revocation = "exclude-root";
  bool cacheOnly = false;
  std::vector<std::string> usages;
  bool anyUsage = false;
  DWORD timeout = 0;  // milliseconds
  bool sharedTimeout = false;
  bool verifyLast = false;
  bool all = false;
};
void AddChainOptions(CLI::App& command, ChainOptions& options);
// Those of them that any command has that judges: --store, --additional, --time, --revocation and --cache-only.
void AddTrustOptions(CLI::App& command, ChainOptions& options);
// Says what is odd about them, but possible.
void WarnOfTrustOptions(const ChainOptions& options);

// What chains are built from.
struct ChainSources {
  StoreHandle trusted;     // null: the user's "Root"
  StoreHandle additional;  // searched and not trusted; always there
  EngineHandle engine;     // null: the user's
  FILETIME time{};         // that chains are judged at
};
// Without trusted roots nothing is ever valid, and a new user has none. Who has more to say than that is told of it and goes on.
enum class WithoutRoots { Refuse, GoOn };
// Without the options' own file.
std::shared_ptr<ChainSources> LoadChainSources(const ChainOptions& options,
                                               WithoutRoots without = WithoutRoots::Refuse);

struct BuiltChain {
  CertificateHandle certificate;
  std::shared_ptr<const ChainSources> sources;
  ChainHandle chain;

  const CERT_CHAIN_CONTEXT& context() const { return *chain.get(); }
  const CERT_SIMPLE_CHAIN& path() const { return *context().rgpChain[0]; }
};
// Of the first certificate of the options' file; those behind it are searched.
BuiltChain BuildChain(const ChainOptions& options);
// what says in an error whose chain it is.
BuiltChain BuildChain(const ChainOptions& options, std::shared_ptr<const ChainSources> sources,
                      CertificateHandle certificate, const std::string& what);

// The objects of a file where there is one, else those of a store of that name.
void LoadSource(const std::string& name, HCERTSTORE into);
// The first certificate of a file; it and all others, and CRLs, go into the store.
CertificateHandle LoadCertificateFile(const std::string& path, HCERTSTORE into);

}  // namespace certkern::cli

#endif
