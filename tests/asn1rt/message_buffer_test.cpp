// Contexts, their heap and first error, the buffers over them, and the control objects over those.
#include "asn1rt/message_buffer.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "api/frame.h"
#include "asn1rt/bit_string.h"
#include "asn1rt/sample_types.h"
#include "platform/limits.h"
#include "support/hex.h"

using namespace certkern;
using namespace sample;

TEST(Asn1Context, KeepsTheFirstError) {
  const std::vector<BYTE> input = FromHex("30 03 02 01 05  30 04 02 02 05");
  ASN1BERDecodeBuffer buffer(input.data(), input.size());
  ASN1T_Growing value;
  ASN1C_Growing control(buffer, value);
  EXPECT_EQ(control.Decode(), ASN1_OK);
  EXPECT_EQ(control.Decode(), ASN1_E_END_OF_INPUT);
  EXPECT_EQ(buffer.context().errorOffset(), 5u);
  buffer.context().setPosition(2);
  EXPECT_EQ(control.Decode(), ASN1_E_WRONG_TAG);
  EXPECT_EQ(buffer.GetStatus(), ASN1_E_END_OF_INPUT);
  EXPECT_EQ(buffer.context().errorText(), "ASN.1 ERROR: Status -1\n");
  EXPECT_EQ(buffer.Init(kDecodeMode), ASN1_OK);
  EXPECT_EQ(buffer.GetStatus(), ASN1_OK);
  EXPECT_EQ(control.Decode(), ASN1_OK);
}

TEST(Asn1Context, HeapRefusesTheLargestAndAlignsTheRest) {
  const auto context = ASN1ContextPtr::Create();
  for (const uint64_t size : {kAsn1AllocationRefused, uint64_t{UINT32_MAX}, UINT64_MAX - 6, UINT64_MAX}) {
    context->clearStatus();
    EXPECT_EQ(context->allocate(size), nullptr) << size;
    EXPECT_EQ(context->status(), ASN1_E_NO_MEMORY);
  }
  uint8_t* last = nullptr;
  for (size_t size = 0; size < 30000; size = size * 3 / 2 + 1) {
    auto* const piece = static_cast<uint8_t*>(context->allocate(size));
    ASSERT_NE(piece, nullptr);
    EXPECT_NE(piece, last);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(piece) % 8, 0u);
    for (size_t i = 0; i < size; ++i) ASSERT_EQ(piece[i], 0);
    std::fill_n(piece, size, 0xFF);  // of the next ones, none may show this
    last = piece;
  }
}

TEST(Asn1Context, LivesAsLongAsItsLastHolder) {
  ASN1ContextPtr held;
  const uint8_t* copy = nullptr;
  {
    ASN1BEREncodeBuffer buffer;
    ASN1T_Growing value{};
    const ASN1C_Growing control(buffer, value);
    held = buffer.GetContextPtr();
    EXPECT_EQ(held->references(), 3);
    copy = held->copy(FromHex("AB"));
  }
  EXPECT_EQ(held->references(), 1);
  EXPECT_EQ(*copy, 0xAB);
}

TEST(Asn1EncodeBuffer, HandsOutAndStartsAnew) {
  ASN1BEREncodeBuffer buffer;
  EXPECT_EQ(buffer.GetMsgCopy(), nullptr);
  EXPECT_EQ(buffer.GetMsgPtr(), nullptr);
  ASN1T_Growing value{5, true};
  ASN1C_Growing control(buffer, value);
  ASSERT_EQ(control.Encode(), 5);
  ASSERT_EQ(control.Encode(), 5);  // a message of its own each time
  EXPECT_EQ(ToHex({buffer.GetMsgPtr(), buffer.GetMsgLen()}), "3003020105");
  const std::unique_ptr<BYTE[]> copy(buffer.GetMsgCopy());
  EXPECT_EQ(ToHex({copy.get(), 5}), "3003020105");
  EXPECT_EQ(buffer.GetMsgCopy(), nullptr);
  const std::vector<BYTE> stored = FromHex("0500");
  EXPECT_EQ(buffer.StoreMessage({2, stored.data()}), ASN1_OK);
  EXPECT_EQ(ToHex({buffer.GetMsgPtr(), buffer.GetMsgLen()}), "0500");
  EXPECT_EQ(buffer.StoreMessage({2, nullptr}), ASN1_E_BAD_VALUE);
  EXPECT_EQ(buffer.StoreText("x"), -99);
  EXPECT_TRUE(buffer.IsA(kEncodeMode) && !buffer.IsA(kDecodeMode));
}

