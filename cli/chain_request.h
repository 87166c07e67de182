// Asking the library for a chain: what the command line says, and what comes of it.
#ifndef CERTKERN_CLI_CHAIN_REQUEST_H
#define CERTKERN_CLI_CHAIN_REQUEST_H

#include "stores.h"

#include <certkern/chain.h>
#include <CLI/App.hpp>

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

// A chain with what it was built from.
struct BuiltChain {
  CertificateHandle certificate;
  StoreHandle trusted;     // null: the user's "Root"
  StoreHandle additional;  // with the certificates behind the first one of the file
  EngineHandle engine;     // null: the user's
  ChainHandle chain;
  FILETIME time{};  // that it was judged at

  const CERT_CHAIN_CONTEXT& context() const { return *chain.get(); }
  const CERT_SIMPLE_CHAIN& path() const { return *context().rgpChain[0]; }
};
BuiltChain BuildChain(const ChainOptions& options);

}  // namespace certkern::cli

#endif
