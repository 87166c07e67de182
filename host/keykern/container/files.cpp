#include "keykern/container/files.h"

#include "platform/limits.h"
#include "platform/supkern.h"

#include <certkern/errors.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace keykern {
namespace {

using certkern::kMaxContainerFile;

constexpr int kSafe = O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kDirectoryMode = 0700;

DWORD CodeOf(int error) {
  switch (error) {
    case ENOENT:
      return NTE_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
      return NTE_PERM;
    case ENOSPC:
    case EDQUOT:
      return NTE_TOKEN_KEYSET_STORAGE_FULL;
    case EEXIST:
    case ENOTEMPTY:
      return NTE_EXISTS;
    case ELOOP:
    case ENOTDIR:
    case EISDIR:
    case ENXIO:
      return NTE_BAD_KEYSET;
    case ENOMEM:
      return NTE_NO_MEMORY;
    default:
      return NTE_SYS_ERR;
  }
}

DWORD Answer(int result) { return result == 0 ? ERROR_SUCCESS : CodeOf(errno); }

// Ours alone to write. An access list shows its widest right in the group bits.
DWORD Judge(const Descriptor& opened, mode_t kind, struct stat& status) {
  if (fstat(opened.get(), &status) != 0) return CodeOf(errno);
  if ((status.st_mode & S_IFMT) != kind) return NTE_BAD_KEYSET;
  const uid_t caller = static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1)));
  return status.st_uid == caller && !(status.st_mode & (S_IWGRP | S_IWOTH)) ? ERROR_SUCCESS : NTE_PERM;
}

DWORD WriteAll(const Descriptor& file, std::span<const BYTE> content) {
  while (!content.empty()) {
    const ssize_t written = ::write(file.get(), content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return CodeOf(errno);
    content = content.subspan(static_cast<size_t>(written));
  }
  return Answer(fsync(file.get()));
}

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};

// Stops at one byte more than is allowed: the file may grow while it is read.
DWORD ReadAll(const Descriptor& file, SecretBytes& content) {
  size_t size = 0;
  for (;;) {
    if (size == content.size()) content.resize(std::min(2 * size + 4096, kMaxContainerFile + 1));
    const ssize_t got = ::read(file.get(), content.data() + size, content.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return CodeOf(errno);
    size += static_cast<size_t>(got);
    if (got == 0 || size > kMaxContainerFile) break;
  }
  content.resize(size);
  return size <= kMaxContainerFile ? ERROR_SUCCESS : NTE_BAD_KEYSET;
}

}  // namespace

CallerIds::CallerIds() : taken_(support_thread_actualize_uids() == 0) {}

CallerIds::~CallerIds() {
  if (taken_) support_thread_deactualize_uids();
}

DWORD Directory::open(const std::string& path) {
  descriptor_ = Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return descriptor_ ? ERROR_SUCCESS : CodeOf(errno);
}

DWORD Directory::enter(const std::string& name, Directory& child) const {
  Descriptor opened(openat(descriptor_.get(), name.c_str(), O_RDONLY | O_DIRECTORY | kSafe));
  if (!opened) return CodeOf(errno);
  struct stat status {};
  if (const DWORD code = Judge(opened, S_IFDIR, status)) return code;
  child.descriptor_ = std::move(opened);
  return ERROR_SUCCESS;
}

DWORD Directory::make(const std::string& name, Directory& child) const {
  if (mkdirat(descriptor_.get(), name.c_str(), kDirectoryMode) != 0) return CodeOf(errno);
  if (const DWORD code = enter(name, child)) return code;
  return Answer(fchmod(child.descriptor_.get(), kDirectoryMode));  // what the umask took
}

DWORD Directory::read(const std::string& name, SecretBytes& content) const {
  const Descriptor file(openat(descriptor_.get(), name.c_str(), O_RDONLY | kSafe));
  if (!file) return CodeOf(errno);
  struct stat status {};
  if (const DWORD code = Judge(file, S_IFREG, status)) return code;
  SecretBytes found(std::min(static_cast<size_t>(status.st_size), kMaxContainerFile) + 1);
  if (const DWORD code = ReadAll(file, found)) return code;
  content = std::move(found);
  return ERROR_SUCCESS;
}