TEST(Asn1DecodeBuffer, BorrowsItsInput) {
  const std::vector<BYTE> input = FromHex("3003020105");
  ASN1BERDecodeBuffer buffer(input.data(), input.size());
  EXPECT_EQ(buffer.GetMsgPtr(), input.data());
  EXPECT_TRUE(!buffer.IsA(kEncodeMode) && buffer.IsA(kDecodeMode));
  const std::unique_ptr<BYTE[]> copy(buffer.GetMsgCopy());
  EXPECT_EQ(ToHex({copy.get(), input.size()}), "3003020105");
}

TEST(Asn1DecodeBuffer, FailsAsATypeThatFramesCatch) {
  for (const size_t length : {size_t{1}, size_t{kMaxAsn1Message} + 1}) {
    const BYTE some = 0;
    const BYTE* const data = length == 1 ? nullptr : &some;
    const BOOL done = MessageGuarded<Maps<ASN1MessageBuffer::RTLError, 4711>>([&](Frame&) -> BOOL {
      ASN1BERDecodeBuffer buffer(data, length);
      return TRUE;
    });
    EXPECT_FALSE(done);
    EXPECT_EQ(GetLastError(), 4711u);
  }
}

TEST(Asn1ControlTypes, ListsKeepTheirEndsAndCount) {
  ASN1BEREncodeBuffer buffer;
  ASN1List list{};
  ASN1CSeqOfList control(buffer, list);
  int elements[5];
  EXPECT_EQ(control.insert(0, &elements[1]), ASN1_OK);
  EXPECT_EQ(control.append(&elements[3]), ASN1_OK);
  EXPECT_EQ(control.insert(0, &elements[0]), ASN1_OK);
  EXPECT_EQ(control.insert(2, &elements[2]), ASN1_OK);
  EXPECT_EQ(control.insert(9, &elements[4]), ASN1_OK);
  EXPECT_EQ(control.append(nullptr), ASN1_E_BAD_VALUE);
  for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(control.at(i), &elements[i]);
  EXPECT_FALSE(control.remove(5));
  for (const uint32_t index : {4u, 0u, 1u}) EXPECT_TRUE(control.remove(index));
  ASSERT_EQ(control.size(), 2u);
  EXPECT_TRUE(list.head->data == &elements[1] && list.tail->data == &elements[3]);
  EXPECT_TRUE(list.head->next == list.tail && list.tail->prev == list.head && !list.head->prev
              && !list.tail->next);
  EXPECT_EQ(control.Encode(), 0);
}

TEST(Asn1ControlTypes, BitsOfAMessageAreCopiedBeforeTheyChange) {
  const std::vector<BYTE> message = FromHex("AF FF");
  ASN1BEREncodeBuffer buffer;
  ASN1BitString bits{5, message.data()};
  ASN1CBitStr control(buffer, bits);
  EXPECT_TRUE(control.test(0) && !control.test(1) && control.test(4) && !control.test(5)
              && !control.test(15));
  EXPECT_EQ(control.set(9), ASN1_OK);  // what lay behind the old end does not show
  EXPECT_EQ(ToHex({bits.data, 2}), "A840");
  EXPECT_EQ(bits.numbits, 10u);
  EXPECT_EQ(control.clear(0), ASN1_OK);
  EXPECT_EQ(control.clear(70), ASN1_OK);
  EXPECT_EQ(control.count(), 3u);
  EXPECT_EQ(control.clear(9), ASN1_OK);
  control.trim();
  EXPECT_EQ(bits.numbits, 5u);
  EXPECT_EQ(control.set(12), ASN1_OK);
  EXPECT_EQ(ToHex({bits.data, 2}), "2808");
  EXPECT_EQ(control.set(UINT32_MAX), ASN1_E_BAD_VALUE);
  EXPECT_EQ(ToHex(message), "AFFF");
}
