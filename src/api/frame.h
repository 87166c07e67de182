// The frame of the exported functions: it traces the entry, traces the result, turns a failure into the function's
// failure value and the last error, and lets no exception out. Each exported function is one of three shapes:
//
//   Plain           the logic below does not throw on purpose. Running out of memory is ERROR_NOT_ENOUGH_MEMORY.
//   Guarded         whatever is thrown ends here, as ERROR_UNHANDLED_EXCEPTION.
//   MessageGuarded  the logic throws on purpose: a CryptException gives its code, a type named by Maps<> the code beside
//                   it, anything else ERROR_INVALID_PARAMETER.
//
//   extern "C" BOOL CertFreeCRLContext(PCCRL_CONTEXT pCrlContext) {
//     return Plain([&](Frame& frame) -> BOOL {
//       frame.entry("(pCrlContext = %p)", pCrlContext);
//       if (!pCrlContext) return frame.result(TRUE);
//       ContextRecord* record = FindLiveContext(pCrlContext);
//       if (!record) return frame.failed(ERROR_INVALID_PARAMETER);  // sets the code, writes the record
//       if (!ReleaseContext(record)) return frame.failed();         // the logic has set the code
//       return frame.result(TRUE);                                  // "returned"
//     });
//   }
//   extern "C" PCCRL_CONTEXT CertDuplicateCRLContext(...)           // a result record of its own:
//     return frame.result(copy, "returned: pCrlContext = %p", copy);
//
// A bare `Frame frame;` does without the lambda where everything below is noexcept. Options are types before the body:
//
//   Guarded<Parenthesised>(...)                          "(returned)", "(failed: LastError = 0x%x)"
//   Guarded<Returns<-1>>(...)                            failed() and a caught exception return -1, not 0
//   Guarded<Returns<1>>(body, [&] { ClearText(psz); })   what else a caught exception leaves behind
//   MessageGuarded<Maps<Asn1Exception, CRYPT_E_ASN1_CORRUPT>>(...)
//   MessageGuarded<Expects<CRYPT_E_INVALID_MSG_TYPE>>(...)   this code of a CryptException is an answer, not a fault
//
// The frame never clears the last error on success; the few functions that do, do it themselves. Name and line come from
// the caller. A cancelled thread unwinds through a frame as if it were not there.
#ifndef CERTKERN_API_FRAME_H
#define CERTKERN_API_FRAME_H

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/types.h>

#include <cxxabi.h>
#include <cstdint>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

#include "platform/exceptions.h"
#include "platform/trace.h"

namespace certkern {

// How a function writes its result records; each function keeps its own.
enum class Flavour { Plain, Parenthesised };

// --- options of the shapes ---
struct Parenthesised {};
template <auto Value>
struct Returns {};
template <DWORD Code>
struct Expects {};
template <class Type, DWORD Code>
struct Maps {
  static_assert(std::is_base_of_v<std::exception, Type>, "its text goes into the trace");
};

// What a failed function returns; becomes whatever type the function has.
class Failure {
 public:
  constexpr explicit Failure(intptr_t value) : value_(value) {}
  template <class T>
  requires std::is_pointer_v<T> || std::is_integral_v<T>
  operator T() const {  // NOLINT(google-explicit-constructor): stands in a return statement
    if constexpr (std::is_pointer_v<T>) {
      return reinterpret_cast<T>(value_);
    } else {
      return static_cast<T>(value_);
    }
  }

 private:
  intptr_t value_;
};

class Frame {
 public:
  explicit Frame(Flavour flavour = Flavour::Plain, Failure failure = Failure(0),
                 const char* function = __builtin_FUNCTION(), int line = __builtin_LINE())
      : function_(function), line_(line), flavour_(flavour), failure_(failure) {}
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  const char* function() const { return function_; }
  int line() const { return line_; }

