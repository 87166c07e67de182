// The small helpers: owners, state that outlives the exit handlers, exceptions, thread slots, container names.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/exceptions.h"
#include "platform/never_destroyed.h"
#include "platform/owner.h"
#include "platform/random_name.h"
#include "platform/sizes.h"
#include "platform/thread_slot.h"

using namespace certkern;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

std::vector<int> freed;
BOOL FreeHandle(int handle) {
  freed.push_back(handle);
  SetLastError(ERROR_NO_DATA);
  return FALSE;
}
BOOL FreeHandleWithFlags(int handle, DWORD flags) {
  return FreeHandle(handle + 1000 * static_cast<int>(flags));
}
using Handle = Owner<int, FreeHandle>;

TEST(Owner, GivesBackOnceAndKeepsTheLastError) {
  freed.clear();
  SetLastError(ERROR_SEEK_ON_DEVICE);
  {
    Handle first(1), second(2), moved(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what a moved-from owner holds is what is tested
    second = std::move(moved);
    EXPECT_THAT(freed, ElementsAre(2));
    Handle& self = second;
    second = std::move(self);
    EXPECT_EQ(second.get(), 1);
    *second.out() = 3;
    EXPECT_THAT(freed, ElementsAre(2, 1));
    Handle third(4);
    EXPECT_EQ(third.release(), 4);
    Owner<int, FreeHandleWithFlags> flagged(5);
  }
  EXPECT_THAT(freed, ElementsAre(2, 1, 5, 3));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SEEK_ON_DEVICE});
}

struct DestructorFails {
  ~DestructorFails() { ADD_FAILURE() << "destroyed"; }
  int value = 7;
};
constinit NeverDestroyed<DestructorFails> neverDestroyed;

TEST(NeverDestroyed, AliveBetweenCreateAndRetire) {
  EXPECT_EQ(neverDestroyed.get(), nullptr);
  neverDestroyed.create();
  DestructorFails* const object = neverDestroyed.get();
  ASSERT_NE(object, nullptr);
  neverDestroyed.retire();
  EXPECT_EQ(neverDestroyed.get(), nullptr);
  EXPECT_EQ(object->value, 7) << "who has it may go on";
}

TEST(Exceptions, Texts) {
  EXPECT_STREQ(CAException("no data", "certkern/ASN1Blob", 7).what(),
               "Exception :'no data' at file:'certkern/ASN1Blob' line:7");
  EXPECT_STREQ(Asn1Exception("", "", -1).what(), "Exception :'' at file:'' line:-1");
  EXPECT_STREQ(Asn1DecodeException("%s", "f", 0).what(), "Exception :'%s' at file:'f' line:0");
  const CryptException exception(CRYPT_E_NOT_FOUND, "f", 12);
  EXPECT_STREQ(exception.what(), "Exception :'Error 0x80092004.' at file:'f' line:12");
  EXPECT_EQ(exception.code(), CRYPT_E_NOT_FOUND);
  EXPECT_EQ(exception.file(), "f");
  EXPECT_EQ(exception.line(), 12);
}

TEST(Exceptions, PlacesDoNotDependOnTheBuild) {
  EXPECT_EQ(SourceName("/home/src/me/src/certkern/ASN1Blob.cpp"), "certkern/ASN1Blob");
  EXPECT_EQ(SourceName("../src/pfx/a.b/export"), "pfx/a.b/export");
  EXPECT_EQ(SourceName("plain.cpp"), "plain");
  EXPECT_EQ(SourceName(""), "");
  try {
    SetLastError(NTE_BAD_HASH);
    ThrowLastError();
  } catch (const CryptException& exception) {
    EXPECT_EQ(exception.code(), NTE_BAD_HASH);
    EXPECT_THAT(exception.file(), MatchesRegex(".*helpers_test"));
    EXPECT_EQ(exception.line(), __LINE__ - 4);
  }
  SetLastError(0);
  try {
    ThrowLastError();
  } catch (const CryptException& exception) {
    EXPECT_EQ(exception.code(), DWORD{ERROR_INTERNAL_ERROR}) << "a failure without a code is no success";
  }
}

TEST(Sizes, NarrowedOrRefused) {
  EXPECT_EQ(CheckedDword(0xFFFFFFFFu), 0xFFFFFFFFu);
  EXPECT_THROW(static_cast<void>(CheckedDword(uint64_t{1} << 32)), CryptException);
  EXPECT_FALSE(FitsDword(~uint64_t{0}));
}

std::string Narrow(const WideText& text) {
  const std::wstring wide(text.get());
  return {wide.begin(), wide.end()};
}

TEST(RandomName, ShapeAndUniqueness) {
  EXPECT_THAT(Narrow(RandomSuffixName(L"container-", 12)), MatchesRegex("container-[0-9a-z]{12}"));
  EXPECT_THAT(Narrow(RandomGuidName(L"a", L"b_")),
              MatchesRegex("ab_[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
  EXPECT_EQ(Narrow(RandomSuffixName(L"x", 0)), "x");
  std::set<std::string> names;
  for (int i = 0; i < 500; ++i) {  // far more than one in a millisecond
    names.insert(Narrow(RandomSuffixName(L"", 16)));
    names.insert(Narrow(RandomGuidName(L"", L"")));
  }
  EXPECT_EQ(names.size(), 1000u);
  EXPECT_FALSE(RandomSuffixName(nullptr, 1));
  EXPECT_FALSE(RandomGuidName(L"", nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(ThreadSlotThread, EachThreadHasItsOwn) {
  static constinit ThreadSlot slot;
  int mine = 0, theirs = 0;
  EXPECT_FALSE(slot.set(&mine)) << "before it exists";
  slot.create();
  ASSERT_TRUE(slot.set(&mine));
  std::thread([&] {
    EXPECT_EQ(slot.get(), nullptr);
    EXPECT_TRUE(slot.set(&theirs));
    EXPECT_EQ(slot.get(), &theirs);
  }).join();
  EXPECT_EQ(slot.get(), &mine);
  slot.destroy();
  EXPECT_EQ(slot.get(), nullptr);
  EXPECT_FALSE(slot.set(&mine));
  slot.destroy();
}

}  // namespace
