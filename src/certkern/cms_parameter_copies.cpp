#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include "certkern/cms_attributes.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

// Where the fields of a record end.
constexpr size_t kSignedInfoFields[] = {8, 16, 20, 32, 36, 48, 52, 64};
constexpr size_t kSignerFields[] = {96, 136, 160, 168};
constexpr size_t kEnvelopedInfoFields[] = {16, 40, 48, 52, 64, 72, 76, 88, 92, 104, 108, 120, 124, 136};
constexpr size_t kHashedInfoFields[] = {16, 40, 48};
constexpr size_t kSignMessageFields[] = {8, 16, 40, 48, 52, 64, 68, 80, 84, 96, 100, 112, 116, 120, 144, 152};

// A signer record up to its SignerId, which came later.
constexpr size_t kShortestSigner = offsetof(CMSG_SIGNER_ENCODE_INFO, SignerId);

// Into zeroed memory. Half a field is worse than none.
template <class Record>
void CopyFields(Record& copy, const Record& given, std::span<const size_t> fieldEnds) {
  const auto past = std::ranges::upper_bound(fieldEnds, size_t{given.cbSize});
  if (past != fieldEnds.begin()) std::memcpy(static_cast<void*>(&copy), &given, *(past - 1));
  copy.cbSize = given.cbSize;
}

template <class Record>
Record* CopyRecord(const Record& given, std::span<const size_t> fieldEnds, MemoryChain& chain) {
  auto* const copy = static_cast<Record*>(SvCmsAttrAlloc(&chain, sizeof(Record)));
  if (copy) CopyFields(*copy, given, fieldEnds);
  return copy;
}

void CopySigner(CMSG_SIGNER_ENCODE_INFO& copy, const CMSG_SIGNER_ENCODE_INFO& given) {
  if (given.cbSize < kShortestSigner) throw CryptException(ERROR_INVALID_PARAMETER);
  CopyFields(copy, given, kSignerFields);
  copy.cbSize = sizeof copy;
}

}  // namespace

struct alignas(16) MemoryChain::Block {
  Block* older;
  void* payload;
};

MemoryChain::~MemoryChain() {
  while (newest_) std::free(std::exchange(newest_, newest_->older));
}

void* SvCmsAttrAlloc(MemoryChain* pMemChain, size_t size) {
  using Block = MemoryChain::Block;
  void* const memory =
      pMemChain && size <= SIZE_MAX - sizeof(Block) ? std::calloc(1, sizeof(Block) + size) : nullptr;
  if (!memory) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  pMemChain->newest_ = new (memory) Block{pMemChain->newest_, static_cast<BYTE*>(memory) + sizeof(Block)};
  return pMemChain->newest_->payload;
}

CMSG_SIGNED_ENCODE_INFO FullSignedEncodeInfo(const CMSG_SIGNED_ENCODE_INFO& info) {
  CMSG_SIGNED_ENCODE_INFO full{};
  CopyFields(full, info, kSignedInfoFields);
  return full;
}

CRYPT_SIGN_MESSAGE_PARA FullSignMessagePara(const CRYPT_SIGN_MESSAGE_PARA& para) {
  CRYPT_SIGN_MESSAGE_PARA full{};
  CopyFields(full, para, kSignMessageFields);
  return full;
}

CMSG_SIGNED_ENCODE_INFO* CopySignedEncodeInfo(const CMSG_SIGNED_ENCODE_INFO& info, MemoryChain& chain) {
  CMSG_SIGNED_ENCODE_INFO head = FullSignedEncodeInfo(info);
  const size_t signers = head.rgSigners ? head.cSigners : 0;
  auto* const block =
      static_cast<BYTE*>(SvCmsAttrAlloc(&chain, sizeof head + signers * sizeof(CMSG_SIGNER_ENCODE_INFO)));
  if (!block) return nullptr;
  const auto* given = reinterpret_cast<const BYTE*>(head.rgSigners);
  auto* const copies = reinterpret_cast<CMSG_SIGNER_ENCODE_INFO*>(block + sizeof head);
  for (size_t i = 0; i < signers; ++i) {
    const auto& signer = *reinterpret_cast<const CMSG_SIGNER_ENCODE_INFO*>(given);
    CopySigner(copies[i], signer);
    given += signer.cbSize;
  }
  if (signers != 0) head.rgSigners = copies;
  return new (block) CMSG_SIGNED_ENCODE_INFO(head);
}

CMSG_SIGNER_ENCODE_INFO* CopySignerEncodeInfo(const CMSG_SIGNER_ENCODE_INFO& info, MemoryChain& chain) {
  auto* const copy =
      static_cast<CMSG_SIGNER_ENCODE_INFO*>(SvCmsAttrAlloc(&chain, sizeof(CMSG_SIGNER_ENCODE_INFO)));
  if (copy) CopySigner(*copy, info);
  return copy;
}

CMSG_ENVELOPED_ENCODE_INFO* CopyEnvelopedEncodeInfo(const CMSG_ENVELOPED_ENCODE_INFO& info,
                                                    MemoryChain& chain) {
  auto* const copy = CopyRecord(info, kEnvelopedInfoFields, chain);
  if (copy) copy->cbSize = std::max<DWORD>(copy->cbSize, sizeof *copy);
  return copy;
}

CMSG_HASHED_ENCODE_INFO* CopyHashedEncodeInfo(const CMSG_HASHED_ENCODE_INFO& info, MemoryChain& chain) {
  return CopyRecord(info, kHashedInfoFields, chain);
}

CRYPT_SIGN_MESSAGE_PARA* CopySignMessagePara(const CRYPT_SIGN_MESSAGE_PARA& para, MemoryChain& chain) {
  return CopyRecord(para, kSignMessageFields, chain);
}

}  // namespace certkern
