// What a build tells on standard output when the environment has SV_PRINT_CHAIN_DETAIL. It never changes a result, nor
// the last error. Arguments are not even looked at when it is off.
#ifndef CERTKERN_CERTKERN_CHAIN_CHAIN_TRACE_H
#define CERTKERN_CERTKERN_CHAIN_CHAIN_TRACE_H

#include <certkern/chain.h>

#include <string>
#include <string_view>

namespace certkern {

// Whether the environment of the process had the variable when the library was loaded.
bool IsChainTraceOn();

class ChainTrace {
 public:
  ChainTrace() = default;
  // The clone's: two blanks longer.
  ChainTrace nested() const;

  bool on() const { return IsChainTraceOn(); }
  const std::string& prefix() const { return prefix_; }

  // One line, with the prefix in front: its parts are text, numbers and pointers.
  template <class... Parts>
  void line(const Parts&... parts) const {
    if (on()) write(join(parts...));
  }
  // Alternative names, subject and issuer of a certificate, each line with the prefix.
  void certificate(PCCERT_CONTEXT context) const;
  void crl(PCCRL_CONTEXT context) const;

 private:
  template <class... Parts>
  static std::string join(const Parts&... parts) {
    std::string text;
    (append(text, parts), ...);
    return text;
  }
  static void append(std::string& text, std::string_view part);
  static void append(std::string& text, const char* part) { append(text, std::string_view(part)); }
  static void append(std::string& text, uint64_t number);
  static void append(std::string& text, const void* pointer);
  void write(const std::string& text) const;

  std::string prefix_;
};

}  // namespace certkern

#endif
