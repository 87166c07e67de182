// What a commit does to a store file: a whole new content, or pieces of one. Either can be done again after a crash, as
// often as it takes, with the same result.
#ifndef CERTKERN_STORE_FILE_CHANGE_H
#define CERTKERN_STORE_FILE_CHANGE_H

#include <certkern/types.h>

#include <sys/stat.h>

#include <cstdint>
#include <span>
#include <vector>

namespace certkern {

struct FilePiece {
  uint64_t offset;
  std::span<const BYTE> bytes;
};

// Borrows the bytes.
struct FileChange {
  std::vector<FilePiece> pieces;  // none reaches beyond newSize
  uint64_t newSize = 0;
  // What pieces are for: a file of this number, and between these two sizes while the change is half done. 0: any file, the
  // pieces are all of it.
  uint64_t inode = 0;
  uint64_t oldSize = 0;
  uint64_t rest = 0;  // see ChecksumOfRest

  static FileChange Whole(std::span<const BYTE> image);
  bool isWhole() const { return inode == 0; }
  bool isFor(const struct stat& file) const;
  uint64_t bytes() const;
};

// A checksum over bytes of a file that pieces leave as they are: near the pieces, at the start, in front of the end. It is the
// same before, amidst and after the change, and tells a file that somebody has written anew meanwhile. False when the file
// can't be read.
[[nodiscard]] bool ChecksumOfRest(int descriptor, const FileChange& change, uint64_t& sum);

// FNV-1a: damage is what it finds, not malice.
inline constexpr uint64_t kEmptyChecksum = 0xCBF29CE484222325u;
uint64_t Checksum(std::span<const BYTE> bytes, uint64_t sum = kEmptyChecksum);

// All of it is on the disk in the end. Blocks that ReserveFile has made sure of are not given up on the way. Else
// ERROR_WRITE_FAULT.
[[nodiscard]] bool MakeDurably(int descriptor, const FileChange& change);
// A whole store without a journal. The file is made large enough first, which can be refused while nothing is lost; its room
// is not given up on the way. From then until the end it has no magic, so nobody takes a mixture for a store. Else
// ERROR_WRITE_FAULT.
[[nodiscard]] bool RewriteDurably(int descriptor, std::span<const BYTE> image);
// As MakeDurably, with what was read of the file.
void MakeInMemory(std::vector<BYTE>& content, const FileChange& change);

}  // namespace certkern

#endif
