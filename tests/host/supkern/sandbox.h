// A directory of a test's own, and processes of their own: the library reads its configuration once in a
// process, so what depends on it runs in a child that has not read it yet.
#ifndef CERTKERN_TESTS_HOST_SUPKERN_SANDBOX_H
#define CERTKERN_TESTS_HOST_SUPKERN_SANDBOX_H

#include <functional>
#include <string>
#include <vector>

// Runs the body in the child of a fork and ends it: status 1 when an expectation failed or something was
// thrown, for a child must never go on with the tests that its parent still has to run.
[[noreturn]] void EndChild(const std::function<void()>& body);

class Sandbox {
 public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  std::string path(const std::string& name = {}) const { return name.empty() ? root_ : root_ + '/' + name; }
  // Writes a file, making the directories above it; answers its path.
  std::string write(const std::string& name, const std::string& text) const;
  std::string read(const std::string& name) const;
  std::vector<std::string> lines(const std::string& name) const;

  // Runs the body in a child whose home, and whose one configuration file, are in here. Its standard error
  // goes to the file "stderr". A failed expectation in the child is a failure of the test.
  void run(const std::string& configuration, const std::function<void()>& body) const;
  // The same without a named file, so that the layers count.
  void runWithLayers(const std::function<void()>& body) const;

 private:
  void runChild(const std::function<void()>& body) const;
  std::string root_;
};

#endif
