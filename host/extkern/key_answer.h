// Memory of answers, from the allocator that the caller brought. All pieces are given back, unless keep() is called on the
// last line.
#ifndef CERTKERN_EXTKERN_KEY_ANSWER_H
#define CERTKERN_EXTKERN_KEY_ANSWER_H

#include <certkern/msg_envelope.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <span>
#include <string_view>
#include <vector>

namespace extkern {

class KeyAnswer {
 public:
  explicit KeyAnswer(const CMSG_CONTENT_ENCRYPT_INFO& content)
      : allocate_(content.pfnAlloc), free_(content.pfnFree) {}
  KeyAnswer(const KeyAnswer&) = delete;
  KeyAnswer& operator=(const KeyAnswer&) = delete;
  ~KeyAnswer() {
    for (void* piece : pieces_) free_(piece);
  }

  // A copy; throws std::bad_alloc.
  CRYPT_DATA_BLOB bytes(std::span<const BYTE> bytes) {
    auto* memory = static_cast<BYTE*>(take(bytes.size()));
    if (!bytes.empty()) std::memcpy(memory, bytes.data(), bytes.size());
    return {static_cast<DWORD>(bytes.size()), memory};
  }
  LPSTR text(std::string_view text) {
    auto* memory = static_cast<char*>(take(text.size() + 1));
    *std::copy(text.begin(), text.end(), memory) = '\0';
    return memory;
  }

  void keep() { pieces_.clear(); }

 private:
  void* take(size_t size) {
    pieces_.reserve(pieces_.size() + 1);  // so that nothing can fail once there is memory
    void* memory = allocate_(size ? size : 1);
    if (!memory) throw std::bad_alloc();
    pieces_.push_back(memory);
    return memory;
  }

  const PFN_CMSG_ALLOC allocate_;
  const PFN_CMSG_FREE free_;
  std::vector<void*> pieces_;
};

}  // namespace extkern

#endif
