// Objects of a store in a few lines each.
#ifndef CERTKERN_CLI_STORE_FIELDS_H
#define CERTKERN_CLI_STORE_FIELDS_H

#include "field.h"

#include <certkern/cert.h>

namespace certkern::cli {

// Who it is, until when, what it is found by, and the private key that goes with it.
Field SummaryOf(const CERT_CONTEXT& certificate);
Field SummaryOf(const CRL_CONTEXT& crl);

}  // namespace certkern::cli

#endif
