// The property that an object in the URL cache carries.
#include "url/cached_url.h"

#include <gtest/gtest.h>

#include "support/hex.h"

using namespace certkern;

namespace {
TEST(CachedUrl, Placeholder) {}
}  // namespace
