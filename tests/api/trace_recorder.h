// The tracing operations of the support library, played by the test: linked in, they stand before the library's own.
// Each call disturbs the last error and errno on purpose, as an implementation may.
#ifndef CERTKERN_TESTS_API_TRACE_RECORDER_H
#define CERTKERN_TESTS_API_TRACE_RECORDER_H

#include <string>
#include <vector>

namespace certkern::test {

struct TraceRecord {
  std::string writer;  // print, dprint or elprint
  unsigned long context;
  unsigned level;  // 0 for the diagnostic writers
  std::string file;
  int line;
  std::string function;
  std::string text;
};

// "4 Function: text", which is most of what a test wants to see.
std::vector<std::string> Lines(const std::vector<TraceRecord>& records);

// The state of the fake, reset by its constructor; lives for one test.
class TraceRecorder {
 public:
  TraceRecorder();
  ~TraceRecorder();
  std::vector<TraceRecord> records;
  std::vector<std::string> lifeCycle;  // of contexts: "init2 certkern", "done certkern" ...
  unsigned enabled = ~0u;              // mask of what support_print_is answers for
  int asked = 0;                       // calls of support_print_is
  bool throws = false;                 // a record that is written throws
  bool refusesContexts = false;
};

constexpr unsigned long kCertkernContext = 11, kPolicyContext = 12, kLazyContext = 13;

}  // namespace certkern::test

#endif
