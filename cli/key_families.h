// The kinds of keys that can be made, and their parameter sets by the names that people use.
#ifndef CERTKERN_CLI_KEY_FAMILIES_H
#define CERTKERN_CLI_KEY_FAMILIES_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <string_view>

namespace certkern::cli {

struct ParameterSet {
  std::string_view name;
  const char* oid;
};

struct KeyFamily {
  const char* name;  // "gost2012-256"
  const char* oid;   // of the public key
  ALG_ID signature;
  ALG_ID exchange;  // 0: the family signs only
  DWORD providerType;
  const char* fixedSet;  // of families that are one curve; else null
  std::span<const ParameterSet> sets;
};

std::span<const KeyFamily> KeyFamilies();
// Null when there is none.
const KeyFamily* FindFamilyByName(std::string_view name);
const KeyFamily* FindFamilyByOid(std::string_view publicKeyOid);
// By one of the identifiers of its keys; Ed448 counts as Ed25519 here.
const KeyFamily* FindFamilyByAlgorithm(ALG_ID algorithm);
bool IsGost(const KeyFamily& family);

// Dotted; a dotted identifier stays what it is. Null-terminated and empty when the family has no set of that name.
std::string ParameterSetOid(const KeyFamily& family, std::string_view name);
// "A, B, C, XA, XB"
std::string ParameterSetNames(const KeyFamily& family);

// The identifier of a key for a purpose; empty: exchange, where the family has it.
ALG_ID AlgorithmOfPurpose(const KeyFamily& family, std::string_view purpose);

// AT_... for a purpose, "exchange" or "signature".
DWORD SpecOfPurpose(std::string_view purpose);
const char* PurposeOfSpec(DWORD spec);

}  // namespace certkern::cli

#endif
