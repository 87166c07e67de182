// The calls of the key level that key exchange makes, each answering a code. Sizes are asked for here and nowhere else.
#ifndef CERTKERN_EXTKERN_KEY_CALLS_H
#define CERTKERN_EXTKERN_KEY_CALLS_H

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <span>
#include <string>

#include "common/secret_bytes.h"
#include "platform/owner.h"

namespace extkern {

using Bytes = certkern::SecretBytes;

using KeyHandle = certkern::Owner<HCRYPTKEY, CryptDestroyKey>;
using ProviderHandle = certkern::Owner<HCRYPTPROV, CryptReleaseContext>;

// The default provider of an algorithm, counted.
DWORD TakeDefaultProvider(ALG_ID algorithm, ProviderHandle& provider);
DWORD FillRandom(HCRYPTPROV provider, std::span<BYTE> bytes);

DWORD GenerateKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, KeyHandle& key);
// keySpec 0 stands for AT_KEYEXCHANGE.
DWORD TakeOwnKey(HCRYPTPROV provider, DWORD keySpec, KeyHandle& key);
DWORD ImportBlob(HCRYPTPROV provider, std::span<const BYTE> blob, HCRYPTKEY wrapping, DWORD flags,
                 KeyHandle& key);
DWORD ExportBlob(HCRYPTKEY key, HCRYPTKEY wrapping, DWORD type, DWORD flags, Bytes& blob);
// One piece, in place.
DWORD DecryptWhole(HCRYPTKEY key, DWORD flags, Bytes& data);

DWORD GetNumber(HCRYPTKEY key, DWORD param, DWORD& number);
DWORD GetText(HCRYPTKEY key, DWORD param, std::string& text);
DWORD SetNumber(HCRYPTKEY key, DWORD param, DWORD number);
DWORD SetText(HCRYPTKEY key, DWORD param, const std::string& text);
DWORD SetBlob(HCRYPTKEY key, DWORD param, std::span<const BYTE> bytes);
// The key reads as many bytes as its mode takes, so the caller has compared the size.
DWORD SetIv(HCRYPTKEY key, std::span<const BYTE> iv);

}  // namespace extkern

#endif
