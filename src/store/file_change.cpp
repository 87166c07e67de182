#include "store/file_change.h"

#include <certkern/errors.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

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

// Reads at most to the end of the file.
bool ReadAt(int descriptor, uint64_t offset, std::span<BYTE> bytes, size_t& count) {
  for (count = 0; count < bytes.size();) {
    const ssize_t read =
        ::pread(descriptor, bytes.data() + count, bytes.size() - count, static_cast<off_t>(offset + count));
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) return false;
    if (read == 0) break;
    count += static_cast<size_t>(read);
  }
  return true;
}

// --- what pieces leave as it is ---

struct Range {
  uint64_t from, to;
};

// A foreign file differs within so many bytes, with all likelihood: serial numbers, keys and signatures are in them.
constexpr uint64_t kRestNearPiece = 128, kRestNearEnds = 1024;

// In front of the end of the smaller file, in their order, and none reaches into another.
std::vector<Range> RestOf(const FileChange& change) {
  const uint64_t end = std::min(change.oldSize, change.newSize);
  std::vector<Range> touched,
      near = {
          {0,                  std::min(end,   kRestNearEnds)},
          {end - std::min(end, kRestNearEnds), end           }
  };
  for (const FilePiece& each : change.pieces) {
    const uint64_t from = std::min(each.offset, end), to = std::min(each.offset + each.bytes.size(), end);
    touched.push_back({from, to});
    near.push_back({from - std::min(from, kRestNearPiece), std::min(to + kRestNearPiece, end)});
  }
  std::ranges::sort(touched, {}, &Range::from);
  std::ranges::sort(near, {}, &Range::from);
  std::vector<Range> rest;
  uint64_t done = 0;
  auto next = touched.begin();
  for (const Range& each : near) {
    for (done = std::max(done, each.from); done < each.to;) {
      while (next != touched.end() && next->to <= done) ++next;
      const uint64_t free = next == touched.end() ? each.to : std::min(each.to, std::max(done, next->from));
      if (free > done) rest.push_back({done, free});
      done = next == touched.end() ? free : std::max(free, std::min(each.to, next->to));
    }
  }
  return rest;
}

}  // namespace

uint64_t Checksum(std::span<const BYTE> bytes, uint64_t sum) {
  for (const BYTE byte : bytes) sum = (sum ^ byte) * 0x100000001B3u;
  return sum;
}

bool ChecksumOfRest(int descriptor, const FileChange& change, uint64_t& sum) {
  sum = kEmptyChecksum;
  std::vector<BYTE> bytes;
  for (const Range& each : RestOf(change)) {
    bytes.resize(each.to - each.from);
    size_t count = 0;
    if (!ReadAt(descriptor, each.from, bytes, count)) return false;
    sum = Checksum(std::span(bytes).first(count), sum);
  }
  return true;
}

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

bool RewriteDurably(int descriptor, std::span<const BYTE> image) {
  constexpr BYTE kNoMagic[8] = {};
  const size_t head = std::min(image.size(), std::size(kNoMagic));
  const auto size = static_cast<off_t>(image.size());
  struct stat file;
  if (::fstat(descriptor, &file) != 0 || (file.st_size < size && ::ftruncate(descriptor, size) != 0))
    return Fault(ERROR_WRITE_FAULT);
  const bool written = WriteAt(descriptor, {0, std::span(kNoMagic).first(head)}) && ::fsync(descriptor) == 0
      && WriteAt(descriptor, {head, image.subspan(head)}) && ::fsync(descriptor) == 0
      && WriteAt(descriptor, {0, image.first(head)}) && ::ftruncate(descriptor, size) == 0
      && ::fsync(descriptor) == 0;
  return written || Fault(ERROR_WRITE_FAULT);
}

void MakeInMemory(std::vector<BYTE>& content, const FileChange& change) {
  content.resize(std::max<size_t>(content.size(), change.newSize));
  for (const FilePiece& each : change.pieces) {
    std::ranges::copy(each.bytes, content.begin() + static_cast<std::ptrdiff_t>(each.offset));
  }
  content.resize(change.newSize);
}

}  // namespace certkern
