// The directories and settings of this test program, which are read once, whichever test comes first.
#ifndef CERTKERN_TESTS_URL_URL_HOME_H
#define CERTKERN_TESTS_URL_URL_HOME_H

#include "platform/temporary_directory.h"

namespace certkern::test {

// The user's stores are in "user" below it.
const TemporaryDirectory& UrlHome();

}  // namespace certkern::test

#endif
