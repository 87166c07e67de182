#include "container_fields.h"

#include "decoded.h"
#include "key_fields.h"
#include "name_fields.h"
#include "oid_names.h"
#include "text.h"

#include <certkern/errors.h>

#include <cstring>

namespace certkern::cli {
namespace {

void AddCertificate(Field& field, const ContainerKey& key, Detail detail) {
  Bytes encoded;
  if (!KeyParamBytes(key.key.get(), KP_CERTIFICATE, encoded)) {
    if (GetLastError() != NTE_NOT_FOUND) ThrowLastError("the certificate of the key");
    return;
  }
  Field& certificate = field.add("Certificate");
  const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, encoded);
  if (!info) {
    certificate.add("Remark", Words{"this certificate does not decode"});
    certificate.add("Content", encoded);
    return;
  }
  certificate.add(NameField("Subject", BytesOf(info->Subject)));
  if (detail == Detail::Short) return;
  certificate.add(NameField("Issuer", BytesOf(info->Issuer)));
  certificate.add("Not after", Words{TimeText(info->NotAfter)});
}

Field KeyField(const ContainerKey& key, Detail detail) {
  const std::string what = "the key";
  Field field;
  field.add("Purpose", Words{PurposeOfSpec(key.spec)});
  PublicKeyRecord record = PublicKeyOf(key);
  AddAlgorithm(field, "Algorithm", record.info().Algorithm, CRYPT_PUBKEY_ALG_OID_GROUP_ID);
  field.add("Size in bits", int64_t{KeyParam<DWORD>(key.key.get(), KP_KEYLEN, what)});
  if (detail == Detail::Full) {
    Bytes fingerprint;
    if (!KeyParamBytes(key.key.get(), KP_FP, fingerprint)) ThrowLastError(what);
    field.add("Fingerprint", fingerprint);
    field.add("Exportable", (KeyParam<DWORD>(key.key.get(), KP_PERMISSIONS, what) & CRYPT_EXPORT) != 0);
    field.add("PIN", NeedsPin(key));
  }
  AddCertificate(field, key, detail);
  return field;
}

// CONTAINER_EXTENSION, the dotted OID with its NUL, the value.
Field ExtensionOf(std::span<const BYTE> bytes) {
  CONTAINER_EXTENSION head{};
  Field field;
  if (bytes.size() < sizeof(head)) return field;
  std::memcpy(&head, bytes.data(), sizeof(head));
  const std::span<const BYTE> rest = bytes.subspan(sizeof(head));
  if (!head.cbOid || head.cbOid > rest.size() || rest[head.cbOid - 1] != 0) return field;
  field.value = NamedOid(reinterpret_cast<const char*>(rest.data()));
  field.add("Critical", head.bCritical != FALSE);
  const std::span<const BYTE> content = rest.subspan(head.cbOid);
  field.add("Content", Bytes(content.begin(), content.end()));
  return field;
}

void AddExtensions(Field& field, HCRYPTPROV provider) {
  Field extensions("Extensions");
  extensions.kind = Children::List;
  for (DWORD flag = CRYPT_FIRST;; flag = CRYPT_NEXT) {
    Bytes bytes;
    const auto ask = [&](BYTE* out, DWORD* size) {
      return CryptGetProvParam(provider, PP_ENUM_CONTAINER_EXTENSION, out, size, out ? DWORD{0} : flag);
    };
    if (!AskBytes(ask, bytes)) break;
    extensions.add(ExtensionOf(bytes));
  }
  if (GetLastError() != ERROR_NO_MORE_ITEMS) ThrowLastError("the extensions of the container");
  if (!extensions.children.empty()) field.add(std::move(extensions));
}

}  // namespace

Field ContainerField(const Place& place, Detail detail) {
  const ProviderHandle provider = OpenContainer(place, PROV_GOST_2012_256);
  Field field("Key container");
  field.add("Name", Text{Utf8Of(std::string_view(place.name))});
  field.add("Machine", place.machine);
  Field& keys = field.addList("Keys");
  for (const DWORD spec : SpecsIn(provider.get())) keys.add(KeyField(OpenKey(place, spec), detail));
  if (detail == Detail::Full) AddExtensions(field, provider.get());
  return field;
}

}  // namespace certkern::cli
