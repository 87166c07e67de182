// What the library takes from its surroundings: the environment, the home directory, the place that it was
// loaded from.
#ifndef CERTKERN_SUPKERN_ENVIRONMENT_H
#define CERTKERN_SUPKERN_ENVIRONMENT_H

#include <string>

namespace certkern::support {

// Whether the kernel gave this program ids or capabilities that its caller does not have. What the caller
// controls, variables and files in the home, must then not steer it.
bool IsSetId();

// An environment variable; empty when it is unset, and always in a set-id program.
std::string Variable(const char* name);

// The home directory of the user that the program acts for; empty when there is none.
std::string HomeDirectory();

// $variable when it is an absolute path, else `fallback` below the home directory; empty when there is
// neither.
std::string UserDirectory(const char* variable, const char* fallback);

// The directory that this library was loaded from; empty when that cannot be told.
std::string LibraryDirectory();

}  // namespace certkern::support

#endif
