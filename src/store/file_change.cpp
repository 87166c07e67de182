#include "store/file_change.h"

#include <certkern/errors.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "ber/read_cursor.h"

namespace certkern {
namespace {

bool WriteAt(int descriptor, FilePiece piece) {
  while (!piece.bytes.empty()) {
    const ssize_t written =
        ::pwrite(descriptor, piece.bytes.data(), piece.bytes.size(), static_cast<off_t>(piece.offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    piece.bytes = piece.bytes.subspan(static_cast<size_t>(written));
    piece.offset += static_cast<uint64_t>(written);
  }
  return true;
}

}  // namespace

FileChange FileChange::Whole(std::span<const BYTE> image) {
  FileChange change;
  change.pieces.push_back({0, image});
  change.newSize = image.size();
  return change;
}

bool FileChange::isFor(const struct stat& file) const {
  if (isWhole()) return true;
  const auto size = static_cast<uint64_t>(file.st_size);
  return file.st_ino == inode && size >= std::min(oldSize, newSize) && size <= std::max(oldSize, newSize);
}

uint64_t FileChange::bytes() const {
  uint64_t sum = 0;
  for (const FilePiece& each : pieces) sum += each.bytes.size();
  return sum;
}

bool MakeDurably(int descriptor, const FileChange& change) {
  const bool made =
      std::ranges::all_of(change.pieces, [&](const FilePiece& each) { return WriteAt(descriptor, each); })
      && ::ftruncate(descriptor, static_cast<off_t>(change.newSize)) == 0 && ::fsync(descriptor) == 0;
  return made || Fault(ERROR_WRITE_FAULT);
}

void MakeInMemory(std::vector<BYTE>& content, const FileChange& change) {
  content.resize(std::max<size_t>(content.size(), change.newSize));
  for (const FilePiece& each : change.pieces) {
    std::ranges::copy(each.bytes, content.begin() + static_cast<std::ptrdiff_t>(each.offset));
  }
  content.resize(change.newSize);
}

}  // namespace certkern
