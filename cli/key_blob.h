// Keys on their way into and out of the key library.
#ifndef CERTKERN_CLI_KEY_BLOB_H
#define CERTKERN_CLI_KEY_BLOB_H

#include "container.h"
#include "encoded.h"
#include "handles.h"

#include <span>

namespace certkern::cli {

// A key of a block cipher for CBC.
KeyHandle ImportCipherKey(HCRYPTPROV provider, ALG_ID algorithm, std::span<const BYTE> key);
// In place; the padding is taken off. False when there is none, which a wrong key shows.
bool DecryptCbc(HCRYPTKEY key, std::span<const BYTE> iv, SecretBytes& bytes);

// Puts a private key into an open container.
void ImportPrivateKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags,
                      std::span<const BYTE> privateKeyInfo);
// PrivateKeyInfo of a key that is unlocked and exportable.
SecretBytes ExportPrivateKey(const ContainerKey& key);

}  // namespace certkern::cli

#endif
