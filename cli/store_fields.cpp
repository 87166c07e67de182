#include "store_fields.h"

#include "decoded.h"
#include "handles.h"
#include "name_fields.h"
#include "text.h"

#include <certkern/properties.h>

#include <cstddef>

namespace certkern::cli {
namespace {

Bytes BigEndian(const CRYPT_INTEGER_BLOB& number) {
  const std::span<const BYTE> little = BytesOf(number);
  return {little.rbegin(), little.rend()};
}

template <auto Get, typename Context>
void AddProperty(Field& object, std::string_view label, Context context, DWORD id) {
  Bytes value;
  if (AskBytes([&](BYTE* out, DWORD* size) { return Get(context, id, out, size); }, value))
    object.add(label, value);
}

void AddPrivateKey(Field& object, PCCERT_CONTEXT certificate) {
  std::vector<std::max_align_t> room;
  DWORD size = 0;
  if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) return;
  room.resize(size / sizeof(std::max_align_t) + 1);
  if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, room.data(), &size)) return;
  const auto& info = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data());
  object.add("Private key",
             Text{Utf8Of(std::wstring_view(info.pwszContainerName ? info.pwszContainerName : L""))});
}

}  // namespace

Field SummaryOf(const CERT_CONTEXT& certificate) {
  const CERT_INFO& info = *certificate.pCertInfo;
  Field object("Certificate");
  object.add(NameField("Subject", BytesOf(info.Subject)));
  object.add(NameField("Issuer", BytesOf(info.Issuer)));
  object.add("Serial number", BigEndian(info.SerialNumber));
  object.add("Not before", Words{TimeText(info.NotBefore)});
  object.add("Not after", Words{TimeText(info.NotAfter)});
  AddProperty<CertGetCertificateContextProperty>(object, "SHA-1", &certificate, CERT_SHA1_HASH_PROP_ID);
  AddProperty<CertGetCertificateContextProperty>(object, "Key identifier", &certificate,
                                                 CERT_KEY_IDENTIFIER_PROP_ID);
  AddPrivateKey(object, &certificate);
  return object;
}

Field SummaryOf(const CRL_CONTEXT& crl) {
  const CRL_INFO& info = *crl.pCrlInfo;
  Field object("CRL");
  object.add(NameField("Issuer", BytesOf(info.Issuer)));
  object.add("This update", Words{TimeText(info.ThisUpdate)});
  object.add("Next update", Words{TimeText(info.NextUpdate)});
  object.add("Entries", int64_t{info.cCRLEntry});
  AddProperty<CertGetCRLContextProperty>(object, "SHA-1", &crl, CERT_SHA1_HASH_PROP_ID);
  return object;
}

}  // namespace certkern::cli
