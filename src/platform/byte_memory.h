// Memory for bytes that are written before they are read.
#ifndef CERTKERN_PLATFORM_BYTE_MEMORY_H
#define CERTKERN_PLATFORM_BYTE_MEMORY_H

#include <certkern/types.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace certkern {

struct FreeBytes {
  void operator()(BYTE* bytes) const { std::free(bytes); }
};
using ByteMemory = std::unique_ptr<BYTE[], FreeBytes>;

// Not zeroed: room that is never used must not cost memory. Much of it comes in large pages where the host has any: to have
// a small one given takes longer than to fill it. Throws std::bad_alloc.
ByteMemory AllocateBytes(size_t size);

}  // namespace certkern

#endif
