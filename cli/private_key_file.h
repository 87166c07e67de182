// Private keys in files: PKCS #8, plain or under a password, as PEM or DER.
#ifndef CERTKERN_CLI_PRIVATE_KEY_FILE_H
#define CERTKERN_CLI_PRIVATE_KEY_FILE_H

#include "common/secret_bytes.h"
#include "pin.h"

#include <span>
#include <string>

namespace certkern::cli {

// In bytes. No private key is larger.
constexpr size_t kLargestKeyFile = size_t{1} << 20;

// The PrivateKeyInfo in a file; "-" is standard input. The password is asked for only when there is use for it.
SecretBytes ReadPrivateKey(const std::string& path, const PinOptions& password);

// The dotted identifier of the key's algorithm; empty when this is no PrivateKeyInfo. RFC 5958, 2
std::string AlgorithmOfPrivateKey(std::span<const BYTE> privateKeyInfo);

// Opens EncryptedPrivateKeyInfo with PBES2: PBKDF2 and AES-CBC. RFC 8018, 6.2; name is the file's, for messages.
SecretBytes DecryptPrivateKey(std::span<const BYTE> encrypted, const PinOptions& password,
                              const std::string& name);

}  // namespace certkern::cli

#endif
