// The journal of a store file: the whole new image, made safe beside the file before the file is rewritten in place. A
// crash at any instant leaves the file whole, or a journal that is. Whoever opens the file next finishes the rewriting.
//
// The name begins with a full stop, in the directory of the file itself where the path is a symbolic link. It appears
// by a rename, so it is complete, and holds a checksum for disks that order their writes otherwise. All functions are
// called under the lock of the store file, and take on the caller's ids.
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

  // The image of a whole journal that somebody made who may write the store file anyway. A journal of anybody else is
  // let lie; a damaged one, or one without its store file, is dropped.
  [[nodiscard]] bool read(std::vector<BYTE>& image);

  void drop() noexcept;

  const std::string& path() const { return path_; }

 private:
  std::string storePath_;
  std::string directory_;
  std::string path_;
  std::string unfinished_;  // the journal until it is complete
};

}  // namespace certkern

#endif