  // The arguments, by their published names: "(hCertStore = %p, Flags = 0x%.8X)".
  template <class... Args>
  void entry(TraceTextFor<Args...> text, Args... args) const {
    record(TRACE_CALL, text, args...);
  }

  // Success, with the flavour's record or with one of the function's own.
  template <class T>
  T result(T value, int line = __builtin_LINE()) const {
    done(line);
    return value;
  }
  template <class T, class... Args>
  T result(T value, TraceTextFor<Args...> text, Args... args) const {
    record(TRACE_CALL, text, args...);
    return value;
  }
  // Success of a function that returns nothing.
  void done(int line = __builtin_LINE()) const {
    if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]]
      writeReturned(context, line);
  }

  // Failure. A code given here becomes the last error; without one the logic below has set it, or leaves it be.
  Failure failed(std::optional<DWORD> code = std::nullopt, int line = __builtin_LINE()) const {
    setLastError(code);
    if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]]
      writeFailed(context, line);
    return failure_;
  }
  // The same with a record of the function's own: "(failed: LastError = 0x%x, retval = %u)".
  template <class... Args>
  Failure failed(std::optional<DWORD> code, TraceTextFor<Args...> text, Args... args) const {
    setLastError(code);
    if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]] {
      trace_detail::WriteRecord(context, failureLevel(), function_, text.line, text.format, args...);
    }
    return failure_;
  }
  // The functions that do not go into detail about their arguments.
  Failure invalidArguments(std::optional<DWORD> code = ERROR_INVALID_PARAMETER,
                           int line = __builtin_LINE()) const;

  // Any other record under this function's name.
  template <class... Args>
  void record(TraceLevel level, TraceTextFor<Args...> text, Args... args) const {
    if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) [[unlikely]] {
      trace_detail::WriteRecord(context, level, function_, text.line, text.format, args...);
    }
  }

 private:
  static void setLastError(std::optional<DWORD> code) {
    if (code) SetLastError(*code);
  }
  // A search that found nothing is an answer, not a fault, and must not fill the trace of faults.
  TraceLevel failureLevel() const;
  [[gnu::cold]] void writeReturned(support_db_ctx context, int line) const;
  [[gnu::cold]] void writeFailed(support_db_ctx context, int line) const;

  const char* const function_;
  const int line_;
  const Flavour flavour_;
  const Failure failure_;
};

