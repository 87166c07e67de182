// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
#ifndef CERTKERN_CLI_ALGORITHM_IDENTIFIER_H
#define CERTKERN_CLI_ALGORITHM_IDENTIFIER_H

#include "field.h"

#include <certkern/encode.h>

#include <optional>
#include <span>
#include <string>

namespace certkern::cli {

struct AlgorithmIdentifier {
  std::string oid;
  Bytes parameters;  // one whole element, or nothing
};

std::optional<AlgorithmIdentifier> DecodeAlgorithm(std::span<const BYTE> encoded);
Bytes EncodeAlgorithm(const AlgorithmIdentifier& algorithm);

}  // namespace certkern::cli

#endif
