// Which objects of a store are meant: options, and the walk over those that fit all of them.
#ifndef CERTKERN_CLI_STORE_SELECTION_H
#define CERTKERN_CLI_STORE_SELECTION_H

#include "stores.h"

#include <string>
#include <vector>

namespace certkern::cli {

struct Selection {
  std::string subject;
  std::string issuer;
  std::string serial;                 // hexadecimal, as shown
  std::string hash;                   // hexadecimal, SHA-1
  std::string keyId;                  // hexadecimal
  std::vector<std::string> usages;    // names of RFC 5280, 4.2.1.3
  std::vector<std::string> purposes;  // names or dotted identifiers of extended key usages
  bool hasKey = false;

  bool empty() const;
};
void AddSelectionOptions(CLI::App& command, Selection& selection);

// Wrong usage, where a value can't be one; before anything is opened.
void CheckSelection(const Selection& selection);

struct Selected {
  std::vector<CertificateHandle> certificates;
  std::vector<CrlHandle> crls;  // only a hash or an issuer means them

  size_t size() const { return certificates.size() + crls.size(); }
};
// An empty selection means everything.
Selected SelectFrom(HCERTSTORE store, const Selection& selection);

}  // namespace certkern::cli

#endif
