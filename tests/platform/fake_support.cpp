#include "fake_support.h"

#include "platform/supkern.h"

namespace certkern::test {

constinit FakeIds fakeIds;
constinit const char* fakeCatalogueDirectory = nullptr;

}  // namespace certkern::test

extern "C" {

int support_thread_actualize_uids() { return certkern::test::fakeIds.actualize(); }
int support_thread_deactualize_uids() { return certkern::test::fakeIds.deactualize(); }

const csp_paths* csp_get_paths() {
  static csp_paths paths;
  for (const char*& entry : paths.entry) entry = "/nonexistent";
  paths.entry[10] = certkern::test::fakeCatalogueDirectory;
  return &paths;
}

}  // extern "C"
