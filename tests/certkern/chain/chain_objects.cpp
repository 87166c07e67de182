#include "certkern/chain/chain_objects.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <vector>

namespace certkern::test {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

std::vector<BYTE> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

}  // namespace

ChainObjects::ChainObjects(std::string_view table) {
  const std::string rows = directory_.write("rows.in", std::string(table));
  const std::string command = "sh '" CERTKERN_SOURCE_DIR "/tests/data/make_chains.sh' '" + directory_.path("")
      + "' <'" + rows + "' 2>&1";
  FILE* const pipe = popen(command.c_str(), "r");
  std::string said;
  for (int byte; pipe && (byte = fgetc(pipe)) != EOF;) said += static_cast<char>(byte);
  if (!pipe || pclose(pipe) != 0) ADD_FAILURE() << "the chains can't be made: " << said;
}

PCCERT_CONTEXT ChainObjects::certificate(const std::string& row) const {
  CertificateHandle& certificate = certificates_[row];
  if (!certificate) {
    const std::vector<BYTE> encoded = Bytes(directory_.read(row + ".crt"));
    certificate.reset(
        CertCreateCertificateContext(kEncoding, encoded.data(), static_cast<DWORD>(encoded.size())));
    EXPECT_TRUE(certificate) << "no certificate " << row;
  }
  return certificate.get();
}

PCCRL_CONTEXT ChainObjects::crl(const std::string& row) const {
  CrlHandle& crl = crls_[row];
  if (!crl) {
    const std::vector<BYTE> encoded = Bytes(directory_.read(row + ".crl"));
    crl.reset(CertCreateCRLContext(kEncoding, encoded.data(), static_cast<DWORD>(encoded.size())));
    EXPECT_TRUE(crl) << "no list " << row;
  }
  return crl.get();
}

std::string ChainObjects::nameOf(PCCERT_CONTEXT certificate) const {
  if (names_.empty()) {
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path(""))) {
      if (entry.path().extension() == ".crt") {
        names_[directory_.read(entry.path().filename())] = entry.path().stem();
      }
    }
  }
  const auto name = names_.find(
      std::string(certificate->pbCertEncoded, certificate->pbCertEncoded + certificate->cbCertEncoded));
  return name == names_.end() ? "?" : name->second;
}

void ChainObjects::addTo(HCERTSTORE store, const std::string& rows) const {
  std::istringstream names(rows);
  for (std::string row; names >> row;) {
    const bool added = std::filesystem::exists(path(row + ".crl"))
        ? CertAddCRLContextToStore(store, crl(row), CERT_STORE_ADD_ALWAYS, nullptr)
        : CertAddCertificateContextToStore(store, certificate(row), CERT_STORE_ADD_ALWAYS, nullptr);
    EXPECT_TRUE(added) << row << ": " << GetLastError();
  }
}

MemoryStore ChainObjects::store(const std::string& rows) const {
  MemoryStore store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  EXPECT_TRUE(store);
  addTo(store.get(), rows);
  return store;
}

}  // namespace certkern::test
