// Signed objects: which algorithm signs, and what both kinds of them have in common.
#ifndef CERTKERN_CLI_SIGNING_H
#define CERTKERN_CLI_SIGNING_H

#include "container.h"
#include "field.h"
#include "hashes.h"

#include <certkern/encode.h>
#include <CLI/App.hpp>

#include <string>

namespace certkern::cli {

struct SigningOptions {
  KeyChoice choice;
  std::string hash;  // empty: what suits the key
  bool pss = false;
};
// --key, --machine, --purpose, the PIN, --hash, --pss.
void AddSigningOptions(CLI::App& command, SigningOptions& options);

// An algorithm identifier with its memory.
struct SignatureAlgorithm {
  std::string oid;
  Bytes parameters;  // empty: as the algorithm wants it
  CRYPT_ALGORITHM_IDENTIFIER identifier();
};
// For GOST keys the standard of the key decides; RSA signs SHA-256, ECDSA the hash that is as strong as its curve.
SignatureAlgorithm ChooseSignature(const SigningOptions& options, const ContainerKey& key);

// What a key that is not a GOST one signs unless told otherwise.
const HashRow& UsualHash(const ContainerKey& key);

// The record, signed and encoded. The key is unlocked.
Bytes SignRecord(const ContainerKey& key, LPCSTR type, const void* record, SignatureAlgorithm& algorithm);

}  // namespace certkern::cli

#endif
