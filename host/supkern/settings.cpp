// The process's configuration and the operations that read it.
#include "supkern/settings.h"

#include "platform/supkern.h"
#include "supkern/environment.h"
#include "supkern/guard.h"
#include "supkern/text_result.h"
#include "supkern/trace.h"
#include "supkern/trace_sink.h"

namespace certkern::support {

namespace {

constexpr char kSystemConfiguration[] = "/etc/certkern/config.toml";

std::unique_ptr<Configuration> ReadConfiguration() {
  auto configuration = std::make_unique<Configuration>();
  const std::string onlyFile = Variable("CERTKERN_CONFIG");
  if (!onlyFile.empty()) {
    configuration->addFile(onlyFile, Presence::Required);
    return configuration;
  }
  // A set-id program must not load the libraries that its caller's own file names.
  const std::string user = IsSetId() ? std::string() : UserDirectory("XDG_CONFIG_HOME", ".config");
  if (!user.empty()) configuration->addFile(user + "/certkern/config.toml", Presence::Optional);
  configuration->addFile(kSystemConfiguration, Presence::Optional);
  return configuration;
}

const Configuration& ReadAndComplain() {
  // Never destroyed: other libraries' exit handlers may still ask.
  const Configuration& configuration = *ReadConfiguration().release();
  for (const auto& fault : configuration.faults()) ComplainOnStandardError(fault.describe());
  return configuration;
}

// The value at a path by way of `take`, which answers whether the kind was right.
template <class Take>
int Lookup(const char* path, Take take) {
  return Guarded<int>(ERROR_NOT_ENOUGH_MEMORY, [&]() -> int {
    ReportConfigurationFaults();
    const ConfigurationValue* value = Settings().find(path);
    if (!value) return ERROR_FILE_NOT_FOUND;
    return take(*value);
  });
}

std::optional<int64_t> AsLong(const ConfigurationValue& value) {
  if (const auto* number = std::get_if<int64_t>(&value)) return *number;
  if (const auto* truth = std::get_if<bool>(&value)) return *truth ? 1 : 0;
  return std::nullopt;
}

}  // namespace

const Configuration& Settings() {
  static const Configuration& configuration = ReadAndComplain();
  return configuration;
}

std::optional<std::string> TextSetting(std::string_view path) {
  const ConfigurationValue* value = Settings().find(path);
  const auto* text = value ? std::get_if<std::string>(value) : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

std::optional<int64_t> LongSetting(std::string_view path) {
  const ConfigurationValue* value = Settings().find(path);
  return value ? AsLong(*value) : std::nullopt;
}

}  // namespace certkern::support

using namespace certkern::support;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

int support_registry_get_long(const char* path, int64_t* value) {
  if (!path || !value) return ERROR_INVALID_PARAMETER;
  return Lookup(path, [&](const ConfigurationValue& found) -> int {
    const std::optional<int64_t> number = AsLong(found);
    if (!number) return kWrongKind;
    *value = *number;
    return 0;
  });
}

int support_registry_get_bool(const char* path, int* value) {
  if (!path || !value) return ERROR_INVALID_PARAMETER;
  return Lookup(path, [&](const ConfigurationValue& found) -> int {
    const std::optional<int64_t> number = AsLong(found);
    if (!number) return kWrongKind;
    *value = *number != 0;
    return 0;
  });
}

int support_registry_get_string(const char* path, size_t* size, char* buffer) {
  if (!path || !size) return ERROR_INVALID_PARAMETER;
  return Lookup(path, [&](const ConfigurationValue& found) -> int {
    const auto* text = std::get_if<std::string>(&found);
    return text ? CopyText(*text, size, buffer) : kWrongKind;
  });
}

}  // extern "C"
