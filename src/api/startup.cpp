#include "api/startup.h"

#include <algorithm>
#include <iterator>

#include "keys/held_keys.h"
#include "keys/pin_callback.h"
#include "oid/function_sets.h"
#include "platform/trace.h"
#include "store/context_record.h"
#include "url/url_cache.h"

namespace certkern {
namespace {

// The only dynamic initialisation of the library. Other state is constinit, and joins here when it has something to
// begin or to end; constant tables (banners, keywords) are constexpr and need no row. The rows are in the order in
// which one piece may rely on another; at exit the registry of contexts has to go before anything that it traces to.
constexpr StartupStep kSteps[] = {
    {"trace",        [] { OpenTraceContext(certkern_db_ctx, "certkern"); },
     [] { CloseTraceContext(certkern_db_ctx); }                                                                          },
    {"lazy trace",   [] { certkern_lazy_db_ctx.arm(); },                            [] { certkern_lazy_db_ctx.disarm(); }},
    {"PIN slots",    CreatePinSlots,                                                DestroyPinSlots                      },
    {"OID sets",     OpenFunctionSets,                                              CloseFunctionSets                    },
    {"policy trace", [] { OpenTraceContext(pkivalidator_db_ctx, "pkivalidator"); },
     [] { CloseTraceContext(pkivalidator_db_ctx); }                                                                      },
    {"held keys",    BeginHoldingKeys,                                              EndHoldingKeys                       },
    {"chain detail", ReadChainDetailWish,                                           nullptr                              },
    {"URL cache",    OpenUrlCaches,                                                 CloseUrlCaches                       },
    {"contexts",     [] { contextRegistry.create(); },
     [] { contextRegistry.retire(); }                                                                                    }, // last: the first to go
};

struct Startup {
  Startup() { BeginLibrary(); }
  ~Startup() { EndLibrary(); }
} const startup;

}  // namespace

std::span<const StartupStep> StartupSteps() { return kSteps; }

void BeginLibrary() {
  for (const StartupStep& step : kSteps) {
    if (step.begin) step.begin();
  }
}

void EndLibrary() {
  std::for_each(std::rbegin(kSteps), std::rend(kSteps), [](const StartupStep& step) {
    if (step.end) step.end();
  });
}

}  // namespace certkern
