// Certificates and lists that the openssl program made from a table (tests/data/make_chains.sh says how to write one),
// found again by the names of their rows.
#ifndef CERTKERN_TESTS_CERTKERN_CHAIN_CHAIN_OBJECTS_H
#define CERTKERN_TESTS_CERTKERN_CHAIN_CHAIN_OBJECTS_H

#include <certkern/store.h>

#include <map>
#include <string>
#include <string_view>

#include "platform/owner.h"
#include "platform/temporary_directory.h"

namespace certkern::test {

using CertificateHandle = Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using CrlHandle = Owner<PCCRL_CONTEXT, CertFreeCRLContext>;
using MemoryStore = Owner<HCERTSTORE, CertCloseStore>;

class ChainObjects {
 public:
  // Runs the script; a row that openssl refuses is a failure of the test.
  explicit ChainObjects(std::string_view table);

  // Free-standing contexts, made once each and kept.
  PCCERT_CONTEXT certificate(const std::string& row) const;
  PCCRL_CONTEXT crl(const std::string& row) const;
  // Of any file that the script left: "leaf.pem", "label.key".
  std::string path(const std::string& file) const { return directory_.path(file); }
  // The row that a certificate was made by, "?" for a stranger.
  std::string nameOf(PCCERT_CONTEXT certificate) const;

  // Adds rows, certificates and lists alike, in the order of their names: "root inter list". A store's newest element
  // is found first.
  void addTo(HCERTSTORE store, const std::string& rows) const;
  MemoryStore store(const std::string& rows) const;

 private:
  TemporaryDirectory directory_;
  mutable std::map<std::string, CertificateHandle> certificates_;
  mutable std::map<std::string, CrlHandle> crls_;
  mutable std::map<std::string, std::string> names_;  // by encoding
};

}  // namespace certkern::test

#endif
