// Where containers lie, and how their names become file names.
#ifndef CERTKERN_KEYKERN_CONTAINER_PATHS_H
#define CERTKERN_KEYKERN_CONTAINER_PATHS_H

#include "keykern/container/container.h"
#include "keykern/container/files.h"

#include <string>
#include <string_view>

namespace keykern {

// Names that no container can have, for one never begins with a full stop.
inline constexpr char kLockFile[] = ".lock";
// With random digits behind, so that one that cannot be cleared away is in nobody's way.
inline constexpr char kNewDirectory[] = ".new-";  // a container until it is whole
inline constexpr char kOldDirectory[] = ".old-";  // a container that is being destroyed

// The directory that all containers of a scope lie in, made when it is missing. NTE_PERM: not ours to use, or others
// can write to it; NTE_KEYSET_NOT_DEF: there is no such place.
DWORD OpenKeysDirectory(Scope scope, Directory& directory);

// A name without the reader's prefix. NTE_KEYSET_NOT_DEF: of another reader; NTE_BAD_KEYSET_PARAM: no possible name:
// empty, with another reader in front, with control characters, no UTF-8, or too long once it is a file name.
DWORD StripReader(std::string_view given, std::string& name);
// Percent-encoded, but for letters, digits, '-', '_' and what is not ASCII: no name leads elsewhere, and none is hidden.
std::string ToFileName(std::string_view name);
// False for what ToFileName does not make.
bool FromFileName(std::string_view fileName, std::string& name);

}  // namespace keykern

#endif
