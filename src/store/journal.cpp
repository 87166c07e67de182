#include "store/journal.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/file.h"
#include "platform/id_bracket.h"
#include "platform/limits.h"
#include "platform/owner.h"

namespace certkern {
namespace {

constexpr std::array<BYTE, 8> kMagic = {'C', 'K', 'J', 'O', 'U', 'R', 'N', '1'};
constexpr size_t kHeader = 24;  // magic, length of the image, checksum of the image
constexpr char kSuffix[] = ".journal";
constexpr char kUnfinishedSuffix[] = ".journal-new";

// FNV-1a: damage is what it finds, not malice.
uint64_t Checksum(std::span<const BYTE> bytes) {
  uint64_t sum = 0xCBF29CE484222325u;
  for (const BYTE byte : bytes) sum = (sum ^ byte) * 0x100000001B3u;
  return sum;
}

std::array<BYTE, kHeader> HeaderOf(std::span<const BYTE> image) {
  std::array<BYTE, kHeader> header{};
  std::copy(kMagic.begin(), kMagic.end(), header.begin());
  const uint64_t words[] = {image.size(), Checksum(image)};
  for (size_t i = 0; i < 16; ++i) header[8 + i] = static_cast<BYTE>(words[i / 8] >> (8 * (i % 8)));
  return header;
}

std::string RealPath(const std::string& path) {
  const MallocOwner<char> real(::realpath(path.c_str(), nullptr));
  return real ? real.get() : path;
}

// A file name that would be too long for the file system is told by its checksum.
std::string JournalBase(const std::string& name) {
  std::string base(1, '.');
  if (name.size() + sizeof kUnfinishedSuffix <= NAME_MAX) return base.append(name);
  const uint64_t sum = Checksum({reinterpret_cast<const BYTE*>(name.data()), name.size()});
  return base.append(name, 0, NAME_MAX / 2).append(1, '-').append(std::to_string(sum));
}

// A directory entry is safe once its directory is. Not every file system can, and then nobody can.
void SyncDirectory(const std::string& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  static_cast<void>(::fsync(descriptor));
  ::close(descriptor);
}

FileStream OpenStream(const std::string& path, int flags, const char* mode) {
  const int descriptor = ::open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600);
  if (descriptor < 0) return {};
  FileStream stream(::fdopen(descriptor, mode));
  if (!stream) ::close(descriptor);
  return stream;
}

// Only who may write the store file may say what it is to hold: not whoever can just make files beside it.
bool IsTrusted(const struct stat& journal, const struct stat& store) {
  const bool known = journal.st_uid == store.st_uid || journal.st_uid == ::geteuid() || journal.st_uid == 0;
  return S_ISREG(journal.st_mode) && journal.st_nlink == 1 && known
      && !(journal.st_mode & (S_IWGRP | S_IWOTH));
}

bool ReadImageOf(std::FILE* stream, const struct stat& status, std::vector<BYTE>& image) {
  const auto size = static_cast<uint64_t>(status.st_size);
  if (size < kHeader || size - kHeader > kMaxStoreFile) return false;
  std::array<BYTE, kHeader> header;
  size_t count = 0;
  if (!ReadFile(stream, header, count)) return false;
  image.resize(size - kHeader);
  return ReadFile(stream, image, count) && count == image.size() && header == HeaderOf(image);
}

}  // namespace

StoreJournal::StoreJournal(const std::string& storePath) : storePath_(RealPath(storePath)) {
  const size_t slash = storePath_.rfind('/');
  const size_t base = slash == std::string::npos ? 0 : slash + 1;
  directory_ = base ? storePath_.substr(0, base) : "./";
  const std::string name = JournalBase(storePath_.substr(base));
  path_ = directory_ + name + kSuffix;
  unfinished_ = directory_ + name + kUnfinishedSuffix;
}

StoreJournal::Written StoreJournal::write(std::span<const BYTE> image) {
  const IdBracket ids;
  static_cast<void>(::unlink(unfinished_.c_str()));
  errno = 0;
  FileStream stream = OpenStream(unfinished_, O_WRONLY | O_CREAT | O_EXCL, "wb");
  if (!stream) {
    if (errno == EACCES || errno == EPERM) return Written::NotAllowed;
    SetLastError(errno == ENOENT ? ERROR_FILE_NOT_FOUND : ERROR_WRITE_FAULT);
    return Written::Failed;
  }
  const bool complete = WriteFile(stream.get(), HeaderOf(image)) && WriteFile(stream.get(), image)
      && FlushFile(stream.get()) && ::fsync(fileno(stream.get())) == 0 && CloseFile(std::move(stream))
      && ::rename(unfinished_.c_str(), path_.c_str()) == 0;
  if (!complete) {
    static_cast<void>(::unlink(unfinished_.c_str()));
    SetLastError(ERROR_WRITE_FAULT);
    return Written::Failed;
  }
  SyncDirectory(directory_);
  return Written::Safe;
}

bool StoreJournal::read(std::vector<BYTE>& image) {
  const LastErrorKeeper keeper;
  const IdBracket ids;
  static_cast<void>(::unlink(unfinished_.c_str()));
  const FileStream stream = OpenStream(path_, O_RDONLY, "rb");
  struct stat journal, store;
  if (!stream || ::fstat(fileno(stream.get()), &journal) != 0) return false;
  if (::stat(storePath_.c_str(), &store) != 0) {
    // the store was removed after the crash, and must not come back
    if (errno == ENOENT) static_cast<void>(::unlink(path_.c_str()));
    return false;
  }
  if (!IsTrusted(journal, store)) return false;
  if (ReadImageOf(stream.get(), journal, image)) return true;
  image.clear();
  static_cast<void>(::unlink(path_.c_str()));
  return false;
}

void StoreJournal::drop() noexcept {
  const IdBracket ids;
  static_cast<void>(::unlink(path_.c_str()));
  static_cast<void>(::unlink(unfinished_.c_str()));
}

}  // namespace certkern
