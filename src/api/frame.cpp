#include "api/frame.h"

#include <certkern/keykern.h>

#include <algorithm>
#include <new>
#include <string_view>

namespace certkern {
namespace {

constexpr std::string_view kSearches[] = {
    "CertFindCertificateInStore", "CertFindCRLInStore",
    "CertFindChainInStore",       "CertEnumCertificatesInStore",
    "CertEnumCRLsInStore",        "CertGetCertificateContextProperty",
    "CertGetCRLContextProperty",  "CertGetIssuerCertificateFromStore",
};

// The last record of all: what the trace throws here has nowhere to go, and the code matters more than the record.
template <class Write>
void WriteAtLast(Write write) {
  frame_detail::CatchAll(write, [] {});
}

void EndWith(DWORD code, const char* function, int line, const char* text) {
  WriteAtLast([&] {
    if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) {
      trace_detail::WriteRecord(context, TRACE_ERROR, function, line, text);
    }
  });
  SetLastError(code);
}

}  // namespace

Failure Frame::invalidArguments(std::optional<DWORD> code, int line) const {
  setLastError(code);
  if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) {
    trace_detail::WriteRecord(context, TRACE_ERROR, function_, line, "() invalid argument(s)!");
  }
  return failure_;
}

TraceLevel Frame::failureLevel() const {
  const bool expected =
      GetLastError() == CRYPT_E_NOT_FOUND && std::ranges::find(kSearches, function_) != std::end(kSearches);
  return expected ? TRACE_EXPECTED : TRACE_ERROR;
}

void Frame::writeReturned(support_db_ctx context, int line) const {
  const char* format = flavour_ == Flavour::Plain ? "returned" : "(returned)";
  trace_detail::WriteRecord(context, TRACE_CALL, function_, line, format);
}

void Frame::writeFailed(support_db_ctx context, int line) const {
  const char* format = flavour_ == Flavour::Plain ? "failed: LastError = 0x%X" : "(failed: LastError = 0x%x)";
  trace_detail::WriteRecord(context, failureLevel(), function_, line, format, GetLastError());
}

namespace frame_detail {

void EndPlain(Flavour flavour, const char* function, int line) {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    WriteAtLast([&] { Frame(flavour, Failure(0), function, line).failed(std::nullopt, line); });
  } catch (...) {
    EndWith(ERROR_UNHANDLED_EXCEPTION, function, line, "failed: unknown exception caught");
  }
}

void EndUnexpected(Flavour, const char* function, int line) {
  EndWith(ERROR_UNHANDLED_EXCEPTION, function, line, "failed: unexpected exception caught");
}

void RecordText(const Frame& frame, const std::exception& exception, TraceLevel level) {
  if (const support_db_ctx context = LoadTraceContext(certkern_db_ctx)) {
    trace_detail::WriteRecord(context, level, frame.function(), frame.line(), "() %s", exception.what());
  }
}

DWORD CodeOfException(const Frame& frame, DWORD expected, DWORD (*otherwise)(const Frame& frame)) {
  try {
    throw;
  } catch (const CryptException& exception) {
    RecordText(frame, exception, exception.code() == expected ? TRACE_EXPECTED : TRACE_ERROR);
    return exception.code();
  } catch (...) {
    return otherwise(frame);
  }
}

DWORD CodeOfStandardException(const Frame& frame) {
  try {
    throw;
  } catch (const std::exception& exception) {
    RecordText(frame, exception);
  } catch (...) {
    frame.record(TRACE_ERROR, "() Unknown exception catched");
  }
  return ERROR_INVALID_PARAMETER;
}

}  // namespace frame_detail
}  // namespace certkern
