// The order in which the library's process-wide state comes up when it is loaded, and goes down at exit.
#ifndef CERTKERN_API_STARTUP_H
#define CERTKERN_API_STARTUP_H

#include <span>

namespace certkern {

// A piece of state. Either half may be null. Neither may open a store, read the configuration or touch a provider:
// the library is loaded into programs that never use it.
struct StartupStep {
  const char* name;
  void (*begin)();
  void (*end)();
};

// Every piece, in the order of start-up; the end halves run in reverse.
std::span<const StartupStep> StartupSteps();

// Run by the loader and at exit. A second begin after an end makes the state anew.
void BeginLibrary();
void EndLibrary();

}  // namespace certkern

#endif
