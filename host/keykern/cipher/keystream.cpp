#include "keykern/cipher/keystream.h"

#include <algorithm>
#include <cstring>

namespace keykern {
namespace {

// Blocks are made in batches: a call of the library below costs as much as a block.
constexpr size_t kBatch = 4096;

}  // namespace

KeystreamCipher::KeystreamCipher(std::unique_ptr<KeystreamSource> source)
    : source_(std::move(source)), buffer_(kBatch) {}

bool KeystreamCipher::process(std::span<BYTE> data) {
  while (!data.empty()) {
    if (begin_ == end_ && !refill(data.size())) return false;
    const size_t count = std::min(data.size(), end_ - begin_);
    for (size_t i = 0; i < count; ++i) data[i] ^= buffer_[begin_ + i];
    begin_ += count;
    data = data.subspan(count);
  }
  return true;
}

bool KeystreamCipher::refill(size_t wanted) {
  const size_t block = source_->blockSize();
  const size_t size = wanted >= kBatch ? kBatch : (wanted + block - 1) / block * block;
  if (!source_->generate(std::span(buffer_).first(size))) return false;
  begin_ = 0;
  end_ = size;
  return true;
}

}  // namespace keykern
