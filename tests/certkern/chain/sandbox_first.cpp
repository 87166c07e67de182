// Before any test: one that reads the configuration without asking for the sandbox would fix it to the machine's own.
#include "certkern/chain/chain_fixture.h"

namespace {

[[maybe_unused]] const certkern::test::TemporaryDirectory& sandbox = certkern::test::Sandbox();

}  // namespace