DWORD Directory::write(const std::string& name, std::span<const BYTE> content) const {
  const Descriptor file(
      openat(descriptor_.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | kSafe, kFileMode));
  if (!file || fchmod(file.get(), kFileMode) != 0) return CodeOf(errno);
  return WriteAll(file, content);
}

DWORD Directory::judgeRemoval(const std::string& name) const {
  struct statx status {};
  if (statx(descriptor_.get(), name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) != 0) {
    return CodeOf(errno);
  }
  if ((status.stx_mode & S_IFMT) != S_IFREG) return NTE_BAD_KEYSET;
  return status.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND) ? NTE_PERM : ERROR_SUCCESS;
}

DWORD Directory::judgeErasure(const std::string& name) const {
  const Descriptor file(openat(descriptor_.get(), name.c_str(), O_WRONLY | kSafe));
  struct stat status {};
  return file ? Judge(file, S_IFREG, status) : CodeOf(errno);
}

DWORD Directory::erase(const std::string& name) const {
  const Descriptor file(openat(descriptor_.get(), name.c_str(), O_WRONLY | kSafe));
  if (!file) return CodeOf(errno);
  struct stat status {};
  if (const DWORD code = Judge(file, S_IFREG, status)) return code;
  if (status.st_nlink > 1) return ERROR_SUCCESS;  // somebody else's file, too
  return WriteAll(file, SecretBytes(std::min(static_cast<size_t>(status.st_size), kMaxContainerFile)));
}

DWORD Directory::unlink(const std::string& name) const {
  return Answer(unlinkat(descriptor_.get(), name.c_str(), 0));
}

DWORD Directory::removeEmpty(const std::string& name) const {
  return Answer(unlinkat(descriptor_.get(), name.c_str(), AT_REMOVEDIR));
}

DWORD Directory::moveTo(const Directory& target, const std::string& from, const std::string& to) const {
  if (target.look(to) == Entry::Directory) return NTE_EXISTS;
  return Answer(renameat(descriptor_.get(), from.c_str(), target.descriptor_.get(), to.c_str()));
}

DWORD Directory::sync() const { return Answer(fsync(descriptor_.get())); }

DWORD Directory::list(std::vector<std::string>& names) const {
  // a position of its own, and closedir() closes what it is given
  Descriptor again(openat(descriptor_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!again) return CodeOf(errno);
  const std::unique_ptr<DIR, CloseStream> stream(fdopendir(again.get()));
  if (!stream) return CodeOf(errno);
  static_cast<void>(again.release());
  std::vector<std::string> found;
  for (errno = 0; const dirent* entry = readdir(stream.get()); errno = 0) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") found.push_back(name);
  }
  if (errno != 0) return CodeOf(errno);
  std::sort(found.begin(), found.end());
  names = std::move(found);
  return ERROR_SUCCESS;
}

Entry Directory::look(const std::string& name) const {
  struct stat status {};
  if (fstatat(descriptor_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? Entry::None : Entry::Other;
  }
  if (S_ISREG(status.st_mode)) return Entry::File;
  return S_ISDIR(status.st_mode) ? Entry::Directory : Entry::Other;
}

DWORD Directory::lock(Lock kind, const std::string& name, Descriptor& held) const {
  // opened for writing where possible: over a network an exclusive lock needs that
  Descriptor file(openat(descriptor_.get(), name.c_str(), O_RDWR | O_CREAT | kSafe, kFileMode));
  if (!file && errno == EROFS && kind == Lock::Shared) return ERROR_SUCCESS;
  if (!file) return CodeOf(errno);
  struct stat status {};
  if (const DWORD code = Judge(file, S_IFREG, status)) return code;
  while (flock(file.get(), kind == Lock::Shared ? LOCK_SH : LOCK_EX) != 0) {
    if (errno != EINTR) return CodeOf(errno);
  }
  held = std::move(file);
  return ERROR_SUCCESS;
}

}  // namespace keykern
