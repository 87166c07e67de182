// Key containers: a directory each, under the keys directory of the user or of the machine.
//
//   private-1.p8, private-2.p8   PKCS #8, encrypted when the container has a PIN; 1 and 2 are the key specs
//   public-1.der ...             SubjectPublicKeyInfo
//   certificate-1.der ...        the certificate that belongs to the key
//   extensions.der               what callers attached to the container
//   info                         version, name as given, key rows (algorithm, exportable), creation time
//
// Writes are crash-safe: a file is whole or is not there. Nothing that cannot be read is ever deleted or overwritten.
#ifndef CERTKERN_KEYKERN_CONTAINER_CONTAINER_H
#define CERTKERN_KEYKERN_CONTAINER_CONTAINER_H

#include "keykern/key/asymmetric_key.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace keykern {

// Of whom a container is.
enum class Scope : BYTE { User, Machine };

// What a key is besides its numbers.
struct KeyRecord {
  PrivateKeyPtr key;
  ALG_ID algorithm = 0;  // one of the family's three identifiers
  bool exportable = false;
};

struct ContainerExtension {
  std::string oid;
  bool critical = false;
  SecretBytes value;
};

// Where a provider keeps its keys: on disk, or, for a verify context, in memory only. Key specs are AT_KEYEXCHANGE and
// AT_SIGNATURE. Any number of threads may use one. Operations answer a code.
class KeySet {
 public:
  KeySet() = default;
  KeySet(const KeySet&) = delete;
  KeySet& operator=(const KeySet&) = delete;
  virtual ~KeySet() = default;

  virtual bool persistent() const = 0;
  // UTF-8, without prefix; empty in memory.
  virtual std::string name() const { return {}; }
  virtual Scope scope() const { return Scope::User; }

  // NTE_NO_KEY: no such key; SCARD_W_WRONG_CHV: the PIN that was given is wrong; SCARD_W_CARD_NOT_AUTHENTICATED: none
  // was given and one is needed; NTE_BAD_KEYSET: damaged; NTE_KEYSET_NOT_DEF: the container is gone.
  virtual DWORD load(DWORD spec, KeyRecord& key) = 0;
  // The public half, which needs no PIN. NTE_NO_KEY and the last two as above.
  virtual DWORD loadPublic(DWORD spec, PublicKeyPtr& key, ALG_ID& algorithm, bool& exportable) = 0;
  // Replaces the key of that spec, and removes the certificate that belonged to the old one. NTE_FAIL, with nothing
  // changed: what would be kept does not give the key again.
  virtual DWORD store(DWORD spec, const KeyRecord& key) = 0;

  // NTE_NOT_FOUND: there is none.
  virtual DWORD certificate(DWORD spec, SecretBytes& encoded) = 0;
  // An empty certificate removes it. NTE_NO_KEY: no key of that spec.
  virtual DWORD setCertificate(DWORD spec, std::span<const BYTE> encoded) = 0;
  virtual DWORD extensions(std::vector<ContainerExtension>& all) = 0;
  // Replaces the one of the same OID; an empty value removes it. NTE_BAD_DATA: no OID; NTE_BAD_LEN
  virtual DWORD setExtension(const ContainerExtension& extension) = 0;

  // The PIN that the following operations use. Not checked before a private key is wanted, but for a container whose
  // keys are there: then a wrong one is SCARD_W_WRONG_CHV at once, and the one before stays. In a container without
  // keys it becomes the PIN of the keys to come. In a container whose keys have no PIN any is taken and not used.
  virtual DWORD presentPin(std::span<const BYTE> pin) = 0;
  // Puts every private key under another PIN, after the present one was given; empty: none.
  virtual DWORD changePin(std::span<const BYTE> pin) = 0;
  virtual bool needsPin() const = 0;
};

// In memory; its PIN operations succeed and do nothing.
std::unique_ptr<KeySet> NewMemoryKeySet();

// Names are UTF-8, with or without the reader "\\.\DISKVAULT\" in front; "\\.\<another>\" is NTE_KEYSET_NOT_DEF. What
// remains has 1 to kMaxContainerName bytes and becomes a file name by percent-encoding.
inline constexpr char kReaderPrefix[] = "\\\\.\\DISKVAULT\\";

// NTE_KEYSET_NOT_DEF: no such container; NTE_BAD_KEYSET: not one, or damaged; NTE_PERM: others may write to it, or it
// belongs to another user; NTE_BAD_KEYSET_PARAM: no possible name.
DWORD OpenContainer(const std::string& name, Scope scope, std::unique_ptr<KeySet>& container);
// NTE_EXISTS; NTE_PERM: the directory can't be written to; NTE_TOKEN_KEYSET_STORAGE_FULL: no space.
DWORD CreateContainer(const std::string& name, Scope scope, std::unique_ptr<KeySet>& container);
DWORD DeleteContainer(const std::string& name, Scope scope);
// The names, sorted, of all that look like containers; damaged ones included, so that they can be named.
DWORD ListContainers(Scope scope, std::vector<std::string>& names);

}  // namespace keykern

#endif
