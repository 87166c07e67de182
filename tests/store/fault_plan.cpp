#include "store/fault_plan.h"

#include <cstddef>
#include <cstdlib>

namespace {

thread_local int countdown = 0;  // allocations until the one that fails; 0: none does
thread_local bool failed = true;

bool FailsNow() {
  if (!countdown || --countdown) return false;
  failed = true;
  return true;
}

}  // namespace

namespace certkern::test {

bool FaultPlan::next() {
  if (round_ && !failed) return false;
  ++round_;
  failed = false;
  return true;
}

void FaultPlan::arm() const { countdown = round_; }
void FaultPlan::disarm() { countdown = 0; }

}  // namespace certkern::test

// the linker sends the calls here
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);

void* __wrap_malloc(size_t size) { return FailsNow() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) { return FailsNow() ? nullptr : __real_calloc(count, size); }
}

void* operator new(size_t size) {
  void* const memory = FailsNow() ? nullptr : __real_malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
