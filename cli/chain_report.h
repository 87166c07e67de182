// A judged chain for people, for programs, and as a picture.
#ifndef CERTKERN_CLI_CHAIN_REPORT_H
#define CERTKERN_CLI_CHAIN_REPORT_H

#include "chain_request.h"
#include "chain_words.h"
#include "field.h"

#include <optional>
#include <string>

namespace certkern::cli {

// What a policy made of the chain.
struct PolicyResult {
  std::string name;
  DWORD error = 0;
};

Verdict VerdictOnAll(const BuiltChain& built, const std::optional<PolicyResult>& policy);

// A whole name on one line, for a terminal.
std::string NameLine(const CERT_NAME_BLOB& name);

// A tree, the root first.
std::string PathText(const BuiltChain& built);
// "Valid.", or what is wrong.
std::string VerdictText(Verdict verdict, DWORD errorStatus);
// Both, and what a policy says.
std::string ChainText(const BuiltChain& built, const std::optional<PolicyResult>& policy);
Field ChainField(const BuiltChain& built, const std::optional<PolicyResult>& policy);
// Graphviz: the path, and the other certificates that could have been issuers, with why they are not.
std::string ChainDot(const BuiltChain& built);

}  // namespace certkern::cli

#endif
