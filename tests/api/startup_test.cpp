#include "api/startup.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/trace.h"
#include "trace_recorder.h"

using namespace certkern;
using certkern::test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(Startup, TheLoaderHasRunIt) {
  EXPECT_EQ(certkern_db_ctx, test::kCertkernContext);
  EXPECT_EQ(pkivalidator_db_ctx, test::kPolicyContext);
}

TEST(Startup, OrderOfContexts) {
  TraceRecorder trace;
  certkern_lazy_db_ctx.disarm();  // another test may have used it
  certkern_lazy_db_ctx.arm();
  trace.lifeCycle.clear();
  certkern_lazy_db_ctx.get();
  EndLibrary();
  EXPECT_THAT(trace.lifeCycle, ElementsAre("init certkern", "done 12", "done 13", "done 11"))
      << "the first comes last";
  EXPECT_EQ(certkern_db_ctx, 0u);
  EXPECT_EQ(pkivalidator_db_ctx, 0u);
  EXPECT_EQ(certkern_lazy_db_ctx.get(), 0u) << "disarmed";
  trace.lifeCycle.clear();
  EndLibrary();
  EXPECT_THAT(trace.lifeCycle, IsEmpty()) << "nothing is given back twice";
  BeginLibrary();
  EXPECT_THAT(trace.lifeCycle, ElementsAre("init2 certkern", "init2 pkivalidator"));
  OpenTraceContext(certkern_db_ctx, "certkern");
  EXPECT_THAT(trace.lifeCycle,
              ElementsAre("init2 certkern", "init2 pkivalidator", "done 11", "init2 certkern"))
      << "a slot in use is given back before it is filled anew";
}

TEST(Startup, ChainDetailByPresence) {
  setenv("SV_PRINT_CHAIN_DETAIL", "", 1);
  ReadChainDetailWish();
  EXPECT_TRUE(ChainDetailWanted()) << "an empty value is one";
  unsetenv("SV_PRINT_CHAIN_DETAIL");
  EXPECT_TRUE(ChainDetailWanted()) << "read once";
  ReadChainDetailWish();
  EXPECT_FALSE(ChainDetailWanted());
}

TEST(Trace, DiagnosticsHaveTheirOwnContextsAndBits) {
  TraceRecorder trace;
  SetLastError(ERROR_NO_DATA);
  struct Case {
    unsigned bit;
    void (*write)();
    const char *writer, *text;
    unsigned long context;
  };
  const Case cases[] = {
      {8,  [] { TracePolicy("pExtraPara = 0x%08x\n", 5u); },         "dprint",  "pExtraPara = 0x00000005\n",
       test::kPolicyContext                                                                                                        },
      {32, [] { TraceCache("(): error %x", 0x1Fu); },                "dprint",  "(): error 1f",              test::kCertkernContext},
      {1,  [] { TraceLazy("CertCloseStore failed: err=0x%x", 6u); }, "elprint",
       "CertCloseStore failed: err=0x6",                                                                     test::kLazyContext    },
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.text);
    trace.records.clear();
    trace.enabled = ~row.bit;
    row.write();
    EXPECT_THAT(trace.records, IsEmpty());
    trace.enabled = row.bit;
    row.write();
    ASSERT_EQ(trace.records.size(), 1u);
    EXPECT_EQ(trace.records[0].writer, row.writer);
    EXPECT_EQ(trace.records[0].text, row.text);
    EXPECT_EQ(trace.records[0].context, row.context);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});
  }
}

void StepOfSomething() {
  Trace(TRACE_ERROR, "() step failed");
  TraceAs("CryptExported", TRACE_RESULT, "() result: %d(%x)", 10, 10);
}

TEST(Trace, RecordsOfInnerStepsBearANameAndALevel) {
  TraceRecorder trace;
  StepOfSomething();
  EXPECT_THAT(test::Lines(trace.records),
              ElementsAre("1 StepOfSomething: () step failed", "16 CryptExported: () result: 10(a)"));
  trace.records.clear();
  trace.enabled = 0x10000000;  // the fifth group's bit of level 16
  StepOfSomething();
  EXPECT_THAT(test::Lines(trace.records), ElementsAre("16 CryptExported: () result: 10(a)"));
}

TEST(TraceThread, TheLazyContextIsMadeOnce) {
  TraceRecorder trace;
  certkern_lazy_db_ctx.disarm();
  trace.lifeCycle.clear();
  certkern_lazy_db_ctx.arm();
  trace.refusesContexts = true;
  SetLastError(ERROR_NO_DATA);
  EXPECT_EQ(certkern_lazy_db_ctx.get(), 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});
  trace.refusesContexts = false;
  trace.lifeCycle.clear();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] { EXPECT_EQ(certkern_lazy_db_ctx.get(), test::kLazyContext); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(trace.lifeCycle, ElementsAre("init certkern"));
}

TEST(LocalMemory, FlagsAndSizes) {
  auto* zeroed = static_cast<BYTE*>(LocalAlloc(LPTR, 64));
  ASSERT_NE(zeroed, nullptr);
  EXPECT_THAT(std::vector<BYTE>(zeroed, zeroed + 64), testing::Each(0));
  EXPECT_EQ(LocalFree(zeroed), nullptr);
  for (const UINT flags : {LMEM_FIXED, LMEM_ZEROINIT}) {
    HLOCAL empty = LocalAlloc(flags, 0);
    EXPECT_NE(empty, nullptr) << "no size is not the same as no memory";
    LocalFree(empty);
  }
  EXPECT_EQ(LocalAlloc(LMEM_MOVEABLE | LMEM_ZEROINIT, 8), nullptr);
  EXPECT_EQ(LocalFree(nullptr), nullptr);
}

}  // namespace
