#include "certkern/message_encoding.h"

#include <cstring>

#include "asn1data/cms.h"
#include "asn1rt/encoder.h"
#include "asn1rt/message_buffer.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

// Tags, lengths, identifiers, parameters and digests.
constexpr uint64_t kRoomBesideContent = 4096;

asn1data::ASN1T_ContentInfo Wrap(const ASN1OBJID& contentType, const TypeInfo& type, void* value) {
  asn1data::ASN1T_ContentInfo info;
  info.contentType = AsField(contentType);
  info.content = {{}, &type, value};
  return info;
}

}  // namespace

ASN1Blob EncodeBare(const TypeInfo& type, const void* value, uint64_t contentSize) {
  ASN1Blob encoded;
  encoded.resize(contentSize + kRoomBesideContent);
  int length;
  {
    ASN1BEREncodeBuffer buffer(std::span(encoded.data(), encoded.size()));
    length = EncodeValue(buffer.context(), type, value, Tagging::Explicit);
    if (length < 0) throw Asn1Exception(buffer.context().errorText());
    std::memmove(encoded.data(), buffer.GetMsgPtr(), static_cast<size_t>(length));
  }
  encoded.resize(static_cast<uint64_t>(length));
  return encoded;
}

ASN1Blob EncodeContentInfo(const ASN1OBJID& contentType, const TypeInfo& type, void* value,
                           uint64_t contentSize) {
  const asn1data::ASN1T_ContentInfo info = Wrap(contentType, type, value);
  return EncodeBare(asn1data::kInfo_ContentInfo, &info, contentSize);
}

void WriteContentInfo(ASN1Context& context, const ASN1OBJID& contentType, const TypeInfo& type, void* value) {
  const asn1data::ASN1T_ContentInfo info = Wrap(contentType, type, value);
  if (EncodeValue(context, asn1data::kInfo_ContentInfo, &info, Tagging::Explicit) < 0) {
    throw Asn1Exception(context.errorText());
  }
}

}  // namespace certkern
