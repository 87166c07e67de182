#include "platform/trace.h"

#include <certkern/keykern.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include "platform/owner.h"

constinit support_db_ctx pkivalidator_db_ctx = 0;

namespace certkern {
namespace {

std::atomic<bool> chainDetailWanted{false};

}  // namespace

constinit support_db_ctx certkern_db_ctx = 0;
constinit LazyTraceContext certkern_lazy_db_ctx("certkern");

void CloseTraceContext(support_db_ctx& slot) {
  // out of the slot first: a thread that looks from now on finds none
  if (const support_db_ctx context = std::atomic_ref(slot).exchange(0)) support_print_done(context);
}

void OpenTraceContext(support_db_ctx& slot, const char* module) {
  CloseTraceContext(slot);
  std::atomic_ref(slot).store(support_print_init2(nullptr, module, 0, kTraceLevelLimit));
}

support_db_ctx LazyTraceContext::get() {
  if (!armed_.load(std::memory_order_acquire)) return 0;
  if (const support_db_ctx context = slot_.load(std::memory_order_acquire)) return context;
  const std::lock_guard lock(mutex_);
  if (!armed_.load(std::memory_order_relaxed)) return 0;
  if (!slot_.load(std::memory_order_relaxed)) {
    const LastErrorKeeper keeper;
    slot_.store(support_print_init(nullptr, module_, 0, kTraceLevelLimit), std::memory_order_release);
  }
  return slot_.load(std::memory_order_relaxed);
}

void LazyTraceContext::disarm() {
  const std::lock_guard lock(mutex_);
  armed_.store(false, std::memory_order_release);
  if (const support_db_ctx context = slot_.exchange(0)) support_print_done(context);
}

bool ChainDetailWanted() { return chainDetailWanted.load(std::memory_order_relaxed); }

void ReadChainDetailWish() { chainDetailWanted = std::getenv("SV_PRINT_CHAIN_DETAIL") != nullptr; }

namespace trace_detail {

StateKeeper::StateKeeper() : lastError_(GetLastError()), errno_(errno) {}

StateKeeper::~StateKeeper() {
  SetLastError(lastError_);
  errno = errno_;
}

void WriteRecord(support_db_ctx context, TraceLevel level, const char* function, int line, const char* format,
                 ...) {
  const StateKeeper keeper;
  if (!support_print_is(context, TraceMask(level))) return;
  va_list arguments;
  va_start(arguments, format);
  support_print(context, static_cast<unsigned>(level), format, 0, 0, "", line, function, arguments);
  va_end(arguments);
}

}  // namespace trace_detail
}  // namespace certkern
