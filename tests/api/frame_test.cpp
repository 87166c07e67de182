#include "api/frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <new>

#include "trace_recorder.h"

using namespace certkern;
using certkern::test::Lines;
using certkern::test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int marker;  // an address to trace

// --- functions as the library exports them, one of each kind ---
BOOL PlainFlavour(const void* argument) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(argument = %p, Flags = 0x%.8X)", argument, 0x2Au);
    if (!argument) return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(TRUE);
  });
}
const void* ParenthesisedFlavour(const void* argument) {
  return Guarded<Parenthesised>([&](Frame& frame) -> const void* {
    if (!argument) return frame.failed(E_INVALIDARG);
    return frame.result(argument);
  });
}
DWORD OwnRecords(LPCWSTR text) {
  return Guarded<Parenthesised, Returns<1>>([&](Frame& frame) -> DWORD {
    if (!text)
      return frame.failed(CRYPT_E_ASN1_EOD, "(failed: LastError = 0x%x, retval = %u)", CRYPT_E_ASN1_EOD, 1);
    return frame.result(DWORD{3}, "(returned: pszNameString = %S, retval = %u)", text, 3);
  });
}
void ReturnsNothing(bool good) {
  Guarded([&](Frame& frame) {
    if (good) return frame.done();
    frame.invalidArguments();
  });
}
BOOL BareFrame(bool good) {
  Frame frame;
  frame.entry("()");
  if (!good) return frame.failed();
  return frame.result(TRUE);
}

