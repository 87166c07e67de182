#include "keykern/container/container.h"

#include "keykern/container/disk_key_set.h"
#include "keykern/container/paths.h"

#include <algorithm>

namespace keykern {
namespace {

// The keys directory, locked, and cleared of what writers left that did not come to their end.
struct KeysSession {
  CallerIds ids;
  Directory keys;
  Descriptor lock;

  DWORD begin(Scope scope) {
    if (!ids) return NTE_PERM;
    if (const DWORD code = OpenKeysDirectory(scope, keys)) return code;
    if (const DWORD code = keys.lock(Directory::Lock::Exclusive, kLockFile, lock)) return code;
    if (const DWORD code = DestroyDirectory(keys, kNewDirectory)) return code;
    return DestroyDirectory(keys, kOldDirectory);
  }
};

DWORD MakeContainer(const Directory& keys, const std::string& fileName, const ContainerInfo& info) {
  Directory fresh;
  if (const DWORD code = keys.make(kNewDirectory, fresh)) return code;
  if (const DWORD code = fresh.write(kInfoFile, WriteInfo(info))) return code;
  if (const DWORD code = fresh.sync()) return code;
  if (const DWORD code = keys.moveTo(keys, kNewDirectory, fileName)) return code;
  return keys.sync();
}

}  // namespace

DWORD OpenContainer(const std::string& name, Scope scope, std::unique_ptr<KeySet>& container) {
  std::string bare;
  if (const DWORD code = StripReader(name, bare)) return code;
  ContainerSession session;
  if (const DWORD code = session.begin(scope, bare, Directory::Lock::Shared)) return code;
  container = std::make_unique<DiskKeySet>(bare, scope, session.info.id);
  return ERROR_SUCCESS;
}

DWORD CreateContainer(const std::string& name, Scope scope, std::unique_ptr<KeySet>& container) {
  std::string bare;
  if (const DWORD code = StripReader(name, bare)) return code;
  KeysSession session;
  if (const DWORD code = session.begin(scope)) return code;
  const std::string fileName = ToFileName(bare);
  if (session.keys.look(fileName) != Entry::None) return NTE_EXISTS;
  ContainerInfo info;
  if (!NewContainerInfo(bare, info)) return NTE_FAIL;
  if (const DWORD code = MakeContainer(session.keys, fileName, info)) {
    static_cast<void>(
        DestroyDirectory(session.keys, kNewDirectory));  // the failure before is the one to tell
    return code;
  }
  container = std::make_unique<DiskKeySet>(bare, scope, info.id);
  return ERROR_SUCCESS;
}

DWORD DeleteContainer(const std::string& name, Scope scope) {
  std::string bare;
  if (const DWORD code = StripReader(name, bare)) return code;
  KeysSession session;
  if (const DWORD code = session.begin(scope)) return code;
  const std::string fileName = ToFileName(bare);
  Directory doomed;
  const DWORD code = session.keys.enter(fileName, doomed);
  if (code) return code == NTE_NOT_FOUND ? NTE_KEYSET_NOT_DEF : code;
  if (!IsDestructible(doomed)) return NTE_BAD_KEYSET;
  if (const DWORD failed = session.keys.moveTo(session.keys, fileName, kOldDirectory)) return failed;
  if (const DWORD failed = session.keys.sync()) return failed;
  return DestroyDirectory(session.keys, kOldDirectory);
}

DWORD ListContainers(Scope scope, std::vector<std::string>& names) {
  const CallerIds ids;
  Directory keys;
  if (!ids) return NTE_PERM;
  if (const DWORD code = OpenKeysDirectory(scope, keys)) return code;
  std::vector<std::string> entries, found;
  if (const DWORD code = keys.list(entries)) return code;
  for (const std::string& entry : entries) {
    std::string name;
    if (FromFileName(entry, name) && keys.look(entry) == Entry::Directory) found.push_back(name);
  }
  std::sort(found.begin(), found.end());
  names = std::move(found);
  return ERROR_SUCCESS;
}

}  // namespace keykern
