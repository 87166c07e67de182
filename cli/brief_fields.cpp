#include "brief_fields.h"

#include "decoded.h"
#include "fingerprint.h"
#include "name_fields.h"
#include "text.h"

#include <certkern/keykern.h>

#include <optional>
#include <span>

namespace certkern::cli {
namespace {

// Serial numbers are kept little-endian and read big-endian.
Bytes SerialOf(const CRYPT_INTEGER_BLOB& serial) {
  const std::span<const BYTE> little = BytesOf(serial);
  return {little.rbegin(), little.rend()};
}

void AddSizeAndPrint(Field& field, std::span<const BYTE> encoded) {
  field.add("Size", static_cast<int64_t>(encoded.size()));
  if (std::optional<Bytes> print = Fingerprint(Digest::Sha256, encoded)) {
    field.add(DigestName(Digest::Sha256), *std::move(print));
  }
}

}  // namespace

Field BriefField(const CERT_CONTEXT& certificate) {
  const CERT_INFO& info = *certificate.pCertInfo;
  Field field("Certificate");
  field.add(NameField("Subject", BytesOf(info.Subject)));
  field.add(NameField("Issuer", BytesOf(info.Issuer)));
  field.add("Serial number", SerialOf(info.SerialNumber));
  field.add("Not before", Words{TimeText(info.NotBefore)});
  field.add("Not after", Words{TimeText(info.NotAfter)});
  AddSizeAndPrint(field, {certificate.pbCertEncoded, certificate.cbCertEncoded});
  return field;
}

Field BriefField(const CRL_CONTEXT& crl) {
  const CRL_INFO& info = *crl.pCrlInfo;
  Field field("CRL");
  field.add(NameField("Issuer", BytesOf(info.Issuer)));
  field.add("This update", Words{TimeText(info.ThisUpdate)});
  field.add("Next update", Words{TimeText(info.NextUpdate)});
  field.add("Entries", int64_t{info.cCRLEntry});
  AddSizeAndPrint(field, {crl.pbCrlEncoded, crl.cbCrlEncoded});
  return field;
}

}  // namespace certkern::cli