TEST(Frame, RecordsOfEachFlavour) {
  struct Case {
    const char* name;
    std::function<void()> call;
    std::vector<std::string> lines;
  };
  char entry[64], failedEntry[] = "4 PlainFlavour: (argument = (nil), Flags = 0x0000002A)";
  std::snprintf(entry, sizeof entry, "4 PlainFlavour: (argument = %p, Flags = 0x0000002A)",
                static_cast<void*>(&marker));
  const Case cases[] = {
      {"plain, success",               [] { EXPECT_TRUE(PlainFlavour(&marker)); }, {entry, "4 PlainFlavour: returned"}                         },
      {"plain, failure",
       [] { EXPECT_FALSE(PlainFlavour(nullptr)); },
       {failedEntry, "1 PlainFlavour: failed: LastError = 0x57"}                                                                               },
      {"parenthesised, success",
       [] { EXPECT_EQ(ParenthesisedFlavour(&marker), &marker); },
       {"4 ParenthesisedFlavour: (returned)"}                                                                                                  },
      {"parenthesised, failure",
       [] { EXPECT_EQ(ParenthesisedFlavour(nullptr), nullptr); },
       {"1 ParenthesisedFlavour: (failed: LastError = 0x80070057)"}                                                                            },
      {"own text, success",
       [] { EXPECT_EQ(OwnRecords(L"name"), 3u); },
       {"4 OwnRecords: (returned: pszNameString = name, retval = 3)"}                                                                          },
      {"own text and failure value",
       [] { EXPECT_EQ(OwnRecords(nullptr), 1u); },
       {"1 OwnRecords: (failed: LastError = 0x80093102, retval = 1)"}                                                                          },
      {"no value, success",            [] { ReturnsNothing(true); },               {"4 ReturnsNothing: returned"}                              },
      {"no value, bad arguments",
       [] { ReturnsNothing(false); },
       {"1 ReturnsNothing: () invalid argument(s)!"}                                                                                           },
      {"bare, success",                [] { EXPECT_TRUE(BareFrame(true)); },       {"4 BareFrame: ()", "4 BareFrame: returned"}                },
      {"bare, code left by the logic",
       [] {
         SetLastError(ERROR_SEEK_ON_DEVICE);
         EXPECT_FALSE(BareFrame(false));
         EXPECT_EQ(GetLastError(), DWORD{ERROR_SEEK_ON_DEVICE});
       },                                                                          {"4 BareFrame: ()", "1 BareFrame: failed: LastError = 0x84"}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    TraceRecorder trace;
    row.call();
    EXPECT_EQ(Lines(trace.records), row.lines);
    for (const auto& record : trace.records) {
      EXPECT_EQ(record.context, test::kCertkernContext);
      EXPECT_EQ(record.file, "");
      EXPECT_GT(record.line, 20) << "not the line of the call";
      EXPECT_LT(record.line, 70) << "not the line of the call";
    }
  }
}

TEST(Frame, LevelsAndTheirMasks) {
  struct Case {
    unsigned enabled;
    size_t successRecords, failureRecords;
  };
  // one bit of each of the five groups, then a neighbour's
  for (const auto& [enabled, successRecords, failureRecords] : {
           Case{4,        2, 1},
           {4u << 24, 2, 1},
           {1u << 6,  0, 1},
           {1u << 18, 0, 1},
           {2,        0, 0},
           {8,        0, 0},
           {16,       0, 0}
  }) {
    SCOPED_TRACE(enabled);
    TraceRecorder trace;
    trace.enabled = enabled;
    PlainFlavour(&marker);
    EXPECT_EQ(trace.records.size(), successRecords);
    trace.records.clear();
    PlainFlavour(nullptr);
    EXPECT_EQ(trace.records.size(), failureRecords);
  }
}

namespace named {
BOOL CertFindChainInStore(DWORD code) {
  return Plain([&](Frame& frame) -> BOOL { return frame.failed(code); });
}
BOOL CertGetIssuerCertificateFromStore(DWORD code) {
  return Guarded<Parenthesised>([&](Frame& frame) -> BOOL { return frame.failed(code); });
}
BOOL CertFindExtension(DWORD code) {
  return Plain([&](Frame& frame) -> BOOL { return frame.failed(code); });
}
}  // namespace named

TEST(Frame, NothingFoundIsExpectedOfSearchesOnly) {
  TraceRecorder trace;
  named::CertFindChainInStore(CRYPT_E_NOT_FOUND);
  named::CertGetIssuerCertificateFromStore(CRYPT_E_NOT_FOUND);
  named::CertFindChainInStore(ERROR_INVALID_PARAMETER);
  named::CertFindExtension(CRYPT_E_NOT_FOUND);
  EXPECT_THAT(Lines(trace.records),
              ElementsAre("2 CertFindChainInStore: failed: LastError = 0x80092004",
                          "2 CertGetIssuerCertificateFromStore: (failed: LastError = 0x80092004)",
                          "1 CertFindChainInStore: failed: LastError = 0x57",
                          "1 CertFindExtension: failed: LastError = 0x80092004"));
}

// What is thrown below a frame.
enum class Fault { Crypt, CA, Asn1, Asn1Decode, Standard, Memory, Foreign };
[[noreturn]] void Throw(Fault fault) {
  switch (fault) {
    case Fault::Crypt:
      throw CryptException(NTE_BAD_DATA, "f", 1);
    case Fault::CA:
      throw CAException("no data", "f", 1);
    case Fault::Asn1:
      throw Asn1Exception("corrupt", "f", 1);
    case Fault::Asn1Decode:
      throw Asn1DecodeException("short", "f", 1);
    case Fault::Standard:
      throw std::runtime_error("text");
    case Fault::Memory:
      throw std::bad_alloc();
    case Fault::Foreign:
      break;
  }
  throw 42;
}

BOOL PlainShape(Fault fault) {
  return Plain([&](Frame&) -> BOOL { Throw(fault); });
}
BOOL CatchAllShape(Fault fault) {
  return Guarded([&](Frame&) -> BOOL { Throw(fault); });
}
BOOL TypedShape(Fault fault) {
  return MessageGuarded([&](Frame&) -> BOOL { Throw(fault); });
}
BOOL MappedShape(Fault fault) {
  return MessageGuarded<Maps<Asn1Exception, CRYPT_E_ASN1_CORRUPT>>([&](Frame&) -> BOOL { Throw(fault); });
}

TEST(Frame, ExceptionsBecomeTheLastError) {
  struct Case {
    BOOL (*shape)(Fault);
    Fault fault;
    DWORD code;
    const char* record;
  };
  const Case cases[] = {
      {PlainShape,    Fault::Memory,     8,          "1 PlainShape: failed: LastError = 0x8"                    },
      {PlainShape,    Fault::Crypt,      574,        "1 PlainShape: failed: unknown exception caught"           },
      {PlainShape,    Fault::Foreign,    574,        "1 PlainShape: failed: unknown exception caught"           },
      {CatchAllShape, Fault::Memory,     574,        "1 CatchAllShape: failed: unexpected exception caught"     },
      {CatchAllShape, Fault::Crypt,      574,        "1 CatchAllShape: failed: unexpected exception caught"     },
      {CatchAllShape, Fault::Foreign,    574,        "1 CatchAllShape: failed: unexpected exception caught"     },
      {TypedShape,    Fault::Crypt,      0x80090005,
       "1 TypedShape: () Exception :'Error 0x80090005.' at file:'f' line:1"                                     },
      {TypedShape,    Fault::CA,         87,         "1 TypedShape: () Exception :'no data' at file:'f' line:1" },
      {TypedShape,    Fault::Asn1,       87,         "1 TypedShape: () Exception :'corrupt' at file:'f' line:1" },
      {TypedShape,    Fault::Standard,   87,         "1 TypedShape: () text"                                    },
      {TypedShape,    Fault::Foreign,    87,         "1 TypedShape: () Unknown exception catched"               },
      {MappedShape,   Fault::Asn1,       0x80093103, "1 MappedShape: () Exception :'corrupt' at file:'f' line:1"},
      {MappedShape,   Fault::Asn1Decode, 87,         "1 MappedShape: () Exception :'short' at file:'f' line:1"  },
      {MappedShape,   Fault::Crypt,      0x80090005,
       "1 MappedShape: () Exception :'Error 0x80090005.' at file:'f' line:1"                                    },
      {MappedShape,   Fault::Foreign,    87,         "1 MappedShape: () Unknown exception catched"              },
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.record);
    TraceRecorder trace;
    EXPECT_EQ(row.shape(row.fault), FALSE);
    EXPECT_EQ(GetLastError(), row.code);
    EXPECT_THAT(Lines(trace.records), ElementsAre(row.record));
  }
}

