// Where records go.
#ifndef CERTKERN_SUPKERN_TRACE_SINK_H
#define CERTKERN_SUPKERN_TRACE_SINK_H

#include <string>
#include <string_view>

namespace certkern::support {

class TraceSink {
 public:
  virtual ~TraceSink() = default;
  // Takes one record, newline included. What fails is lost: a trace must not become the program's trouble.
  virtual void write(unsigned level, std::string_view record) = 0;
};

// The sink of that name: "stderr", "syslog", or the absolute path of a file, which is made with mode 0600 and
// appended to. Null, after one complaint on standard error, when it cannot be had. Sinks live until the
// process ends, and modules that name the same one share it.
TraceSink* FindTraceSink(const std::string& name);

// Writes bytes with one write; a reader that has gone does not raise SIGPIPE. False when they were not all
// taken.
bool WriteAtOnce(int descriptor, std::string_view bytes);

// Writes one line of ours, as far as it is plain text, to standard error.
void ComplainOnStandardError(std::string_view text);

}  // namespace certkern::support

#endif
