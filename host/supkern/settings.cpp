// The process's configuration and the operations that read it.
#include "supkern/settings.h"

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <mutex>

#include "platform/supkern.h"
#include "supkern/environment.h"
#include "supkern/guard.h"
#include "supkern/text_result.h"
#include "supkern/trace.h"
#include "supkern/trace_sink.h"

namespace certkern::support {

namespace {

constexpr char kSystemConfiguration[] = "/etc/certkern/config.toml";

// What tells one state of a file from another without reading it; all zero when there is none.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::array<timespec, 2> changed{};  // content, then anything

  explicit FileStamp(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return;
    device = status.st_dev;
    inode = status.st_ino;
    size = status.st_size;
    changed = {status.st_mtim, status.st_ctim};
  }
  bool operator==(const FileStamp& other) const {
    const auto same = [](const timespec& a, const timespec& b) {
      return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    return device == other.device && inode == other.inode && size == other.size
        && same(changed[0], other.changed[0]) && same(changed[1], other.changed[1]);
  }
};

struct Layer {
  std::string path;
  Presence presence;
};

// The strongest first. The environment decides once: what a program changes in it later is not meant for us.
const std::vector<Layer>& Layers() {
  static const std::vector<Layer>& layers = *new std::vector<Layer>([] {
    const std::string onlyFile = Variable("CERTKERN_CONFIG");
    if (!onlyFile.empty())
      return std::vector<Layer>{
          {onlyFile, Presence::Required}
      };
    std::vector<Layer> found;
    // A set-id program must not load the libraries that its caller's own file names.
    const std::string user = IsSetId() ? std::string() : UserDirectory("XDG_CONFIG_HOME", ".config");
    if (!user.empty()) found.push_back({user + "/certkern/config.toml", Presence::Optional});
    found.push_back({kSystemConfiguration, Presence::Optional});
    return found;
  }());
  return layers;
}

std::vector<FileStamp> StampLayers() {
  std::vector<FileStamp> stamps;
  for (const Layer& layer : Layers()) stamps.emplace_back(layer.path);
  return stamps;
}

std::shared_ptr<const Configuration> ReadConfiguration() {
  auto configuration = std::make_shared<Configuration>();
  for (const Layer& layer : Layers()) configuration->addFile(layer.path, layer.presence);
  for (const auto& fault : configuration->faults()) ComplainOnStandardError(fault.describe());
  return configuration;
}

// The configuration as the files have it now, or had it a moment ago. Whoever holds one may go on reading it.
class LiveConfiguration {
 public:
  std::shared_ptr<const Configuration> get() {
    const std::scoped_lock hold(lock_);
    const Clock::time_point now = Clock::now();
    if (now - looked_ >= kPatience) look(now);
    return current_;
  }

 private:
  using Clock = std::chrono::steady_clock;
  // Settings are asked for in loops; the files are not looked at each time.
  static constexpr std::chrono::milliseconds kPatience{500};

  // Stamped before it is read: a change in between is seen the next time.
  void look(Clock::time_point now) {
    std::vector<FileStamp> stamps = StampLayers();
    if (stamps != stamps_) {
      current_ = ReadConfiguration();
      stamps_ = std::move(stamps);
    }
    looked_ = now;
  }

  std::mutex lock_;
  Clock::time_point looked_ = Clock::now();
  std::vector<FileStamp> stamps_ = StampLayers();
  std::shared_ptr<const Configuration> current_ = ReadConfiguration();
};

LiveConfiguration& Live() {
  static LiveConfiguration& live = *new LiveConfiguration;  // other libraries' exit handlers may still ask
  return live;
}

// The value at a path by way of `take`, which answers whether the kind was right.
template <class Take>
int Lookup(const char* path, Take take) {
  return Guarded<int>(ERROR_NOT_ENOUGH_MEMORY, [&]() -> int {
    ReportConfigurationFaults();
    const std::shared_ptr<const Configuration> settings = Live().get();
    const ConfigurationValue* value = settings->find(path);
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
  static const auto* const kept = new std::shared_ptr(Live().get());  // never freed, but always to be reached
  return **kept;
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