// A function whose zero says "all is well" must not say so after a fault.
TEST(Frame, FailureValueAfterAFault) {
  TraceRecorder trace;
  const auto count = [] { return Guarded<Returns<-1>>([](Frame&) -> LONG { Throw(Fault::Foreign); }); };
  EXPECT_EQ(count(), -1);
  const auto typedCount = [] {
    return MessageGuarded<Returns<-1>>([](Frame&) -> LONG { Throw(Fault::CA); });
  };
  EXPECT_EQ(typedCount(), -1);

  char text[] = "stale";
  const auto name = [&](bool typed) -> DWORD {
    const auto body = [](Frame&) -> DWORD { Throw(Fault::Memory); };
    const auto clear = [&] { text[0] = 0; };
    return typed ? MessageGuarded<Returns<1>>(body, clear) : Guarded<Returns<1>>(body, clear);
  };
  for (const bool typed : {false, true}) {
    text[0] = 's';
    EXPECT_EQ(name(typed), 1u);
    EXPECT_STREQ(text, "");
  }
}

TEST(Frame, ATraceThatThrowsEndsInTheFrame) {
  const auto withEntry = [](auto guard) {
    return guard([](Frame& frame) -> BOOL {
      frame.entry("()");
      return frame.result(TRUE);
    });
  };
  TraceRecorder trace;
  trace.throws = true;
  EXPECT_FALSE(withEntry([](auto body) { return Plain(body); }));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_UNHANDLED_EXCEPTION});
  EXPECT_FALSE(withEntry([](auto body) { return Guarded(body); }));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_UNHANDLED_EXCEPTION});
  // the handler of the typed clause throws in its own record: that is no longer the message's fault
  EXPECT_FALSE(TypedShape(Fault::Crypt));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_UNHANDLED_EXCEPTION});
  EXPECT_FALSE(MappedShape(Fault::Asn1));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_UNHANDLED_EXCEPTION});
}

TEST(Frame, RecordsKeepTheLastErrorAndErrno) {
  TraceRecorder trace;
  SetLastError(ERROR_NO_DATA);
  errno = EAGAIN;
  EXPECT_TRUE(PlainFlavour(&marker));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA}) << "success neither sets nor clears the code";
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_FALSE(PlainFlavour(nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(trace.records.size(), 4u);
}

TEST(Frame, WithoutAContextNothingIsAsked) {
  TraceRecorder trace;
  CloseTraceContext(certkern_db_ctx);
  EXPECT_TRUE(PlainFlavour(&marker));
  EXPECT_FALSE(PlainFlavour(nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(TypedShape(Fault::Crypt));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(trace.asked, 0);
  EXPECT_THAT(trace.records, IsEmpty());
  OpenTraceContext(certkern_db_ctx, "certkern");
}

// A thread that is cancelled inside an exported function unwinds through it; a frame that kept the cancellation would
// abort the process.
struct Waiter {
  std::atomic<bool> inside{false}, unwound{false};
};
struct SeesUnwinding {
  explicit SeesUnwinding(Waiter& owner) : waiter(owner) {}
  ~SeesUnwinding() { waiter.unwound = true; }
  SeesUnwinding(const SeesUnwinding&) = delete;
  SeesUnwinding& operator=(const SeesUnwinding&) = delete;
  Waiter& waiter;
};
BOOL WaitInside(Waiter& waiter) {
  const SeesUnwinding seesUnwinding(waiter);
  waiter.inside = true;
  for (;;) usleep(1000);
}

TEST(FrameThread, CancellationPassesThrough) {
  void* (*const bodies[])(void*) = {
      [](void* waiter) -> void* {
        Plain([&](Frame&) { return WaitInside(*static_cast<Waiter*>(waiter)); });
        return nullptr;
      },
      [](void* waiter) -> void* {
        Guarded([&](Frame&) { return WaitInside(*static_cast<Waiter*>(waiter)); });
        return nullptr;
      },
      [](void* waiter) -> void* {
        MessageGuarded<Maps<Asn1Exception, CRYPT_E_ASN1_CORRUPT>>(
            [&](Frame&) { return WaitInside(*static_cast<Waiter*>(waiter)); });
        return nullptr;
      },
  };
  for (auto* body : bodies) {
    Waiter waiter;
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &waiter), 0);
    while (!waiter.inside) usleep(1000);
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(waiter.unwound);
  }
}

}  // namespace
