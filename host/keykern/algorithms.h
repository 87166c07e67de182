// The algorithms of the key level, one row each. Every provider type serves all of them; the types differ in what comes
// first and in what they are the default for.
#ifndef CERTKERN_KEYKERN_ALGORITHMS_H
#define CERTKERN_KEYKERN_ALGORITHMS_H

#include "keykern/digest.h"

#include <certkern/keykern.h>

#include <span>
#include <string_view>

namespace keykern {

enum class AlgorithmKind : BYTE {
  Hash,     // newDigest makes it
  Hmac,     // over the hash `base`, or, with base 0, over the one that a parameter names
  Pbkdf2,   // the same; the value is as long as the caller's buffer
  Message,  // the value is what was fed
  Key,      // a cipher or a family of key pairs
};

struct Algorithm {
  ALG_ID id;
  AlgorithmKind kind;
  DWORD providerType;  // the type that is the default for it and lists it first
  DWORD defaultBits;   // of the value or key
  DWORD minimumBits;
  DWORD maximumBits;
  std::string_view name;      // at most 19 characters
  std::string_view longName;  // at most 39
  DigestMaker newDigest = nullptr;
  ALG_ID base = 0;
};

std::span<const Algorithm> Algorithms();
// Null when there is none.
const Algorithm* FindAlgorithm(ALG_ID id);
// A plain hash function; null for anything else.
const Algorithm* FindHash(ALG_ID id);
// False where the library below refuses the algorithm on this host.
bool IsAvailable(const Algorithm& algorithm);

}  // namespace keykern

#endif
