// Trace records of this library itself. The operations for others are in platform/supkern.h.
#ifndef CERTKERN_SUPKERN_TRACE_H
#define CERTKERN_SUPKERN_TRACE_H

#include <string>

namespace certkern::support {

// Writes a failure under the module "supkern". Keeps errno.
void TraceError(const char* function, const std::string& text, int line = __builtin_LINE());

// Writes what was wrong with the configuration files, the first time that it is called.
void ReportConfigurationFaults();

}  // namespace certkern::support

#endif
