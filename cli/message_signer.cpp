#include "message_signer.h"

#include "chain_request.h"
#include "encoded.h"
#include "failure.h"
#include "text.h"

#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/properties.h>
#include <fmt/format.h>
#include <unistd.h>

namespace certkern::cli {
namespace {

std::string Shown(const std::string& name) { return Escaped(Utf8Of(std::string_view(name))); }

CertificateHandle Duplicate(PCCERT_CONTEXT certificate) {
  return CertificateHandle(CertDuplicateCertificateContext(certificate));
}

CertificateHandle CertificateOfKey(const ContainerKey& key, const Place& place) {
  Bytes encoded;
  if (!KeyParamBytes(key.key.get(), KP_CERTIFICATE, encoded))
    throw Failure(place.shown() + ": there is no certificate with this key; name one with --certificate");
  CertificateHandle certificate(
      CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), CheckedSize(encoded.size())));
  if (!certificate) ThrowLastError(place.shown());
  return certificate;
}

// Where a certificate says that its key is.
struct KeyPlace {
  Place place;
  DWORD spec = 0;
};
std::optional<KeyPlace> PlaceOfKey(PCCERT_CONTEXT certificate) {
  Bytes bytes;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, out, size);
  };
  if (!AskBytes(ask, bytes)) return std::nullopt;
  const auto& info = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(bytes.data());
  if (!info.pwszContainerName) return std::nullopt;
  return KeyPlace{
      {Utf8Of(std::wstring_view(info.pwszContainerName)), (info.dwFlags & CRYPT_MACHINE_KEYSET) != 0},
      info.dwKeySpec
  };
}

// The only one of a store that has a key.
CertificateHandle CertificateOfStore(const std::string& name) {
  const StoreHandle store = OpenStoreView({name, false});
  CertificateHandle found;
  ForEachCertificate(store.get(), [&](PCCERT_CONTEXT each) {
    if (!PlaceOfKey(each)) return;
    if (found)
      throw Failure(
          fmt::format("{}: more than one certificate of this store has a key; name a file with "
                      "the one that is meant",
                      Shown(name)));
    found = Duplicate(each);
  });
  if (!found) throw Failure(Shown(name) + ": no certificate of this store has a key");
  return found;
}

// A certificate from a file knows nothing of its key, but the one in the store "My" may.
CertificateHandle WithKeyOfMy(CertificateHandle certificate) {
  StoreHandle my(CertOpenStore(
      CERT_STORE_PROV_SYSTEM_W, 0, 0,
      CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_READONLY_FLAG, L"My"));
  if (!my) return certificate;
  CertificateHandle same(CertFindCertificateInStore(my.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING,
                                                    certificate.get(), nullptr));
  return same && PlaceOfKey(same.get()) ? std::move(same) : std::move(certificate);
}

CertificateHandle NamedCertificate(const std::string& name) {
  if (access(name.c_str(), F_OK) != 0) return CertificateOfStore(name);
  const StoreHandle file = OpenMemoryStore();
  return WithKeyOfMy(LoadCertificateFile(name, file.get()));
}

ContainerKey KeyOfCertificate(PCCERT_CONTEXT certificate, const SignerOptions& options) {
  const std::optional<KeyPlace> where = PlaceOfKey(certificate);
  if (!where)
    throw Failure(Shown(options.certificate)
                  + ": where its private key is, nothing tells; name the key container with --key");
  ContainerKey key = OpenKey(where->place, where->spec);
  Unlock(key, options.key.pin, where->place);
  return key;
}

void RequireSameKey(const MessageSigner& signer, const SignerOptions& options) {
  PublicKeyRecord own = PublicKeyOf(signer.key);
  CERT_PUBLIC_KEY_INFO certified = signer.certificate.get()->pCertInfo->SubjectPublicKeyInfo;
  if (!CertComparePublicKeyInfo(X509_ASN_ENCODING, &own.info(), &certified))
    throw Failure(
        fmt::format("{}: its key is not that of {}", Shown(options.certificate), options.key.place.shown()));
}

}  // namespace

void AddSignerOptions(CLI::App& command, SignerOptions& options) {
  command.add_option("--key", options.key.place.name, "The key container of the signer")->type_name("NAME");
  command
      .add_option("--certificate", options.certificate,
                  "The signer's certificate: a file, or the store that has one with a key; that which is "
                  "kept with the key unless given")
      ->type_name("FILE|NAME");
  AddMachineOption(command, options.key.place);
  AddPurposeOption(command, options.key.purpose, "Which key of the container, where there are two");
  AddPinOptions(command, options.key.pin, "pin");
}

MessageSigner OpenSigner(const SignerOptions& options) {
  const bool hasKey = !options.key.place.name.empty();
  if (!hasKey && options.certificate.empty())
    throw WrongUsage("who signs? Name a key container with --key, or a certificate with --certificate");
  MessageSigner signer;
  if (!options.certificate.empty()) signer.certificate = NamedCertificate(options.certificate);
  if (hasKey) {
    signer.key = OpenKey(options.key);
    if (!signer.certificate) signer.certificate = CertificateOfKey(signer.key, options.key.place);
    if (!options.certificate.empty()) RequireSameKey(signer, options);
    Unlock(signer.key, options.key.pin, options.key.place);
  } else {
    signer.key = KeyOfCertificate(signer.certificate.get(), options);
  }
  CERT_KEY_CONTEXT context{};
  context.cbSize = sizeof context;
  context.hCryptProv = signer.key.provider.get();
  context.dwKeySpec = signer.key.spec;
  if (!CertSetCertificateContextProperty(signer.certificate.get(), CERT_KEY_CONTEXT_PROP_ID,
                                         CERT_STORE_NO_CRYPT_RELEASE_FLAG, &context))
    ThrowLastError("the private key");
  return signer;
}

}  // namespace certkern::cli
