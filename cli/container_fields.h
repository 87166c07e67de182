// Key containers as fields.
#ifndef CERTKERN_CLI_CONTAINER_FIELDS_H
#define CERTKERN_CLI_CONTAINER_FIELDS_H

#include "container.h"
#include "field.h"

namespace certkern::cli {

enum class Detail { Short, Full };

// The keys of a container, and with Detail::Full what else is in it. Public halves only: no PIN is wanted.
Field ContainerField(const Place& place, Detail detail);

}  // namespace certkern::cli

#endif
