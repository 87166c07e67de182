// The ids that files of stores are opened with.
//
// A thread opens files as its file system ids say, which the kernel keeps equal to the effective ids. A
// program that changes its effective ids on its own (a server that acts for a user for a while) has said by
// that whom it acts for, and nothing is to be done: going back to the real ids would give it more rights than
// it asked for. Only a program that got its effective ids from a set-id file acts for somebody else than they
// say: for the user who started it, in whose home the stores are. There the file system ids become the real
// ones for the length of the bracket. They are the thread's own in every respect: no other thread sees them
// change, as it would with seteuid, which the C library spreads over all threads. Taking the real ids can
// never add rights: it is left undone when the real user is root.
#include <sys/fsuid.h>
#include <unistd.h>

#include <cerrno>

#include "platform/supkern.h"
#include "supkern/environment.h"

namespace {

constexpr auto kNoUser = static_cast<uid_t>(-1);
constexpr auto kNoGroup = static_cast<gid_t>(-1);

struct FileIds {
  uid_t user;
  gid_t group;
};

struct Bracket {
  unsigned depth;
  bool changed;
  FileIds before;
};
constinit thread_local Bracket bracket{};

// An id that cannot be set changes nothing, so this reads them.
FileIds CurrentFileIds() {
  return {static_cast<uid_t>(setfsuid(kNoUser)), static_cast<gid_t>(setfsgid(kNoGroup))};
}

// The calls tell no errors but the ids that were; so one looks afterwards. The group goes first: a user that
// is no longer privileged could not change it.
bool SetFileIds(const FileIds& ids) {
  setfsgid(ids.group);
  setfsuid(ids.user);
  const FileIds now = CurrentFileIds();
  return now.user == ids.user && now.group == ids.group;
}

// Back the other way: the user first, who may then change the group.
bool RestoreFileIds(const FileIds& ids) {
  setfsuid(ids.user);
  return SetFileIds(ids);
}

}  // namespace

extern "C" {

int support_thread_actualize_uids(void) {
  if (bracket.depth++) return 0;
  const FileIds real{getuid(), getgid()};
  bracket.changed = false;
  if (!certkern::support::IsSetId() || real.user == 0) return 0;
  bracket.before = CurrentFileIds();
  if (bracket.before.user == real.user && bracket.before.group == real.group) return 0;
  if (!SetFileIds(real)) {
    RestoreFileIds(bracket.before);
    bracket.depth = 0;
    return errno = EPERM;
  }
  bracket.changed = true;
  return 0;
}

int support_thread_deactualize_uids(void) {
  if (!bracket.depth) return errno = EINVAL;
  if (--bracket.depth || !bracket.changed) return 0;
  bracket.changed = false;
  return RestoreFileIds(bracket.before) ? 0 : errno = EPERM;
}

}  // extern "C"
