#include "ber/struct_type_oid.h"

#include "ber/struct_types.h"

#include <cstring>

namespace certkern {
namespace {

struct OidRow {
  const char* oid;
  uintptr_t number;
};

constexpr OidRow kOidRows[] = {
    {"2.5.29.19",              15                },
    {"1.2.840.113549.1.9.15",  42                },
    {"2.5.29.7",               12                },
    {"2.5.29.8",               12                },
    {"2.5.29.17",              12                },
    {"2.5.29.18",              12                },
    {"1.3.6.1.5.5.7.1.1",      32                },
    {"2.5.29.1",               9                 },
    {"2.5.29.35",              31                },
    {"2.5.29.31",              35                },
    {"2.5.29.21",              29                },
    {"2.5.29.20",              27                },
    {"2.5.29.37",              36                },
    {"2.5.29.15",              14                },
    {"1.3.6.1.4.1.311.2.1.14", 5                 },
    {"1.2.840.113549.1.9.5",   17                },
    {"2.5.29.32",              16                },
    {"1.3.6.1.4.1.311.21.10",  16                },
    {"2.5.29.36",              57                },
    {"1.3.6.1.4.1.311.21.12",  57                },
    {"1.3.6.1.4.1.311.21.7",   64                },
    {"2.5.29.14",              25                },
    {"2.5.29.28",              54                },
    {"1.3.6.1.4.1.311.13.2.1", kTypeNameValuePair},
    {"1.3.6.1.4.1.311.13.2.2", kTypeCspProvider  },
    {"1.2.840.10045.4.3",      74                },
    {"2.5.29.33",              56                },
    {"2.5.29.5",               56                },
    {"1.3.6.1.5.5.7.2.2",      46                },
    {"2.5.29.2",               10                },
};

}  // namespace

uintptr_t StructTypeFromOid(LPCSTR type) {
  const uintptr_t number = StructNumber(type);
  if (number < kFirstStringType) return number;
  for (const OidRow& row : kOidRows) {
    if (std::strcmp(row.oid, type) == 0) return row.number;
  }
  return number;
}

}  // namespace certkern
