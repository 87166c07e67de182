// The files of one container, changed all at once or not at all.
//
// A change is written to the directory ".next" and becomes valid with the renaming of that to ".commit". From then on
// its files stand for those of the container, an empty one for no file; they are moved to their places at leisure, by
// the next writer if need be. So a crash at any moment leaves either the old state or the new one, on every file system
// that renames, and what else lies in the directory stays untouched.
#ifndef CERTKERN_KEYKERN_CONTAINER_JOURNAL_H
#define CERTKERN_KEYKERN_CONTAINER_JOURNAL_H

#include "keykern/container/files.h"

#include <map>
#include <string>

namespace keykern {

// By file name; what is empty is removed.
using FileChanges = std::map<std::string, SecretBytes>;

std::string PrivateFile(DWORD spec);
std::string PublicFile(DWORD spec);
std::string CertificateFile(DWORD spec);
inline constexpr char kExtensionsFile[] = "extensions.der";
inline constexpr char kInfoFile[] = "info";

// The caller holds a lock: shared for reading, exclusive for changing. Codes as Directory; what is missing of a
// container is NTE_NOT_FOUND.
class ContainerFiles {
 public:
  DWORD open(const Directory& keys, const std::string& fileName);
  DWORD read(const std::string& name, SecretBytes& content) const;
  DWORD change(const FileChanges& changes);

 private:
  DWORD finishEarlier();
  DWORD settle(const std::string& name);

  Directory directory_;
  Directory committed_;  // open while there is one
};

// Overwrites the private keys in a directory that no container is any longer, and removes it. Nothing there is success.
// Before anything was touched: NTE_BAD_KEYSET: something is in it that no container has; NTE_PERM: a file cannot be
// removed, or a private key is not ours to overwrite.
DWORD DestroyDirectory(const Directory& parent, const std::string& name);
// What DestroyDirectory would say to the content of it.
DWORD JudgeDestruction(const Directory& directory);

}  // namespace keykern

#endif
