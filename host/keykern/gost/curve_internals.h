// What the files of this folder share: the numbers of the curves, and what a curve can do, whatever field it is over.
#ifndef CERTKERN_KEYKERN_GOST_CURVE_INTERNALS_H
#define CERTKERN_KEYKERN_GOST_CURVE_INTERNALS_H

#include "keykern/gost/curve.h"

#include <array>
#include <atomic>
#include <memory>

namespace keykern::gost {

inline constexpr int kCurveCount = 9;
inline constexpr size_t kMaxNumberSize = 64;

// y^2 = x^3 + ax + b over the field of p elements; (x, y) makes a group of the prime order q, which is the whole curve
// where the cofactor is 1. Hexadecimal, big-endian.
struct CurveNumbers {
  DWORD bits;
  int cofactorLog2;
  const char* p;
  const char* a;
  const char* b;
  const char* q;
  const char* x;
  const char* y;
};
const CurveNumbers& NumbersOf(int curve);

// What is made on first use and never given back. Without a lock, which a fork could leave taken: who comes second
// throws his own away.
template <class T>
class MadeOnce {
 public:
  // make: what answers a unique_ptr, which may be null
  template <class Make>
  const T* get(const Make& make) const {
    if (const T* ready = slot_.load(std::memory_order_acquire)) return ready;
    std::unique_ptr<const T> made = make();
    const T* first = nullptr;
    if (!made || !slot_.compare_exchange_strong(first, made.get(), std::memory_order_acq_rel)) return first;
    return made.release();
  }

 private:
  mutable std::atomic<const T*> slot_ = nullptr;
};

// Strings are as in curve.h. Their lengths, and private numbers, have been checked.
class Curve {
 public:
  static std::unique_ptr<const Curve> make(const CurveNumbers& numbers);
  virtual ~Curve() = default;
  Curve(const Curve&) = delete;
  Curve& operator=(const Curve&) = delete;

  size_t size() const { return size_; }
  std::span<const BYTE> orderBytes() const { return std::span(orderBytes_).first(size_); }

  virtual bool publicOf(std::span<const BYTE> number, std::span<BYTE> point) const = 0;
  virtual bool isPublic(std::span<const BYTE> point) const = 0;
  // False when r or s is 0: another k is needed.
  virtual bool sign(std::span<const BYTE> number, std::span<const BYTE> hash, std::span<const BYTE> k,
                    std::span<BYTE> signature) const = 0;
  virtual bool verify(std::span<const BYTE> point, std::span<const BYTE> hash,
                      std::span<const BYTE> signature) const = 0;
  virtual void multiplyNumbers(std::span<const BYTE> a, std::span<const BYTE> b,
                               std::span<BYTE> product) const = 0;
  // ukm: of any length
  virtual bool sharedPoint(std::span<const BYTE> number, std::span<const BYTE> ukm,
                           std::span<const BYTE> point, std::span<BYTE> shared) const = 0;

 protected:
  explicit Curve(size_t size) : size_(size) {}
  std::span<BYTE> orderBytes() { return std::span(orderBytes_).first(size_); }

 private:
  size_t size_;
  std::array<BYTE, kMaxNumberSize> orderBytes_{};
};

}  // namespace keykern::gost

#endif
