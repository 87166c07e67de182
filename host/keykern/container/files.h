// Files of key containers: small, private, never reached through a link, and trusted only when nobody else can have
// written them.
#ifndef CERTKERN_KEYKERN_CONTAINER_FILES_H
#define CERTKERN_KEYKERN_CONTAINER_FILES_H

#include "common/secret_bytes.h"
#include "supkern/descriptor.h"

#include <string>
#include <vector>

namespace keykern {

using certkern::SecretBytes;
using certkern::support::Descriptor;

// Between birth and death the thread touches files as the caller of the program.
class CallerIds {
 public:
  CallerIds();
  ~CallerIds();
  CallerIds(const CallerIds&) = delete;
  CallerIds& operator=(const CallerIds&) = delete;
  explicit operator bool() const { return taken_; }

 private:
  const bool taken_;
};

// What a name in a directory is.
enum class Entry { None, File, Directory, Other };

// An open directory; names are single components. Operations answer a code:
//   NTE_NOT_FOUND                  there is no such file or directory
//   NTE_PERM                       refused by the system, of another owner, or others can write to it
//   NTE_BAD_KEYSET                 a link or something else that cannot be here, or too large
//   NTE_TOKEN_KEYSET_STORAGE_FULL  no space
//   NTE_SYS_ERR                    the medium fails
class Directory {
 public:
  Directory() = default;

  // By a path that was judged before.
  DWORD open(const std::string& path);
  explicit operator bool() const { return static_cast<bool>(descriptor_); }

  // A directory inside, judged; or a new one.
  DWORD enter(const std::string& name, Directory& child) const;
  DWORD make(const std::string& name, Directory& child) const;

  DWORD read(const std::string& name, SecretBytes& content) const;
  // A new file, on the medium when this returns.
  DWORD write(const std::string& name, std::span<const BYTE> content) const;
  // Whether a file could be unlinked or replaced, and whether it could be erased: asked before anything is changed.
  DWORD judgeRemoval(const std::string& name) const;
  DWORD judgeErasure(const std::string& name) const;
  // Overwrites a file in place, before its name goes or leads to another.
  DWORD erase(const std::string& name) const;
  DWORD unlink(const std::string& name) const;
  DWORD removeEmpty(const std::string& name) const;
  // Onto another file, but never onto a directory.
  DWORD moveTo(const Directory& target, const std::string& from, const std::string& to) const;
  // Makes the names last.
  DWORD sync() const;

  DWORD list(std::vector<std::string>& names) const;
  Entry look(const std::string& name) const;

  enum class Lock { Shared, Exclusive };
  // On a file of this directory, until the descriptor is closed. On a medium that is read-only nobody needs one.
  DWORD lock(Lock kind, const std::string& name, Descriptor& held) const;

 private:
  Descriptor descriptor_;
};

}  // namespace keykern

#endif
