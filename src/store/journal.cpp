#include "store/journal.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/file.h"
#include "platform/id_bracket.h"
#include "platform/limits.h"
#include "platform/owner.h"
#include "store/store_file.h"

namespace certkern {
namespace {

constexpr std::array<BYTE, 8> kWholeMagic = {'C', 'K', 'J', 'O', 'U', 'R', 'N', '1'};
constexpr std::array<BYTE, 8> kPiecesMagic = {'C', 'K', 'J', 'O', 'U', 'R', 'N', '2'};
constexpr size_t kHeader = 24;
constexpr size_t kWord = 8;
constexpr size_t kPiecesHead = 5 * kWord;  // inode, rest, old size, new size, number of pieces
constexpr size_t kPieceHead = 2 * kWord;   // offset, length
constexpr char kSuffix[] = ".journal";
constexpr std::string_view kUnfinishedSuffix = ".journal-new-";
constexpr std::string_view kUnfinishedEnd = "XXXXXX";  // what mkostemp replaces

void PutWord(std::vector<BYTE>& out, uint64_t word) {
  for (size_t i = 0; i < kWord; ++i) out.push_back(static_cast<BYTE>(word >> (8 * i)));
}

uint64_t WordAt(std::span<const BYTE> bytes, size_t at) {
  uint64_t word = 0;
  for (size_t i = kWord; i--;) word = word << 8 | bytes[at + i];
  return word;
}

// What stands between the header and the bytes of the pieces; nothing for a whole image.
std::vector<BYTE> TableOf(const FileChange& change) {
  std::vector<BYTE> table;
  if (change.isWhole()) return table;
  for (const uint64_t word :
       {change.inode, change.rest, change.oldSize, change.newSize, uint64_t{change.pieces.size()}}) {
    PutWord(table, word);
  }
  for (const FilePiece& each : change.pieces) {
    PutWord(table, each.offset);
    PutWord(table, each.bytes.size());
  }
  return table;
}

std::vector<BYTE> HeaderOf(const FileChange& change, std::span<const BYTE> table) {
  uint64_t sum = Checksum(table);
  for (const FilePiece& each : change.pieces) sum = Checksum(each.bytes, sum);
  const auto& magic = change.isWhole() ? kWholeMagic : kPiecesMagic;
  std::vector<BYTE> header(magic.begin(), magic.end());
  PutWord(header, table.size() + change.bytes());
  PutWord(header, sum);
  return header;
}

bool WriteChange(std::FILE* stream, const FileChange& change) {
  const std::vector<BYTE> table = TableOf(change);
  return WriteFile(stream, HeaderOf(change, table)) && WriteFile(stream, table)
      && std::ranges::all_of(change.pieces,
                             [&](const FilePiece& each) { return WriteFile(stream, each.bytes); });
}

}  // namespace

bool ReadPieces(std::span<const BYTE> body, FileChange& change) {
  if (body.size() < kPiecesHead) return false;
  change.inode = WordAt(body, 0);
  change.rest = WordAt(body, kWord);
  change.oldSize = WordAt(body, 2 * kWord);
  change.newSize = WordAt(body, 3 * kWord);
  const uint64_t count = WordAt(body, 4 * kWord);
  if (!change.inode || change.newSize > kMaxStoreFile) return false;
  std::span<const BYTE> table = body.subspan(kPiecesHead);
  if (count > table.size() / kPieceHead) return false;
  std::span<const BYTE> bytes = table.subspan(count * kPieceHead);
  // a file grows by what is written into it: a few bytes must not become a large file of zeros
  if (change.newSize > bytes.size() && change.newSize - bytes.size() > change.oldSize) return false;
  for (size_t i = 0; i < count; ++i) {
    const uint64_t offset = WordAt(table, i * kPieceHead), length = WordAt(table, i * kPieceHead + kWord);
    if (length > bytes.size() || length > change.newSize || offset > change.newSize - length) return false;
    change.pieces.push_back({offset, bytes.first(length)});
    bytes = bytes.subspan(length);
  }
  return bytes.empty();
}

namespace {

std::string RealPath(const std::string& path) {
  const MallocOwner<char> real(::realpath(path.c_str(), nullptr));
  return real ? real.get() : path;
}

// A file name that would be too long for the file system is told by its checksum.
std::string JournalBase(const std::string& name) {
  std::string base(1, '.');
  if (name.size() + 1 + kUnfinishedSuffix.size() + kUnfinishedEnd.size() <= NAME_MAX)
    return base.append(name);
  const uint64_t sum = Checksum({reinterpret_cast<const BYTE*>(name.data()), name.size()});
  return base.append(name, 0, NAME_MAX / 2).append(1, '-').append(std::to_string(sum));
}

// Who holds the store file for unchanged by its times must look again before a journal stands, even if its maker dies with
// nothing else done. The maker may write the file, so this can't be refused.
void MarkAsChanged(const std::string& storePath) {
  static_cast<void>(::utimensat(AT_FDCWD, storePath.c_str(), nullptr, 0));
}

FileStream StreamOf(int descriptor, const char* mode) {
  if (descriptor < 0) return {};
  FileStream stream(::fdopen(descriptor, mode));
  if (!stream) ::close(descriptor);
  return stream;
}

int OpenJournal(const std::string& path, int access) {
  return ::open(path.c_str(), access | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
}

// Who may read the store may read what it is to hold, and nobody else. To write it is its maker's and owner's alone.
bool ShareLike(int descriptor, const struct stat& store) {
  if (::fchown(descriptor, store.st_uid, store.st_gid) != 0) {
    // not ours to give away, but perhaps to the group
    static_cast<void>(!::fchown(descriptor, static_cast<uid_t>(-1), store.st_gid));
  }
  struct stat made;
  if (::fstat(descriptor, &made) != 0) return false;
  const mode_t readers = store.st_mode & (S_IRGRP | S_IROTH);
  const bool evenSo = made.st_gid == store.st_gid || readers == (S_IRGRP | S_IROTH);
  return ::fchmod(descriptor, S_IRUSR | S_IWUSR | (evenSo ? readers : 0)) == 0;
}

// Whether a file's group tells that its maker was in it. A directory may hand its own group to whatever is made there.
bool MeansItsGroup(const struct stat& directory) { return !(directory.st_mode & S_IWOTH); }

// Only who may write the store file may say what it is to hold: not whoever can just make files beside it.
bool IsTrusted(const struct stat& journal, const struct stat& store, const struct stat& directory) {
  if (!S_ISREG(journal.st_mode) || journal.st_nlink != 1 || (journal.st_mode & (S_IWGRP | S_IWOTH)))
    return false;
  if (journal.st_uid == store.st_uid || journal.st_uid == ::geteuid() || journal.st_uid == 0) return true;
  if (store.st_mode & S_IWOTH) return true;
  return (store.st_mode & S_IWGRP) && journal.st_gid == store.st_gid && MeansItsGroup(directory);
}

using Kept = StoreJournal::Kept;

Kept ReadChangeOf(std::FILE* stream, const struct stat& status, KeptChange& kept) {
  const auto size = static_cast<uint64_t>(status.st_size);
  if (size < kHeader || size > kMaxJournal) return Kept::None;
  std::array<BYTE, kHeader> header;
  size_t count = 0;
  if (!ReadFile(stream, header, count)) return Kept::Unreadable;
  kept.bytes.resize(size - kHeader);
  if (!ReadFile(stream, kept.bytes, count)) return Kept::Unreadable;
  const std::span<const BYTE> body = kept.bytes;
  if (count != body.size() || WordAt(header, kWord) != body.size()
      || WordAt(header, 2 * kWord) != Checksum(body)) {
    return Kept::None;
  }
  if (std::ranges::equal(kWholeMagic, std::span(header).first<8>())) {
    kept.change = FileChange::Whole(body);
    return Kept::Whole;
  }
  const bool pieces = std::ranges::equal(kPiecesMagic, std::span(header).first<8>());
  return pieces && ReadPieces(body, kept.change) ? Kept::Whole : Kept::None;
}

Kept Unreadable(int error) {
  SetLastError(error == EACCES ? ERROR_ACCESS_DENIED : ERROR_OPEN_FAILED);
  return Kept::Unreadable;
}

// Whether somebody has written the file anew since, in its own place.
Kept CompareRest(const std::string& storePath, const FileChange& change) {
  const FileStream stream = StreamOf(::open(storePath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK), "rb");
  if (!stream) return Unreadable(errno);
  uint64_t rest = 0;
  if (!ChecksumOfRest(fileno(stream.get()), change, rest)) return Unreadable(errno);
  return rest == change.rest ? Kept::Whole : Kept::None;
}

}  // namespace

StoreJournal::StoreJournal(const std::string& storePath) : storePath_(RealPath(storePath)) {
  const size_t slash = storePath_.rfind('/');
  const size_t base = slash == std::string::npos ? 0 : slash + 1;
  directory_ = base ? storePath_.substr(0, base) : "./";
  std::string name = JournalBase(storePath_.substr(base));
  path_ = directory_ + name + kSuffix;
  unfinished_ = name.append(kUnfinishedSuffix);
}

std::string StoreJournal::unfinishedPath() const {
  return directory_ + unfinished_ + std::string(kUnfinishedEnd);
}

StoreJournal::Written StoreJournal::write(const FileChange& change) {
  const IdBracket ids;
  // a name that nobody else has: not even where there are no locks does one committer write into another's journal
  std::string unfinished = unfinishedPath();
  errno = 0;
  FileStream stream = StreamOf(::mkostemp(unfinished.data(), O_CLOEXEC), "wb");
  if (!stream) {
    if (errno == EACCES || errno == EPERM) return Written::NotAllowed;
    SetLastError(errno == ENOENT ? ERROR_FILE_NOT_FOUND : ERROR_WRITE_FAULT);
    return Written::Failed;
  }
  struct stat store;
  MarkAsChanged(storePath_);
  const bool complete = ::stat(storePath_.c_str(), &store) == 0 && ShareLike(fileno(stream.get()), store)
      && WriteChange(stream.get(), change) && FlushFile(stream.get()) && ::fsync(fileno(stream.get())) == 0
      && CloseFile(std::move(stream)) && ::rename(unfinished.c_str(), path_.c_str()) == 0;
  if (!complete) {
    static_cast<void>(::unlink(unfinished.c_str()));
    SetLastError(ERROR_WRITE_FAULT);
    return Written::Failed;
  }
  SyncDirectory(directory_);
  return Written::Safe;
}

StoreJournal::Kept StoreJournal::read(KeptChange& kept) {
  kept = {};
  const IdBracket ids;
  const FileStream stream = StreamOf(OpenJournal(path_, O_RDONLY), "rb");
  const int error = errno;
  struct stat journal, store, directory;
  const int told = stream ? ::fstat(fileno(stream.get()), &journal) : ::lstat(path_.c_str(), &journal);
  if (told != 0 || ::stat(directory_.c_str(), &directory) != 0) return Kept::None;
  if (::stat(storePath_.c_str(), &store) != 0) {
    // the store was removed after the crash, and must not come back
    if (errno == ENOENT) static_cast<void>(::unlink(path_.c_str()));
    return Kept::None;
  }
  if (!IsTrusted(journal, store, directory)) return Kept::None;
  if (!stream) return Unreadable(error);
  Kept found = ReadChangeOf(stream.get(), journal, kept);
  // pieces of another file would only damage this one
  if (found == Kept::Whole && !kept.change.isWhole()) {
    const bool isOfStore = kept.change.isFor(store) && journal.st_dev == store.st_dev;
    found = isOfStore ? CompareRest(storePath_, kept.change) : Kept::None;
  }
  if (found == Kept::Whole) return found;
  kept = {};
  if (found == Kept::None) static_cast<void>(::unlink(path_.c_str()));
  return found;
}

void StoreJournal::drop() noexcept {
  const IdBracket ids;
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) empty();
}

// In a directory that is not ours a journal that is may still be taken for damaged from now on.
void StoreJournal::empty() noexcept {
  const FileStream stream = StreamOf(OpenJournal(path_, O_WRONLY), "ab");
  struct stat journal;
  if (!stream || ::fstat(fileno(stream.get()), &journal) != 0) return;
  if (!S_ISREG(journal.st_mode) || journal.st_nlink != 1) return;
  if (::ftruncate(fileno(stream.get()), 0) == 0) static_cast<void>(::fsync(fileno(stream.get())));
}

void StoreJournal::dropUnfinished() noexcept {
  const IdBracket ids;
  const Owner<DIR*, ::closedir> directory(::opendir(directory_.c_str()));
  if (!directory) return;
  while (const dirent* const entry = ::readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name.size() != unfinished_.size() + kUnfinishedEnd.size() || !name.starts_with(unfinished_)) continue;
    static_cast<void>(::unlinkat(::dirfd(directory.get()), entry->d_name, 0));
  }
}

}  // namespace certkern
