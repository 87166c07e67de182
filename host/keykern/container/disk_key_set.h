// A container on disk that somebody has opened.
#ifndef CERTKERN_KEYKERN_CONTAINER_DISK_KEY_SET_H
#define CERTKERN_KEYKERN_CONTAINER_DISK_KEY_SET_H

#include "keykern/container/container.h"
#include "keykern/container/files.h"
#include "keykern/container/info.h"
#include "keykern/container/journal.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace keykern {

// The files of a key, as they are on disk.
struct StoredKey {
  KeyRow row;
  SecretBytes publicInfo;
  SecretBytes privateInfo;  // sealed or plain

  bool operator==(const StoredKey& other) const {
    return publicInfo == other.publicInfo && privateInfo == other.privateInfo;
  }
};

// A container, locked: what one operation works with.
struct ContainerSession {
  CallerIds ids;  // the first to come and the last to go
  Directory keys;
  Descriptor lock;
  ContainerFiles files;
  ContainerInfo info;

  // NTE_KEYSET_NOT_DEF: there is none; NTE_BAD_KEYSET: damaged; NTE_PERM
  DWORD begin(Scope scope, const std::string& name, Directory::Lock kind);
  DWORD readKey(const KeyRow& row, StoredKey& key) const;
};

// Holds nothing open between operations. What is remembered is the PIN and the opened keys: each of them cost the
// iterations of its password, and serves as long as the files are the same.
class DiskKeySet final : public KeySet {
 public:
  DiskKeySet(std::string name, Scope scope, std::string id)
      : name_(std::move(name)), scope_(scope), id_(std::move(id)) {}

  bool persistent() const override { return true; }
  std::string name() const override { return name_; }
  Scope scope() const override { return scope_; }

  DWORD load(DWORD spec, KeyRecord& key) override;
  DWORD loadPublic(DWORD spec, PublicKeyPtr& key, ALG_ID& algorithm, bool& exportable) override;
  DWORD store(DWORD spec, const KeyRecord& key) override;

  DWORD certificate(DWORD spec, SecretBytes& encoded) override;
  DWORD setCertificate(DWORD spec, std::span<const BYTE> encoded) override;
  DWORD extensions(std::vector<ContainerExtension>& all) override;
  DWORD setExtension(const ContainerExtension& extension) override;

  DWORD presentPin(std::span<const BYTE> pin) override;
  DWORD changePin(std::span<const BYTE> pin) override;
  bool needsPin() const override;

 private:
  struct OpenedKey {
    StoredKey stored;
    PrivateKeyPtr key;
  };
  struct AllKeys {
    std::vector<OpenedKey> keys;
    bool sealed = false;
  };

  DWORD begin(Directory::Lock kind, ContainerSession& session) const;
  DWORD openStored(const StoredKey& stored, PrivateKeyPtr& key);
  DWORD openAll(const ContainerSession& session, AllKeys& all);
  DWORD readExtensions(const ContainerSession& session, std::vector<ContainerExtension>& all) const;

  const std::string name_;
  const Scope scope_;
  const std::string id_;
  mutable std::mutex mutex_;
  std::optional<SecretBytes> pin_;
  std::map<DWORD, OpenedKey> opened_;
};

}  // namespace keykern

#endif
