// Enveloped messages around the functions under test: taken apart and put together as a message layer does it, by the DER
// tools alone. The openssl program is the other party.
#ifndef CERTKERN_TESTS_HOST_EXTKERN_EXCHANGE_KEY_EXCHANGE_MESSAGES_H
#define CERTKERN_TESTS_HOST_EXTKERN_EXCHANGE_KEY_EXCHANGE_MESSAGES_H

#include <certkern/keykern.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/extkern_msg.h"
#include "platform/owner.h"

using ByteVector = std::vector<BYTE>;
using ProviderHandle = certkern::Owner<HCRYPTPROV, CryptReleaseContext>;
using KeyHandle = certkern::Owner<HCRYPTKEY, CryptDestroyKey>;

// An AlgorithmIdentifier with the memory that its record points into.
struct Algorithm {
  std::string oid;
  ByteVector parameters;
  CRYPT_ALGORITHM_IDENTIFIER record() const;
};

// Somebody with a private key in a provider of his own.
struct Party {
  ProviderHandle provider;
  DWORD keySpec = 0;
  // of the certificate, where there is one
  std::filesystem::path certificate, privateKey;
  ByteVector issuerAndSerial;
  Algorithm algorithm;
  ByteVector publicKey;
};
Party PartyFromKey(const std::filesystem::path& pkcs8);
// Has openssl make the key and a certificate; kept for the next who asks with the same options.
const Party& MadeParty(const std::string& genpkeyOptions);
// The openssl program with its GOST plug-in.
void OpenSsl(const std::string& arguments);

// EnvelopedData with one recipient.
struct Envelope {
  Envelope() = default;
  explicit Envelope(const ByteVector& message);
  ByteVector message(const Party& recipient) const;

  Algorithm content;
  ByteVector encrypted, tag;
  bool agreement = false;
  Algorithm keyEncryption;
  ByteVector encryptedKey;
  ByteVector ukm;  // with agreement, as the next two
  Algorithm originator;
  ByteVector originatorKey;
  DWORD originatorChoice = CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY;
};

// The content key, by the function that serves the scheme. 0, or the code.
DWORD TakeKey(const Envelope& envelope, const Party& recipient, KeyHandle& key);
// And the content, its tag checked.
DWORD Open(const Envelope& envelope, const Party& recipient, ByteVector& plain);

struct SealOptions {
  const char* keyEncryption = nullptr;  // otherwise the public key's algorithm
  ByteVector keyEncryptionParameters = {};
  bool agreement = false;
  const char* keyWrap = nullptr;
  ByteVector ukm = {};
  ByteVector contentParameters = {};
};
// 0, or the code. Whatever comes of it, all memory that was allocated has been given back by the flags of the answers.
DWORD Seal(const Party& recipient, const char* content, const ByteVector& plain, const SealOptions& options,
           Envelope& envelope);

// The allocator of the answers: pieces that nobody gave back, and the count after which there are none, for one Seal.
size_t OutstandingPieces();
void FailAllocationsAfter(size_t count);

// Bytes that repeat late.
ByteVector SomeContent(size_t size);
ByteVector Load(const std::filesystem::path& path);
std::filesystem::path PublishedData();

#endif
