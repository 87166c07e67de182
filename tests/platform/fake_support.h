// Operations of the support library that a test bends; linked in, they stand before the library's own.
#ifndef CERTKERN_TESTS_PLATFORM_FAKE_SUPPORT_H
#define CERTKERN_TESTS_PLATFORM_FAKE_SUPPORT_H

namespace certkern::test {

// What the brackets around an open do and answer. Set by a test, put back by reset().
struct FakeIds {
  int (*actualize)() = [] { return 0; };
  int (*deactualize)() = [] { return 0; };
};
extern FakeIds fakeIds;

// The eleventh of the paths: where catalogues are.
extern const char* fakeCatalogueDirectory;

}  // namespace certkern::test

#endif
