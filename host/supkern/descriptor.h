// Owns an open file descriptor.
#ifndef CERTKERN_SUPKERN_DESCRIPTOR_H
#define CERTKERN_SUPKERN_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace certkern::support {

class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() {
    if (descriptor_ < 0) return;
    const int saved = errno;
    close(descriptor_);
    errno = saved;
  }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_;
};

}  // namespace certkern::support

#endif