namespace frame_detail {

// What the options of a shape add up to.
template <class... Options>
struct Settings {
  static constexpr Flavour kFlavour = Flavour::Plain;
  static constexpr intptr_t kFailure = 0;
  static constexpr DWORD kExpected = 0;
};
template <class Option, class... Rest>
struct Settings<Option, Rest...> : Settings<Rest...> {
  static_assert(!std::is_same_v<Option, Option>, "not an option of a frame");
};
template <class... Rest>
struct Settings<Parenthesised, Rest...> : Settings<Rest...> {
  static constexpr Flavour kFlavour = Flavour::Parenthesised;
};
template <auto Value, class... Rest>
struct Settings<Returns<Value>, Rest...> : Settings<Rest...> {
  static constexpr intptr_t kFailure = static_cast<intptr_t>(Value);
};
template <DWORD Code, class... Rest>
struct Settings<Expects<Code>, Rest...> : Settings<Rest...> {
  static constexpr DWORD kExpected = Code;
};
template <class Type, DWORD Code, class... Rest>
struct Settings<Maps<Type, Code>, Rest...> : Settings<Rest...> {};

struct Nothing {
  void operator()() const {}
};

// The try block of every shape. A cancelled thread unwinds through it: to swallow that would abort the process. The handler runs
// while the exception is in flight, and what it throws itself goes out. The sanitizer is kept away because the reference
// to a cancellation, which the compiler makes, is null; the body is a function of its own and stays checked.
template <class Body, class Handler>
__attribute__((no_sanitize("undefined"))) auto CatchAll(Body body, Handler handler) -> decltype(body()) {
  try {
    return body();
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return handler();
  }
}

// Ends of the road: record the exception in flight and set its code. They let nothing out but a cancellation.
void EndPlain(Flavour flavour, const char* function, int line);
void EndUnexpected(Flavour flavour, const char* function, int line);

// Record the exception in flight under its text and answer its code, by the first clause that matches it. Whoever calls
// them has let a cancellation go.
DWORD CodeOfStandardException(const Frame& frame);
DWORD CodeOfException(const Frame& frame, DWORD expected, DWORD (*otherwise)(const Frame& frame));
void RecordText(const Frame& frame, const std::exception& exception, TraceLevel level = TRACE_ERROR);

template <class... Options>
struct Clauses {
  static DWORD code(const Frame& frame) { return CodeOfStandardException(frame); }
};
template <class Option, class... Rest>
struct Clauses<Option, Rest...> : Clauses<Rest...> {};
template <class Type, DWORD Code, class... Rest>
struct Clauses<Maps<Type, Code>, Rest...> {
  static DWORD code(const Frame& frame) {
    try {
      throw;
    } catch (const Type& exception) {
      RecordText(frame, exception);
      return Code;
    } catch (...) {
      return Clauses<Rest...>::code(frame);
    }
  }
};

template <class Body>
using ResultOf = std::invoke_result_t<Body&, Frame&>;

template <class R>
R FailureAs(intptr_t value) {
  if constexpr (!std::is_void_v<R>) return Failure(value);
}

template <class Set, auto End, class Body, class OnFault>
ResultOf<Body> Run(Body& body, OnFault& onFault, const char* function, int line) {
  using Result = ResultOf<Body>;
  return CatchAll(
      [&]() -> Result {
        Frame frame(Set::kFlavour, Failure(Set::kFailure), function, line);
        return body(frame);
      },
      [&]() -> Result {
        End(Set::kFlavour, function, line);
        onFault();
        return FailureAs<Result>(Set::kFailure);
      });
}

}  // namespace frame_detail

// The plain shape. onFault must not throw; it runs after an exception was caught, before the failure value is returned.
template <class... Options, class Body, class OnFault = frame_detail::Nothing>
frame_detail::ResultOf<Body> Plain(Body&& body, OnFault onFault = {},
                                   const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  return frame_detail::Run<frame_detail::Settings<Options...>, frame_detail::EndPlain>(body, onFault,
                                                                                       function, line);
}

// The catch-all shape.
template <class... Options, class Body, class OnFault = frame_detail::Nothing>
frame_detail::ResultOf<Body> Guarded(Body&& body, OnFault onFault = {},
                                     const char* function = __builtin_FUNCTION(),
                                     int line = __builtin_LINE()) {
  return frame_detail::Run<frame_detail::Settings<Options...>, frame_detail::EndUnexpected>(body, onFault,
                                                                                            function, line);
}

// The typed shape: its clauses inside a catch-all, which takes what the handlers and the trace themselves throw.
template <class... Options, class Body, class OnFault = frame_detail::Nothing>
frame_detail::ResultOf<Body> MessageGuarded(Body&& body, OnFault onFault = {},
                                            const char* function = __builtin_FUNCTION(),
                                            int line = __builtin_LINE()) {
  using Result = frame_detail::ResultOf<Body>;
  using Set = frame_detail::Settings<Options...>;
  const auto typed = [&](Frame& frame) -> Result {
    return frame_detail::CatchAll([&]() -> Result { return body(frame); },
                                  [&]() -> Result {
                                    SetLastError(frame_detail::CodeOfException(
                                        frame, Set::kExpected, frame_detail::Clauses<Options...>::code));
                                    onFault();
                                    return frame_detail::FailureAs<Result>(Set::kFailure);
                                  });
  };
  return frame_detail::Run<Set, frame_detail::EndUnexpected>(typed, onFault, function, line);
}

}  // namespace certkern

#endif
