// Trace contexts. What is switched on is read from the configuration when a context is first asked, not when
// it is made: contexts are made while libraries load, and nothing is read at that time.
#include "supkern/trace.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <mutex>

#include "platform/supkern.h"
#include "supkern/guard.h"
#include "supkern/settings.h"
#include "supkern/trace_record.h"
#include "supkern/trace_sink.h"

namespace certkern::support {

namespace {

constexpr unsigned kLevelBits = 6;
constexpr unsigned kAllLevels = (1u << kLevelBits) - 1;
constexpr unsigned kErrorLevel = 1;
constexpr unsigned kDebugLevel = 8;
constexpr unsigned kUnresolved = 1u << 31;  // a bit that no group reaches
constexpr size_t kMaxModuleName = 31;
constexpr size_t kMaxContexts = 64;
constexpr support_db_ctx kHandleMark = support_db_ctx{0x54524345} << 32;

// Callers ask with a level's bit in any of five groups of six bits, so a level that is on is on in all five.
constexpr unsigned InAllGroups(unsigned levels) {
  unsigned mask = 0;
  for (unsigned group = 0; group < 5; ++group) mask |= levels << (group * kLevelBits);
  return mask;
}
static_assert(InAllGroups(1) == 0x1041041 && InAllGroups(2) == 0x2082082);
static_assert(InAllGroups(4) == 0x4104104 && InAllGroups(16) == 0x10410410);
static_assert((InAllGroups(kAllLevels) & kUnresolved) == 0);

class ErrnoKeeper {
 public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int saved_;
};

// Module and limit are set once and the slot is never given to another module, so that a handle that was
// released too early finds tracing off, never freed memory.
struct TraceContext {
  char module[kMaxModuleName + 1];
  unsigned limit;
  std::atomic<unsigned> users;
  std::atomic<unsigned> mask;
  std::atomic<TraceSink*> sink;
};

constinit std::array<TraceContext, kMaxContexts> contexts{};
constinit std::atomic<size_t> contextCount = 0;
constinit std::mutex contextMutex;

support_db_ctx OpenContext(const char* module, unsigned limit) {
  if (!module || !*module || std::strlen(module) > kMaxModuleName) return 0;
  const std::lock_guard lock(contextMutex);
  const size_t count = contextCount.load();
  size_t index = 0;
  while (index < count
         && (contexts[index].limit != limit || std::strcmp(contexts[index].module, module) != 0)) {
    ++index;
  }
  if (index == kMaxContexts) return 0;
  TraceContext& context = contexts[index];
  if (index == count) {
    std::memcpy(context.module, module, std::strlen(module) + 1);
    context.limit = limit;
    context.mask.store(kUnresolved);
    contextCount.store(count + 1);
  }
  ++context.users;
  return kHandleMark | (index + 1);
}

// The context of a handle in use, else null.
TraceContext* FindContext(support_db_ctx handle) {
  const support_db_ctx index = (handle ^ kHandleMark) - 1;  // anything but our mark comes out far too large
  if (index >= contextCount.load()) return nullptr;
  TraceContext& context = contexts[index];
  return context.users.load(std::memory_order_relaxed) ? &context : nullptr;
}

// The levels that the configuration switches on for a module.
unsigned ConfiguredLevels(const std::string& module) {
  const int64_t levels = LongSetting("\\trace\\" + module + "\\level").value_or(0);
  if (levels >= 0 && levels <= int64_t{kAllLevels}) return static_cast<unsigned>(levels);
  ComplainOnStandardError("trace." + module + ".level is not between 0 and " + std::to_string(kAllLevels));
  return 0;
}

unsigned Resolve(TraceContext& context) {
  const std::string module = context.module;
  unsigned mask = InAllGroups(ConfiguredLevels(module) & context.limit);
  if (mask) {
    auto sink = TextSetting("\\trace\\" + module + "\\sink");
    if (!sink) sink = TextSetting("\\trace\\sink");
    context.sink.store(FindTraceSink(sink.value_or("stderr")));
    if (!context.sink.load()) mask = 0;
  }
  context.mask.store(mask);
  return mask;
}

unsigned MaskOf(TraceContext& context) {
  const unsigned mask = context.mask.load();
  if (mask != kUnresolved) [[likely]]
    return mask;
  const ErrnoKeeper keeper;
  return Guarded(0u, [&] {
    const unsigned resolved = Resolve(context);
    ReportConfigurationFaults();
    return resolved;
  });
}

// Writes when any of the levels is on, under the name of the first.
void Write(support_db_ctx handle, unsigned anyOf, const TraceOrigin& origin, const char* format,
           va_list arguments) {
  TraceContext* context = FindContext(handle);
  if (!context || !format || !(MaskOf(*context) & anyOf)) return;
  const ErrnoKeeper keeper;
  Guarded(0, [&] {
    TraceOrigin named = origin;
    named.module = context->module;
    context->sink.load()->write(origin.level, FormatTraceRecord(named, format, arguments));
    return 0;
  });
}

[[gnu::format(printf, 2, 3)]] void WriteOwn(const TraceOrigin& origin, const char* format, ...) {
  static const support_db_ctx own = OpenContext("supkern", kAllLevels);
  va_list arguments;
  va_start(arguments, format);
  Write(own, kErrorLevel, origin, format, arguments);
  va_end(arguments);
}

}  // namespace

void TraceError(const char* function, const std::string& text, int line) {
  WriteOwn({nullptr, kErrorLevel, "", line, function}, "%s", text.c_str());
}

void ReportConfigurationFaults() {
  static std::atomic<bool> reported = false;
  if (reported.load(std::memory_order_acquire) || reported.exchange(true)) return;
  for (const auto& fault : Settings().faults()) TraceError("configuration", fault.describe());
}

}  // namespace certkern::support

using namespace certkern::support;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

support_db_ctx support_print_init2(const char* /*parameters*/, const char* module, int /*reserved*/,
                                   unsigned level_limit) {
  const ErrnoKeeper keeper;
  return Guarded(support_db_ctx{0}, [&] { return OpenContext(module, level_limit); });
}

support_db_ctx support_print_init(const char* parameters, const char* module, int reserved,
                                  unsigned level_limit) {
  return support_print_init2(parameters, module, reserved, level_limit);
}

void support_print_done(support_db_ctx context) {
  const ErrnoKeeper keeper;
  Guarded(0, [&] {
    const std::lock_guard lock(contextMutex);
    if (TraceContext* found = FindContext(context)) --found->users;
    return 0;
  });
}

int support_print_is(support_db_ctx context, unsigned mask) {
  TraceContext* found = FindContext(context);
  return found && (MaskOf(*found) & mask) != 0;
}

void support_print(support_db_ctx context, unsigned level, const char* format, int /*reserved1*/,
                   int /*reserved2*/, const char* file, int line, const char* function, va_list arguments) {
  Write(context, level & kAllLevels, {nullptr, level, file, line, function}, format, arguments);
}

// Callers have asked with a mask of their own, for the debug or the cache level, which is not passed on.
void support_dprint_print_(support_db_ctx context, const char* format, const char* file, int line,
                           const char* function, ...) {
  va_list arguments;
  va_start(arguments, function);
  Write(context, kAllLevels, {nullptr, kDebugLevel, file, line, function}, format, arguments);
  va_end(arguments);
}

void support_elprint_print_(support_db_ctx context, const char* format, const char* file, int line,
                            const char* function, ...) {
  va_list arguments;
  va_start(arguments, function);
  Write(context, kErrorLevel, {nullptr, kErrorLevel, file, line, function}, format, arguments);
  va_end(arguments);
}

}  // extern "C"
