// The journal of a store file: the whole new image, made safe beside the file before the file is rewritten in place. A
// crash at any instant leaves the file whole, or a journal that is. Whoever opens the file next finishes the rewriting.
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

namespace certkern {

class StoreJournal {
 public:
  // Of a file that exists, or did.
  explicit StoreJournal(const std::string& storePath);

  enum class Written { Safe, NotAllowed, Failed };
  // Replaces a journal that is there. NotAllowed: the directory takes no files of ours, and nothing was changed.
  // Failed, with ERROR_FILE_NOT_FOUND (no directory) or ERROR_WRITE_FAULT: the same.
  [[nodiscard]] Written write(std::span<const BYTE> image);

  enum class Kept { None, Whole, Unreadable };
  // The image of a whole journal that somebody made who may write the store file anyway. A journal of anybody else is
  // let lie; a damaged one, or one without its store file, is dropped. Unreadable, with ERROR_ACCESS_DENIED or one of
  // file.h: there is one that counts, so the store file itself may be half of anything.
  [[nodiscard]] Kept read(std::vector<BYTE>& image);

  // Takes the journal away, and what was left of others that were never finished.
  void drop() noexcept;

  const std::string& path() const { return path_; }

 private:
  void empty() noexcept;
  void dropUnfinished() noexcept;

  std::string storePath_;
  std::string directory_;
  std::string path_;
  std::string unfinished_;  // how the names begin that a journal has until it is complete
};

}  // namespace certkern

#endif
