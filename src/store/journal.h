// The journal of a store file: what is to be done to the file, made safe beside it before the file is changed in place. A
// crash at any instant leaves the file whole, or a journal that is. Whoever opens the file next finishes the change.
//
//   header  "CKJOURN1" or "CKJOURN2"; the length of what follows and its checksum, 64 bits each, little-endian
//   1       a whole image
//   2       words of 64 bits: inode of the store file, checksum of what the pieces leave as it is, old and new size, number
//           of pieces, offset and length of each; then the bytes of all pieces. Good for that inode only, on the disk that
//           the journal lies on itself, and only where inodes keep their numbers
//
// The name begins with a full stop, in the directory of the file itself where the path is a symbolic link. It appears
// by a rename, so it is complete, and holds a checksum for disks that order their writes otherwise. Whoever may read the
// store file may read it. All functions are called under the locks of the store file, and take on the caller's ids.
#ifndef CERTKERN_STORE_JOURNAL_H
#define CERTKERN_STORE_JOURNAL_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <vector>

#include "store/file_change.h"

namespace certkern {

// A change that was read, with its bytes.
struct KeptChange {
  std::vector<BYTE> bytes;
  FileChange change;
};

// The body of the second form. False unless the pieces lie one behind the other, and inside the file that they are for.
[[nodiscard]] bool ReadPieces(std::span<const BYTE> body, FileChange& change);

class StoreJournal {
 public:
  // Of a file that exists, or did.
  explicit StoreJournal(const std::string& storePath);

  enum class Written { Safe, NotAllowed, Failed };
  // Replaces a journal that is there. NotAllowed: the directory takes no files of ours, and nothing was changed.
  // Failed, with ERROR_FILE_NOT_FOUND (no directory) or ERROR_WRITE_FAULT: the same.
  [[nodiscard]] Written write(const FileChange& change);
  [[nodiscard]] Written write(std::span<const BYTE> image) { return write(FileChange::Whole(image)); }

  enum class Kept { None, Whole, Unreadable };
  // The change of a whole journal that somebody made who may write the store file anyway. A journal of anybody else is
  // let lie; a damaged one, or one whose store file is gone or another, is dropped. Unreadable, with ERROR_ACCESS_DENIED or one of
  // file.h: there is one that counts, so the store file itself may be half of anything.
  [[nodiscard]] Kept read(KeptChange& kept);

  // Takes the journal away.
  void drop() noexcept;
  // Takes away what committers have left who died before their journals were finished. For whoever has the store file for
  // himself: nobody is writing one then.
  void dropUnfinished() noexcept;

  const std::string& path() const { return path_; }
  // Of a file that is to become the journal, or the store file itself: so it goes with dropUnfinished. For mkostemp.
  std::string unfinishedPath() const;

 private:
  void empty() noexcept;

  std::string storePath_;
  std::string directory_;
  std::string path_;
  std::string unfinished_;  // how the names begin that a journal has until it is complete
};

}  // namespace certkern

#endif
