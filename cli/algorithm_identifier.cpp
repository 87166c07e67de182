#include "algorithm_identifier.h"

#include "decoded.h"
#include "encoded.h"

namespace certkern::cli {

std::optional<AlgorithmIdentifier> DecodeAlgorithm(std::span<const BYTE> encoded) {
  if (encoded.empty()) return std::nullopt;
  const auto parts = Decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, encoded);
  if (!parts || parts->cValue < 1 || parts->cValue > 2) return std::nullopt;
  const auto oid = Decode<LPSTR>(X509_OBJECT_IDENTIFIER, BytesOf(parts->rgValue[0]));
  if (!oid || !*oid) return std::nullopt;
  AlgorithmIdentifier algorithm{*oid, {}};
  if (parts->cValue == 2) {
    const std::span<const BYTE> parameters = BytesOf(parts->rgValue[1]);
    algorithm.parameters.assign(parameters.begin(), parameters.end());
  }
  return algorithm;
}

Bytes EncodeAlgorithm(const AlgorithmIdentifier& algorithm) {
  std::string dotted = algorithm.oid;
  LPSTR pointer = dotted.data();
  const Bytes oid = Encode(X509_OBJECT_IDENTIFIER, &pointer, algorithm.oid);
  CRYPT_DER_BLOB parts[] = {BlobOf(oid), BlobOf(algorithm.parameters)};
  const CRYPT_SEQUENCE_OF_ANY sequence{algorithm.parameters.empty() ? DWORD{1} : DWORD{2}, parts};
  return Encode(X509_SEQUENCE_OF_ANY, &sequence, algorithm.oid);
}

}  // namespace certkern::cli
