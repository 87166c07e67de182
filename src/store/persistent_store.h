// Stores in files: by a stream of the caller, by path, and system stores, whose path comes from their name. Their
// contents are in memory as any store's; the whole file is read at the open and written at a commit.
#ifndef CERTKERN_STORE_PERSISTENT_STORE_H
#define CERTKERN_STORE_PERSISTENT_STORE_H

#include <string>
#include <string_view>

#include "store/store_kind.h"

namespace certkern {

// Load functions. A stream is the store's only once it is loaded.
[[nodiscard]] bool LoadStreamStore(CertStore& store, const void* parameter);
[[nodiscard]] bool LoadPathStore(CertStore& store, const void* parameter);
[[nodiscard]] bool LoadSystemStore(CertStore& store, const void* parameter);

// Of a stream or path store that was opened for commits; of every system store.
[[nodiscard]] bool CommitFileStore(CertStore& store, CommitTime time);
[[nodiscard]] bool CommitSystemStore(CertStore& store, CommitTime time);

// Takes over what the file holds by now, and drops what was never committed. A file that is provably the one that was read
// is left alone; another reading that finds the same costs a comparison, and no element is made.
[[nodiscard]] bool ResyncSystemStore(CertStore& store);

void ReleaseStoreFile(CertStore& store) noexcept;

// Providers named by a narrow text, for the wide one that is the next number.
StoreHandle OpenByNarrowText(const OpenRequest& request);

// The name of the lock that guards a file in all processes.
std::string StoreLockName(std::string_view path);
// Empty with ERROR_PATH_NOT_FOUND, ERROR_BAD_PATHNAME (a name that would lead out of the directory), or the code of the
// conversion.
std::string SystemStorePath(const std::wstring& name, DWORD flags);

}  // namespace certkern

#endif
