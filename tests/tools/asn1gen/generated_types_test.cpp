// The sample's types, compiled, against bytes that were written by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "asn1data/catalogue.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::asn1data;

namespace {

// What the generated names promise.
static_assert(std::is_same_v<decltype(ASN1T_Box::lid), ASN1T_Box*>, "a box in a box is behind a pointer");
static_assert(std::is_same_v<decltype(ASN1T_Box::owner), ASN1T_Owner>);
static_assert(std::is_same_v<decltype(ASN1T_Box::size),
                             int32_t> && std::is_same_v<decltype(ASN1T_Box::serial), ASN1BigInteger>);
static_assert(
    std::is_same_v<
        ASN1T_Alias,
        ASN1T_Box> && std::is_same_v<decltype(ASN1T_Owner::Alternatives::person), ASN1T_Owner_person*>);
static_assert(sizeof(ASN1T_Box::m) == sizeof(uint32_t) && offsetof(ASN1T_Box, m) == 0);
static_assert(ASN1T_Owner::t_other == 4 && ASN1N_Colour::blue == 5 && ASN1N_Colour::green == 1);

constexpr char kSmallBox[] = "30 0B 02 01 00 02 01 01 13 01 41 05 00";

struct TypeCase {
  const char* type;
  const char* der;
};
const TypeCase kTypes[] = {
    {"Box",       kSmallBox                                                                       },
    {"Box",
     "30 5B  A0 03 02 01 01  0C 02 61 62  02 02 01 00  02 09 00 FF FF FF FF FF FF FF FF  81 01 05  03 02 04 "
     "10"
     "04 08 01 02 03 04 05 06 07 08  A0 12 0C 01 41 17 0D 32 36 31 31 32 31 31 31 31 31 34 33 5A"
     "A2 0D 30 0B 02 01 00 02 01 01 13 01 41 05 00  A3 0B 02 01 00 02 01 01 13 01 41 05 00  05 00"},
    {"Alias",     "A4 0B 02 01 00 02 01 01 13 01 41 05 00"                                        },
    {"Owner",     "A2 0E A5 0C A1 0A 80 02 00 FF 81 01 00 82 01 7F"                               },
    {"Entry",     "30 17 06 05 2A 85 03 07 02 31 0E 02 01 05 30 09 02 01 00 04 04 01 02 03 04"    },
    {"Entry",     "30 16 06 05 2A 85 03 07 01  31 0D 30 0B 02 01 00 02 01 01 13 01 41 05 00"      },
    {"Wrapped",   "31 0B 04 03 02 01 07 06 04 2A 85 03 09"                                        },
    {"LongEntry", "63 0A 06 04 2A 85 03 09 31 00 05 00"                                           },
    {"Log",       "30 15 30 13 18 0F 32 30 32 36 31 31 32 31 31 31 31 31 34 33 5A 30 00"          },
};

}  // namespace

TEST(GeneratedTypes, DerComesBack) {
  for (const auto& [type, hex] : kTypes) {
    SCOPED_TRACE(std::string(type) + " " + hex);
    const TypeInfo* const info = FindType(AllTypes(), type);
    ASSERT_TRUE(info);
    const std::vector<BYTE> der = FromHex(hex);
    const auto context = ASN1ContextPtr::Create();
    context->setInput(der);
    void* const value = context->allocate(info->size);
    ASSERT_EQ(DecodeValue(*context, *info, value, Tagging::Explicit, 0), ASN1_OK);
    ASSERT_EQ(context->position(), der.size());
    ASSERT_EQ(EncodeValue(*context, *info, value, Tagging::Explicit), static_cast<int>(der.size()));
    const auto out = context->output().bytes();
    EXPECT_EQ(std::vector<BYTE>(out.begin(), out.end()), der);
  }
}

TEST(GeneratedTypes, StructuresAreFilledByName) {
  const std::vector<BYTE> der =
      FromHex("63 17 06 05 2A 85 03 07 01 31 0D 30 0B 02 01 00 02 01 01 13 01 41 05 00 FF");
  ASN1BERDecodeBuffer buffer(der.data(), der.size());
  ASN1T_LongEntry entry;
  ASN1C_LongEntry control(buffer, entry);
  ASSERT_LT(control.Decode(), 0) << "0xFF is no element of it";
  const std::vector<BYTE> whole =
      FromHex("63 16 06 05 2A 85 03 07 01 31 0D 30 0B 02 01 00 02 01 01 13 01 41 05 00");
  ASN1BERDecodeBuffer good(whole.data(), whole.size());
  ASSERT_EQ(ASN1C_LongEntry(good, entry).Decode(), ASN1_OK);
  EXPECT_TRUE(entry.type == ASN1V_id_box);
  EXPECT_FALSE(entry.m.rawPresent);
  ASSERT_EQ(entry.values.count, 1u);
  const ASN1OpenValue& value = *entry.values.begin();
  ASSERT_EQ(value.type, &kInfo_Box) << "the set knows what the identifier selects";
  const auto& box = *static_cast<const ASN1T_Box*>(value.decoded);
  EXPECT_EQ(box.owner.t, ASN1T_Owner::t_name);
  EXPECT_EQ(box.owner.u.name.text(), "A");
  EXPECT_EQ(box.version, ASN1N_Box_version::v1);
}

TEST(GeneratedTypes, ListsAreBuiltByTheirControls) {
  ASN1BEREncodeBuffer buffer;
  ASN1T_Entries entries = {};
  ASN1C_Entries control(buffer, entries);
  ASN1T_Entry* const entry = control.Append();
  ASSERT_TRUE(entry);
  entry->type = AsField(ASN1V_id_paint);
  ASSERT_EQ(control.Encode(), 14);
  const std::vector<BYTE> expected = FromHex("30 0C 30 0A 06 06 55 8F FF FF FF 7F 31 00");
  EXPECT_EQ(std::vector<BYTE>(buffer.GetMsgPtr(), buffer.GetMsgPtr() + 14), expected);
}

TEST(GeneratedTypes, CatalogueIsSortedAndComplete) {
  const auto isSorted = [](auto rows) {
    return std::ranges::is_sorted(
        rows, [](const auto& a, const auto& b) { return std::strcmp(a.name, b.name) < 0; });
  };
  EXPECT_TRUE(isSorted(AllOids()) && isSorted(AllSingleObjects()));
  for (const TypeInfo* const type : AllTypes()) EXPECT_EQ(FindType(AllTypes(), type->name), type);
  for (const char* name : {"Box_version", "Box_salt", "Box_boxes", "_SeqOfBox", "Log_element",
                           "_SeqOfLog_element", "_count_Type"})
    EXPECT_TRUE(FindType(AllTypes(), name)) << name;
  ASSERT_EQ(AllObjects().size(), 2u);
  const ObjectSetInfo& all = *AllObjects()[1];
  EXPECT_STREQ(all.objectClass, "THING");
  for (const ObjectInfo& object : all.objects) EXPECT_EQ(FindObject(all, AsField(*object.id)), &object);
  const ObjectInfo* const mark = FindObject(all, AsField(ASN1V_id_paint));
  ASSERT_TRUE(mark) << "sets within sets are unfolded";
  EXPECT_FALSE(mark->type);
}
