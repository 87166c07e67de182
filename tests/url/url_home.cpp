#include "url/url_home.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace certkern::test {
namespace {

std::unique_ptr<TemporaryDirectory> home;

class UrlEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(name);
    home = std::make_unique<TemporaryDirectory>();
    std::filesystem::create_directory(home->path("user"));
    std::filesystem::permissions(home->path("user"), std::filesystem::perms::owner_all);
    const std::string text = "[paths]\nlocal_stores = '" + home->path("user")
        + "'\n[config.Certkern.cache_settings]\nmax_elements = 40\n";
    setenv("CERTKERN_CONFIG", home->write("config.toml", text).c_str(), 1);
  }
  void TearDown() override { home.reset(); }
};

// owned by the framework
[[maybe_unused]] testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(std::make_unique<UrlEnvironment>().release());

}  // namespace

const TemporaryDirectory& UrlHome() { return *home; }

}  // namespace certkern::test
