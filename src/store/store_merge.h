// From the changes of a store and what its file holds to what the file is to hold.
#ifndef CERTKERN_STORE_STORE_MERGE_H
#define CERTKERN_STORE_STORE_MERGE_H

#include <vector>

#include "store/file_change.h"
#include "store/persistent_content.h"
#include "store/store_record.h"

namespace certkern {

// What is to be written, where everything stands then, and the bytes of it.
struct PlannedChange {
  FileChange change;
  FileLayout layout;  // but for the file's marks
  StoreChanges::Places places;
  ImageBytes bytes{ImageBytes::Mode::Keep};
};

// For a file of any content: a whole new image. What others have added stays, in front of what this store has; what they
// have taken out does not come back, whatever was done to it here. Of equal objects each stands for one; what was added here
// takes the place of an equal one that others have added. An object that was only changed here gets its properties, any
// other keeps those of the file. False with ERROR_NOT_ENOUGH_MEMORY.
[[nodiscard]] bool MergeChanges(CertStore& store, const StoreContent& file, const StoreChanges& changes,
                                PlannedChange& plan);

// For a file that is certain to hold what this store last read or wrote: pieces of it, no larger than the changes
// themselves. No plan and no code: a property has changed its size, too much of the file would be dead, or others have added
// what was added here. Takes the
// file's present size.
enum class Patched { Yes, NotPossible, Failed };
[[nodiscard]] Patched PatchChanges(CertStore& store, const StoreChanges& changes, const struct stat& file,
                                   PlannedChange& plan);

}  // namespace certkern

#endif
