#include "store/message_store.h"

#include <certkern/errors.h>

#include "ber/read_cursor.h"
#include "platform/limits.h"
#include "platform/owner.h"

namespace certkern {
namespace {

using MessageHandle = Owner<HCRYPTMSG, CryptMsgClose>;

struct ObjectKind {
  ElementType type;
  DWORD countParameter;
  DWORD parameter;
};
constexpr ObjectKind kObjectKinds[] = {
    {ElementType::Certificate, CMSG_CERT_COUNT_PARAM, CMSG_CERT_PARAM},
    {ElementType::Crl,         CMSG_CRL_COUNT_PARAM,  CMSG_CRL_PARAM },
};

// Where an object lies among bytes that may still move.
struct Place {
  ElementType type;
  size_t offset;
  size_t size;
};

MessageHandle OpenEncoded(std::span<const BYTE> encoded) {
  MessageHandle message(
      CryptMsgOpenToDecode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, 0, nullptr, nullptr));
  if (!message) return {};
  const auto size = static_cast<DWORD>(encoded.size());
  return CryptMsgUpdate(message.get(), encoded.data(), size, TRUE) ? std::move(message) : MessageHandle();
}

bool AppendObject(HCRYPTMSG message, const ObjectKind& kind, DWORD index, std::vector<BYTE>& bytes,
                  std::vector<Place>& places) {
  DWORD size = 0;
  if (!CryptMsgGetParam(message, kind.parameter, index, nullptr, &size)) return false;
  const size_t offset = bytes.size();
  bytes.resize(offset + size);
  if (!CryptMsgGetParam(message, kind.parameter, index, bytes.data() + offset, &size)) return false;
  places.push_back({kind.type, offset, size});
  return true;
}

bool Decodes(ElementType type, std::span<const BYTE> encoded) {
  const ContextOwner context(CreateContext(type, X509_ASN_ENCODING, encoded));
  return static_cast<bool>(context);
}

// An object that is read and decodes, or is kept anyway. False with a code.
bool AppendReadable(HCRYPTMSG message, const ObjectKind& kind, DWORD index, Unreadable unreadable,
                    std::vector<BYTE>& bytes, std::vector<Place>& places) {
  const size_t before = bytes.size();
  const bool appended = AppendObject(message, kind, index, bytes, places);
  if (unreadable == Unreadable::Kept) return appended;
  if (appended && Decodes(kind.type, std::span(bytes).subspan(before))) return true;
  if (GetLastError() == ERROR_NOT_ENOUGH_MEMORY) return false;
  bytes.resize(before);
  if (appended) places.pop_back();
  return true;
}

bool AppendObjects(HCRYPTMSG message, const ObjectKind& kind, Unreadable unreadable, std::vector<BYTE>& bytes,
                   std::vector<Place>& places) {
  DWORD count = 0;
  DWORD size = sizeof(count);
  if (!CryptMsgGetParam(message, kind.countParameter, 0, &count, &size)) return false;
  for (DWORD index = 0; index < count; ++index) {
    if (!AppendReadable(message, kind, index, unreadable, bytes, places)) return false;
  }
  return true;
}

// --- the other way ---

struct SavedObjects {
  std::vector<std::vector<BYTE>> certificates;
  std::vector<std::vector<BYTE>> crls;
};

// Copies, as the store goes on living.
SavedObjects CopyObjects(CertStore& store) {
  SavedObjects objects;
  static_cast<void>(VisitElements(store, ImageUse::Save, [&](const StoreElement& each) {
    const std::span<const BYTE> encoded = each.encoded();
    auto& list = each.type == ElementType::Certificate ? objects.certificates : objects.crls;
    list.emplace_back(encoded.begin(), encoded.end());
    return true;
  }));
  return objects;
}

std::vector<CRYPT_DATA_BLOB> AsBlobs(std::vector<std::vector<BYTE>>& objects) {
  std::vector<CRYPT_DATA_BLOB> blobs;
  blobs.reserve(objects.size());
  for (std::vector<BYTE>& each : objects) blobs.push_back({static_cast<DWORD>(each.size()), each.data()});
  return blobs;
}

}  // namespace

bool WriteMessage(CertStore& store, ImageBytes& image) {
  SavedObjects objects = CopyObjects(store);
  std::vector<CRYPT_DATA_BLOB> certificates = AsBlobs(objects.certificates), crls = AsBlobs(objects.crls);
  CMSG_SIGNED_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.cCertEncoded = static_cast<DWORD>(certificates.size());
  info.rgCertEncoded = certificates.data();
  info.cCrlEncoded = static_cast<DWORD>(crls.size());
  info.rgCrlEncoded = crls.data();
  const MessageHandle message(CryptMsgOpenToEncode(
      X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, SVCMSG_CADES_DISABLE, CMSG_SIGNED, &info, nullptr, nullptr));
  DWORD size = 0;
  if (!message || !CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, nullptr, &size)) return false;
  image.size = size;
  if (image.mode == ImageBytes::Mode::Count) return true;
  image.bytes.resize(size);
  return CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, image.bytes.data(), &size) != FALSE;
}

bool ReadMessageObjects(std::span<const BYTE> encoded, Unreadable unreadable, MessageObjects& objects) {
  const MessageHandle message = OpenEncoded(encoded);
  if (!message) return false;
  objects = {};
  std::vector<Place> places;
  for (const ObjectKind& kind : kObjectKinds) {
    if (!AppendObjects(message.get(), kind, unreadable, objects.bytes, places)) return false;
  }
  for (const Place& place : places) {
    const std::span<const BYTE> object = std::span(objects.bytes).subspan(place.offset, place.size);
    objects.content.elements.push_back({place.type, object, 0, 0});
  }
  return true;
}

StoreHandle OpenMessageStore(const OpenRequest& request) {
  if (!request.parameter) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  OpenRequest forMemory = request;
  forMemory.provider = StoreNumber(CERT_STORE_PROV_MEMORY);
  forMemory.flags &= ~CERT_STORE_READONLY_FLAG;
  StoreHandle store = OpenPlainStore(forMemory);
  if (store) store->verificationUnits = kMaxMessageVerificationUnits;
  if (!store || AddMessageObjects(const_cast<HCRYPTMSG>(request.parameter), store.get())) return store;
  // nothing came of the open, so the caller's provider stays the caller's
  if (request.cryptProvider) store->ownsProvider = false;
  return {};
}

bool LoadMessageBlob(CertStore& store, const void* parameter) {
  const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(parameter);
  if (!blob.pbData && blob.cbData) return Fault(ERROR_INVALID_PARAMETER);
  MessageObjects objects;
  return ReadMessageObjects({blob.pbData, blob.cbData}, Unreadable::LeftOut, objects)
      && LinkImage(objects.content, store);
}

}  // namespace certkern
