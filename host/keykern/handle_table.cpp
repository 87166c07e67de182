#include "keykern/handle_table.h"

#include <atomic>
#include <mutex>
#include <new>

namespace keykern {
namespace {

// The state of a slot: generation, openings and pins in one word.
constexpr unsigned kPinBits = 22;
constexpr unsigned kOpeningBits = 20;
constexpr unsigned kGenerationBits = 22;
static_assert(kPinBits + kOpeningBits + kGenerationBits == 64);

constexpr uint64_t kOnePin = 1;
constexpr uint64_t kOneOpening = kOnePin << kPinBits;
constexpr uint64_t kOneGeneration = kOneOpening << kOpeningBits;
constexpr uint64_t kPins = kOneOpening - kOnePin;
constexpr uint64_t kOpenings = kOneGeneration - kOneOpening;
constexpr uint64_t kInUse = kPins | kOpenings;

constexpr uint32_t kChunkSlots = 1024;
constexpr uint32_t kChunks = 4096;
constexpr uint32_t kSlots = kChunkSlots * kChunks;

// A handle: the generation above 32 bits, the kind above 28, the slot's number below.
constexpr unsigned kKindShift = 28;
constexpr unsigned kGenerationShift = 32;
constexpr uint64_t kNumberMask = (uint64_t{1} << kKindShift) - 1;
static_assert(kSlots <= kNumberMask && kGenerationShift + kGenerationBits < 64);

}  // namespace

namespace handle_detail {

// A cache line each, so that threads that work on neighbours don't slow each other down.
struct alignas(64) Slot {
  std::atomic<uint64_t> state{0};
  std::atomic<uint32_t> nextFree{0};  // number of a slot plus 1
  uint32_t number = 0;
  Kind kind{};
  std::unique_ptr<HandleObject> object;
};

}  // namespace handle_detail

namespace {

using handle_detail::Slot;

// Chunks are made as they are needed and never given back, so that a stale handle always leads to a slot.
constinit std::atomic<Slot*> chunks[kChunks] = {};
// The last freed slot: its number plus 1, and above 32 bits a count of changes, by which a thread that was overtaken
// between reading and writing finds out.
constinit std::atomic<uint64_t> freeSlots{0};
constinit std::mutex growth;
constinit uint32_t chunkCount = 0;  // under growth

// Null where the table has not grown to yet.
Slot* ChunkOf(uint32_t number) { return chunks[number / kChunkSlots].load(std::memory_order_acquire); }

void PushFree(Slot& slot) {
  uint64_t head = freeSlots.load(std::memory_order_relaxed);
  uint64_t next;
  do {
    slot.nextFree.store(static_cast<uint32_t>(head), std::memory_order_relaxed);
    next = ((head >> 32) + 1) << 32 | (slot.number + 1);
  } while (
      !freeSlots.compare_exchange_weak(head, next, std::memory_order_release, std::memory_order_relaxed));
}

Slot* PopFree() {
  uint64_t head = freeSlots.load(std::memory_order_acquire);
  while (static_cast<uint32_t>(head)) {
    const uint32_t number = static_cast<uint32_t>(head) - 1;
    Slot* slot = ChunkOf(number) + number % kChunkSlots;
    const uint64_t next = ((head >> 32) + 1) << 32 | slot->nextFree.load(std::memory_order_relaxed);
    if (freeSlots.compare_exchange_weak(head, next, std::memory_order_acquire)) return slot;
  }
  return nullptr;
}

Slot* TakeSlot() {
  if (Slot* slot = PopFree()) return slot;
  const std::lock_guard lock(growth);
  if (Slot* slot = PopFree()) return slot;  // another thread has grown the table meanwhile
  if (chunkCount == kChunks) throw std::bad_alloc();
  Slot* chunk = std::make_unique<Slot[]>(kChunkSlots).release();
  for (uint32_t i = 0; i < kChunkSlots; ++i) chunk[i].number = chunkCount * kChunkSlots + i;
  chunks[chunkCount++].store(chunk, std::memory_order_release);
  for (uint32_t i = kChunkSlots - 1; i > 0; --i) PushFree(chunk[i]);
  return &chunk[0];
}

// Nobody uses the slot any more, and nobody can begin to: its handle counts no opening.
void Retire(Slot& slot) {
  slot.object.reset();
  const uint64_t generation = slot.state.load(std::memory_order_relaxed) & ~kInUse;
  const uint64_t next = generation + kOneGeneration;
  slot.state.store(next, std::memory_order_release);
  // once its generations are used up, an old handle would come to life again: the slot rests for good
  if (next) PushFree(slot);
}

uint64_t GenerationOf(uint64_t state) { return state / kOneGeneration; }

// The slot that a handle names, if it could be one at all.
Slot* Locate(ULONG_PTR handle, Kind kind) {
  const uint64_t number = handle & kNumberMask;
  const uint64_t handleKind = handle >> kKindShift & 0xF;
  if (number >= kSlots || handleKind != static_cast<uint64_t>(kind)) return nullptr;
  Slot* chunk = ChunkOf(static_cast<uint32_t>(number));
  return chunk ? &chunk[number % kChunkSlots] : nullptr;
}

// Adds to a live slot's counts, unless that count is full. Null when the handle is not live.
Slot* Count(ULONG_PTR handle, Kind kind, uint64_t one, uint64_t mask) {
  Slot* slot = Locate(handle, kind);
  if (!slot) return nullptr;
  uint64_t state = slot->state.load(std::memory_order_relaxed);
  do {
    if (GenerationOf(state) != handle >> kGenerationShift || !(state & kOpenings)) return nullptr;
    if ((state & mask) == mask) return nullptr;
  } while (!slot->state.compare_exchange_weak(state, state + one, std::memory_order_acquire,
                                              std::memory_order_relaxed));
  return slot;
}

}  // namespace

namespace handle_detail {

ULONG_PTR Open(std::unique_ptr<HandleObject> object, Kind kind) {
  Slot* slot = TakeSlot();
  slot->object = std::move(object);
  slot->kind = kind;
  const uint64_t state = slot->state.load(std::memory_order_relaxed);
  slot->state.store(state + kOneOpening, std::memory_order_release);
  return GenerationOf(state) << kGenerationShift | static_cast<uint64_t>(kind) << kKindShift | slot->number;
}

Slot* Pin(ULONG_PTR handle, Kind kind) noexcept {
  Slot* slot = Count(handle, kind, kOnePin, kPins);
  if (!slot || slot->kind == kind) return slot;
  Unpin(*slot);  // a made-up handle
  return nullptr;
}

void PinAgain(Slot& slot) noexcept { slot.state.fetch_add(kOnePin, std::memory_order_relaxed); }

void Unpin(Slot& slot) noexcept {
  const uint64_t before = slot.state.fetch_sub(kOnePin, std::memory_order_acq_rel);
  if (((before - kOnePin) & kInUse) == 0) Retire(slot);
}

HandleObject* ObjectOf(const Slot& slot) noexcept { return slot.object.get(); }

bool OpenAgain(ULONG_PTR handle, Kind kind) noexcept {
  Slot* slot = Pin(handle, kind);
  if (!slot) return false;
  const bool opened = Count(handle, kind, kOneOpening, kOpenings) != nullptr;
  Unpin(*slot);
  return opened;
}

bool Close(ULONG_PTR handle, Kind kind) noexcept {
  Slot* slot = Pin(handle, kind);
  if (!slot) return false;
  // two threads may both have found one opening left: only one of them may take it
  uint64_t state = slot->state.load(std::memory_order_relaxed);
  bool closed;
  do {
    closed = (state & kOpenings) != 0;
  } while (closed
           && !slot->state.compare_exchange_weak(state, state - kOneOpening, std::memory_order_acq_rel,
                                                 std::memory_order_relaxed));
  Unpin(*slot);
  return closed;
}

}  // namespace handle_detail

}  // namespace keykern
