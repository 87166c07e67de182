#include "keykern/container/container.h"

#include "keykern/container/disk_key_set.h"
#include "keykern/container/paths.h"

#include <algorithm>

namespace keykern {
namespace {

constexpr size_t kMarkSize = 8;

// What writers left that did not come to their end. What cannot be removed is left where it is: it belongs to no
// container, so none has to wait for somebody to look after it.
void ClearLeftovers(const Directory& keys) {
  std::vector<std::string> names;
  if (keys.list(names)) return;
  for (const std::string& name : names) {
    if (name.starts_with(kNewDirectory) || name.starts_with(kOldDirectory)) {
      static_cast<void>(DestroyDirectory(keys, name));
    }
  }
}

// The keys directory, locked for a writer. Its mark tells the directories apart that are no containers.
struct KeysSession {
  CallerIds ids;
  Directory keys;
  Descriptor lock;
  std::string mark;

  DWORD begin(Scope scope) {
    if (!ids) return NTE_PERM;
    if (const DWORD code = OpenKeysDirectory(scope, keys)) return code;
    if (const DWORD code = keys.lock(Directory::Lock::Exclusive, kLockFile, lock)) return code;
    ClearLeftovers(keys);
    return RandomDigits(kMarkSize, mark) ? ERROR_SUCCESS : NTE_FAIL;
  }
};

DWORD MakeContainer(const Directory& keys, const std::string& freshName, const std::string& fileName,
                    const ContainerInfo& info) {
  Directory fresh;
  if (const DWORD code = keys.make(freshName, fresh)) return code;
  if (const DWORD code = fresh.write(kInfoFile, WriteInfo(info))) return code;
  if (const DWORD code = fresh.sync()) return code;
  if (const DWORD code = keys.moveTo(keys, freshName, fileName)) return code;
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
  const std::string freshName = kNewDirectory + session.mark;
  if (const DWORD code = MakeContainer(session.keys, freshName, fileName, info)) {
    static_cast<void>(DestroyDirectory(session.keys, freshName));  // the failure before is the one to tell
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
  if (const DWORD refused = JudgeDestruction(doomed)) return refused;
  const std::string oldName = kOldDirectory + session.mark;
  if (const DWORD failed = session.keys.moveTo(session.keys, fileName, oldName)) return failed;
  if (const DWORD failed = session.keys.sync()) return failed;
  return DestroyDirectory(session.keys, oldName);
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
