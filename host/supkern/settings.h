// The configuration of this process: read on first need, by whichever thread comes first. What this library does itself
// (directories, trace) follows what it found then; the operations for others see a changed file within a second.
#ifndef CERTKERN_SUPKERN_SETTINGS_H
#define CERTKERN_SUPKERN_SETTINGS_H

#include <optional>
#include <string>
#include <string_view>

#include "supkern/configuration.h"

namespace certkern::support {

// As first found. Lives until the process ends and never changes.
const Configuration& Settings();

// A setting of the wanted kind; nothing when it is absent or of another kind.
std::optional<std::string> TextSetting(std::string_view path);
std::optional<int64_t> LongSetting(std::string_view path);

}  // namespace certkern::support

#endif
