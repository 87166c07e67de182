// A process that has no descriptor left. libgcrypt ends the process when it can't read how the kernel is set up, so
// whatever it needs a descriptor for has to be done before.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

#include "host/keykern/key_level.h"

namespace {

// False where the limit does not hold.
bool SpendDescriptors() {
  const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (next < 0 || close(next)) return false;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit)) return false;
  limit.rlim_cur = static_cast<rlim_t>(next);
  return !setrlimit(RLIMIT_NOFILE, &limit) && open("/dev/null", O_RDONLY | O_CLOEXEC) < 0;
}

// All that leads to libgcrypt or to random numbers; the answers are checked by the tests of each.
bool UseEverything() {
  const ProviderHandle provider = VerifyContext();
  if (!provider) return false;
  ByteVector data(64, BYTE{7});
  bool done = CryptGenRandom(provider.get(), 64, data.data()) != FALSE;
  for (const ALG_ID algorithm : {CALG_GR3411, CALG_GR3411_2012_256, CALG_GR3411_2012_512}) {
    const HashHandle hash = HashOf(provider, algorithm, data);
    ByteVector value(64);
    DWORD size = 64;
    done = CryptGetHashParam(hash.get(), HP_HASHVAL, value.data(), &size, 0) && done;
  }
  for (const ALG_ID algorithm : {CALG_G28147, CALG_GR3412_2015_M, CALG_GR3412_2015_K}) {
    const KeyHandle derived = Derive(provider, algorithm, ByteVector(32, BYTE{5}));
    const KeyHandle key = Generate(provider, algorithm);
    DWORD size = 32;
    done = derived && key && CryptEncrypt(key.get(), 0, TRUE, 0, data.data(), &size, 64) && done;
  }
  return done;
}

// In a process of its own, where the key level has been loaded and nothing more.
TEST(Descriptors, NoneIsLeftBehindTheLoad) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer looks at memory through a pipe";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(SpendDescriptors() && UseEverything() ? 0 : 3), ::testing::ExitedWithCode(0), "");
}

}  // namespace
