// Keys, converters, the display and one setting, played by the test: linked in, they stand before those of the platform
// libraries. Providers and hashes are real, so that what a signature covers is real, too.
#ifndef CERTKERN_TESTS_KEYS_FAKE_KEY_LEVEL_H
#define CERTKERN_TESTS_KEYS_FAKE_KEY_LEVEL_H

#include <certkern/keykern.h>

#include <string>
#include <vector>

namespace certkern::test {

// Reset by its constructor; lives for one test.
struct FakeKeyLevel {
  FakeKeyLevel();
  ~FakeKeyLevel();

  // what happened
  std::string converter;  // the last one
  DWORD importFlags = 0;
  int liveKeys = 0;
  std::vector<BYTE> hash;       // value of the last hash that was signed or verified
  std::vector<BYTE> signature;  // as CryptVerifySignatureA got it
  DWORD signatureFlags = 0;
  std::vector<DWORD> pssParameter;  // of the last hash; empty when none was set
  int signatures = 0;               // that were made
  std::vector<std::string> display;
  int settingReads = 0;

  // what shall happen
  DWORD convertFails = 0, importFails = 0, verifyFails = 0;  // codes
  DWORD keyLengthSize = sizeof(DWORD);
  DWORD sizeTold = 4, sizeMade = 4;  // of a signature, whose bytes are 1, 2, 3 ...
  bool displays = false, displayFails = false;
  int64_t setting = 0;  // 0: absent
};

inline constexpr DWORD kKeyBits = 1234;

}  // namespace certkern::test

#endif
