#include "trace_recorder.h"

#include <certkern/keykern.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "platform/supkern.h"

namespace certkern::test {
namespace {

std::mutex mutex;
TraceRecorder* current = nullptr;  // none while the library starts up and exits

void Disturb() {
  SetLastError(0xDEAD);
  errno = EBADF;
}

void Record(const char* writer, support_db_ctx context, unsigned level, const char* file, int line,
            const char* function, const char* format, va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  Disturb();
  const std::lock_guard lock(mutex);
  if (!current) return;
  current->records.push_back({writer, context, level, file, line, function, text});
  if (current->throws) throw std::runtime_error("trace");
}

support_db_ctx Init(const char* operation, const char* parameters, const char* module, int reserved,
                    unsigned limit, support_db_ctx policy, support_db_ctx other) {
  Disturb();
  usleep(2000);  // long enough for a second thread to come by
  const std::lock_guard lock(mutex);
  if (current) {
    current->lifeCycle.push_back(std::string(operation) + " " + module
                                 + (parameters || reserved || limit != 127 ? " with odd arguments" : ""));
    if (current->refusesContexts) return 0;
  }
  return std::strcmp(module, "pkivalidator") == 0 ? policy : other;
}

}  // namespace

TraceRecorder::TraceRecorder() { current = this; }
TraceRecorder::~TraceRecorder() { current = nullptr; }

std::vector<std::string> Lines(const std::vector<TraceRecord>& records) {
  std::vector<std::string> lines;
  for (const TraceRecord& record : records) {
    lines.push_back(std::to_string(record.level) + " " + record.function + ": " + record.text);
  }
  return lines;
}

}  // namespace certkern::test

using namespace certkern::test;

extern "C" {

support_db_ctx support_print_init2(const char* parameters, const char* module, int reserved, unsigned limit) {
  return Init("init2", parameters, module, reserved, limit, kPolicyContext, kCertkernContext);
}

support_db_ctx support_print_init(const char* parameters, const char* module, int reserved, unsigned limit) {
  return Init("init", parameters, module, reserved, limit, 0, kLazyContext);
}

void support_print_done(support_db_ctx context) {
  Disturb();
  if (current) current->lifeCycle.push_back("done " + std::to_string(context));
}

int support_print_is(support_db_ctx, unsigned mask) {
  Disturb();
  const std::lock_guard lock(mutex);
  if (!current) return 0;
  ++current->asked;
  return (current->enabled & mask) != 0;
}

void support_print(support_db_ctx context, unsigned level, const char* format, int, int, const char* file,
                   int line, const char* function, va_list arguments) {
  Record("print", context, level, file, line, function, format, arguments);
}

void support_dprint_print_(support_db_ctx context, const char* format, const char* file, int line,
                           const char* function, ...) {
  va_list arguments;
  va_start(arguments, function);
  Record("dprint", context, 0, file, line, function, format, arguments);
  va_end(arguments);
}

void support_elprint_print_(support_db_ctx context, const char* format, const char* file, int line,
                            const char* function, ...) {
  va_list arguments;
  va_start(arguments, function);
  Record("elprint", context, 0, file, line, function, format, arguments);
  va_end(arguments);
}

}  // extern "C"
