// Trace records: contexts, levels, and the functions that write them. A record never changes a result, the last error
// or errno. With no context a record costs one load and one branch; nothing else happens, and nothing else changes.
//
// Arguments are read while the record is written and never kept. Hand %s and %S only text that this call itself has
// seen to end in a NUL: a caller's unchecked pointer goes out with %p.
#ifndef CERTKERN_PLATFORM_TRACE_H
#define CERTKERN_PLATFORM_TRACE_H

#include <certkern/types.h>

#include <atomic>
#include <mutex>

#include "platform/supkern.h"
#include "platform/trace_text.h"

// The context of the chain policy functions, and one of the library's two exported data symbols.
extern "C" CERTKERN_API support_db_ctx
    pkivalidator_db_ctx;  // NOLINT(readability-redundant-declaration): <certkern/sv.h> has it for callers

namespace certkern {

enum class TraceLevel : unsigned {
  TRACE_ERROR = 1,     // failures
  TRACE_EXPECTED = 2,  // a search that found nothing
  TRACE_CALL = 4,      // entries and successful returns
  TRACE_RESULT = 16,   // diagnostics of a result
};
using enum TraceLevel;

// A level is on when any of the five groups of six bits has it.
constexpr unsigned TraceMask(TraceLevel level) { return static_cast<unsigned>(level) * 0x01041041u; }
static_assert(TraceMask(TRACE_CALL) == 0x4104104 && TraceMask(TRACE_RESULT) == 0x10410410);

// Single bits beside the levels, each for one kind of diagnostics.
inline constexpr unsigned kTraceMaskLazy = 1;
inline constexpr unsigned kTraceMaskPolicy = 8;
inline constexpr unsigned kTraceMaskCache = 32;

inline constexpr unsigned kTraceLevelLimit = 127;

// The context of everything else. Declared hidden, so that reading it takes one load and not two.
[[gnu::visibility("hidden")]] extern support_db_ctx certkern_db_ctx;

// Fills a slot anew, giving back what it held; a context that cannot be had leaves it 0, and tracing off.
void OpenTraceContext(support_db_ctx& slot, const char* module);
void CloseTraceContext(support_db_ctx& slot);

inline support_db_ctx LoadTraceContext(support_db_ctx& slot) {
  return std::atomic_ref(slot).load(std::memory_order_relaxed);
}

// A context made by its first user. Only while armed: between start-up and exit.
class LazyTraceContext {
 public:
  constexpr explicit LazyTraceContext(const char* module) : module_(module) {}
  void arm() { armed_.store(true, std::memory_order_release); }
  void disarm();
  // 0 while disarmed or when no context can be had; the last error stays as it is.
  support_db_ctx get();

 private:
  const char* const module_;
  std::atomic<bool> armed_{false};
  std::atomic<support_db_ctx> slot_{0};
  std::mutex mutex_;  // has no destructor to run, so that a thread inside get() at exit keeps a whole one
};

// The context of the signed-attribute helpers.
[[gnu::visibility("hidden")]] extern LazyTraceContext certkern_lazy_db_ctx;

// True when SV_PRINT_CHAIN_DETAIL stood in the environment at load: the chain engine then tells its search on standard
// output.
bool ChainDetailWanted();
void ReadChainDetailWish();  // start-up only

namespace trace_detail {

// Keeps what a caller may look at after a record: the last error and errno.
class StateKeeper {
 public:
  StateKeeper();
  ~StateKeeper();
  StateKeeper(const StateKeeper&) = delete;
  StateKeeper& operator=(const StateKeeper&) = delete;

 private:
  const DWORD lastError_;
  const int errno_;
};

[[gnu::cold]] void WriteRecord(support_db_ctx context, TraceLevel level, const char* function, int line,
                               const char* format, ...);

using DiagnosticWriter = decltype(&support_dprint_print_);

template <class... Args>
[[gnu::cold, gnu::noinline]] void WriteDiagnostic(DiagnosticWriter write, support_db_ctx context,
                                                  unsigned mask, const char* function, int line,
                                                  const char* format, Args... args) {
  const StateKeeper keeper;
  if (support_print_is(context, mask)) write(context, format, "", line, function, args...);
}

}  // namespace trace_detail

// Writes a record under the name of the function that it stands in.
template <class... Args>
void Trace(TraceLevel level, TraceTextFor<Args...> text, Args... args) {
  if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]] {
    trace_detail::WriteRecord(context, level, text.function, text.line, text.format, args...);
  }
}

// The same under another name: that of the exported function whose step this is.
template <class... Args>
void TraceAs(const char* function, TraceLevel level, TraceTextFor<Args...> text, Args... args) {
  if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]] {
    trace_detail::WriteRecord(context, level, function, text.line, text.format, args...);
  }
}

// Diagnostics of the chain policies.
template <class... Args>
void TracePolicy(TraceTextFor<Args...> text, Args... args) {
  if (const support_db_ctx context = LoadTraceContext(pkivalidator_db_ctx)) [[unlikely]] {
    trace_detail::WriteDiagnostic(support_dprint_print_, context, kTraceMaskPolicy, text.function, text.line,
                                  text.format, args...);
  }
}

// Diagnostics of the URL cache.
template <class... Args>
void TraceCache(TraceTextFor<Args...> text, Args... args) {
  if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]] {
    trace_detail::WriteDiagnostic(support_dprint_print_, context, kTraceMaskCache, text.function, text.line,
                                  text.format, args...);
  }
}

// Records of the signed-attribute helpers.
template <class... Args>
void TraceLazy(TraceTextFor<Args...> text, Args... args) {
  if (const support_db_ctx context = certkern_lazy_db_ctx.get()) {
    trace_detail::WriteDiagnostic(support_elprint_print_, context, kTraceMaskLazy, text.function, text.line,
                                  text.format, args...);
  }
}

}  // namespace certkern

#endif
