// Who signs a message: a certificate and its private key, by what the command line says.
#ifndef CERTKERN_CLI_MESSAGE_SIGNER_H
#define CERTKERN_CLI_MESSAGE_SIGNER_H

#include "container.h"
#include "stores.h"

#include <string>

namespace certkern::cli {

struct SignerOptions {
  KeyChoice key;            // its name may be empty
  std::string certificate;  // a file or a store; empty: the one that is kept with the key
};
void AddSignerOptions(CLI::App& command, SignerOptions& options);

// The key is unlocked, and hangs on the certificate.
struct MessageSigner {
  ContainerKey key;
  CertificateHandle certificate;
};
MessageSigner OpenSigner(const SignerOptions& options);

}  // namespace certkern::cli

#endif
