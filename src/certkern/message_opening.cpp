#include "certkern/message_opening.h"

#include <certkern/errors.h>

#include <vector>

#include "certkern/cms_attributes.h"
#include "certkern/gost_repair.h"
#include "keys/signing_display.h"
#include "platform/exceptions.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

constexpr DWORD kAttributeFlags = SVCMSG_CADES_STRICT | SVCMSG_CADES_DISABLE | SVCMSG_CADES_NO_KEY_SEARCH;

// What is read in place of the caller's record.
struct Preparation {
  MemoryChain chain;
  CMSG_SIGNED_ENCODE_INFO full;
};

// A copy, repaired, and with attributes. Without memory for one it is what the caller gave, as it is. False with a code.
bool PrepareSigned(EncodeRequest& request, Preparation& preparation) {
  const auto& given = *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(request.info);
  preparation.full = FullSignedEncodeInfo(given);
  request.info = &preparation.full;
  CMSG_SIGNED_ENCODE_INFO* const copy = CopySignedEncodeInfo(given, preparation.chain);
  if (!copy) return true;
  request.info = copy;
  if (RepairsAlgorithms()) TryUpdateEncodeInfoToGostCompatible(copy, CMSG_SIGNED);
  return AddESAttributesToEncodeInfo(copy, request.flags & kAttributeFlags, &preparation.chain);
}

bool Prepare(EncodeRequest& request, Preparation& preparation) {
  return request.type != CMSG_SIGNED || PrepareSigned(request, preparation);
}

HCRYPTPROV FirstSignersProvider(const EncodeRequest& request) {
  if (request.type != CMSG_SIGNED) return 0;
  const auto& info = *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(request.info);
  return info.cSigners && info.rgSigners ? info.rgSigners->hCryptProv : 0;
}

// What should be shown must not be signed unseen.
void RequireDisplay(MessageContext& message, HCRYPTPROV provider, DWORD flags, DisplayFor use) {
  if (!RegisterMessageDisplay(&message, provider, flags, use)) throw CryptException(E_FAIL);
}

// As Prepare, of one signer.
bool PrepareSigner(MessageContext& message, ControlRequest& request, MemoryChain& chain) {
  const auto& given = *static_cast<const CMSG_SIGNER_ENCODE_INFO*>(request.pvCtrlPara);
  CMSG_SIGNER_ENCODE_INFO* const copy = CopySignerEncodeInfo(given, chain);
  if (copy) {
    request.pvCtrlPara = copy;
    if (RepairsAlgorithms()) PrepareHashCompatibleSigner(copy);
    if (!AddESAttributes(&copy->rgAuthAttr, &copy->cAuthAttr, &copy->HashAlgorithm, nullptr, &message,
                         request.dwFlags & kAttributeFlags, copy, nullptr, nullptr, &chain)) {
      return false;
    }
  }
  RequireDisplay(message, given.hCryptProv, request.dwFlags, DisplayFor::AddedSigner);
  return true;
}

MessageEncodeContext& AsEncode(const MessageOwner& message) {
  return *static_cast<MessageEncodeContext*>(message.get());
}

}  // namespace

// --- encoding ---

MessageOwner OpenToEncode(const EncodeRequest& given) {
  EncodeRequest request = given;
  Preparation preparation;
  if (!Prepare(request, preparation)) return {};
  const bool bareStream = (request.flags & CMSG_BARE_CONTENT_FLAG) != 0;
  MessageOwner message = MakeEncodeContext(request.type, request.stream, bareStream);
  if (request.flags & CMSG_DETACHED_FLAG) message->setDetached(true);
  AsEncode(message).readEncodeInfo(request.info);
  if (request.innerType) AsEncode(message).setInnerContentType(request.innerType);
  RequireDisplay(*message.get(), FirstSignersProvider(request), request.flags, DisplayFor::Message);
  return message;
}

DWORD EncodedLength(EncodeRequest request, DWORD contentSize) {
  Preparation preparation;
  if (!Prepare(request, preparation)) return 0;
  const MessageOwner message = MakeEncodeContext(request.type, nullptr, false);
  MessageEncodeContext& context = AsEncode(message);
  context.readEncodeInfo(request.info);
  if (request.innerType) context.setInnerContentType(request.innerType);
  if (request.flags & CMSG_DETACHED_FLAG) context.setDetached(true);
  if (request.type != CMSG_SIGNED) {  // these are told by an estimate, the others by being made
    if (contentSize) context.addData(std::vector<BYTE>(contentSize), true);
    context.finalize();
  }
  const bool bare = (request.flags & CMSG_BARE_CONTENT_FLAG) != 0;
  return context.getEncodedSize(contentSize, bare, request.info);
}

// --- decoding ---

MessageOwner OpenToDecode(const DecodeRequest& request) {
  MessageOwner message = MakeDecodeContext(request.type, request.stream);
  MessageDecodeContext& context = *message->asDecodeContext();
  if (request.provider) context.setCryptProv(request.provider);
  if (request.flags & CMSG_DETACHED_FLAG) context.setDetached(true);
  RequireDisplay(context, request.provider, request.flags, DisplayFor::Message);
  MessageDisplay display(message.get());
  // the last step: from here on the message gives the provider back
  if (request.flags & CMSG_CRYPT_RELEASE_CONTEXT_FLAG) context.setReleaseProv(true);
  static_cast<void>(display.release());
  return message;
}

// --- controls ---

bool ControlMessage(MessageContext& message, const ControlRequest& given) {
  ControlRequest request = given;
  MemoryChain chain;
  if (request.dwCtrlType == CMSG_CTRL_ADD_SIGNER && request.pvCtrlPara
      && !PrepareSigner(message, request, chain)) {
    return false;
  }
  const MessageDisplay display(&message);  // a registration lasts for one control
  request.dwFlags &= ~SVCMSG_EXTENSION_FLAGS;
  message.control(request);
  return true;
}

}  // namespace certkern
