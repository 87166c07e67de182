#include "store/pem_bundle.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/text.h>

#include <algorithm>
#include <iterator>
#include <optional>

#include "ber/read_cursor.h"
#include "text/text_forms.h"

namespace certkern {
namespace {

constexpr std::string_view kBegin = "-----BEGIN ", kEnd = "-----END ", kDashes = "-----";

struct Block {
  std::string_view label;
  std::string_view text;  // banners included
};

// The next block whose banner stands at the start of a line.
std::optional<Block> NextBlock(std::string_view& rest) {
  for (size_t at = rest.find(kBegin); at != std::string_view::npos; at = rest.find(kBegin, at + 1)) {
    if (at && rest[at - 1] != '\n' && rest[at - 1] != '\r') continue;
    const size_t label = at + kBegin.size(), dashes = rest.find(kDashes, label), end = rest.find(kEnd, label);
    if (end == std::string_view::npos) return std::nullopt;
    if (dashes >= end) continue;
    const Block block{rest.substr(label, dashes - label), rest.substr(at, end - at)};
    rest.remove_prefix(end);
    return block;
  }
  return std::nullopt;
}

enum class Content { Certificate, Crl, Message };

// RFC 7468, with the older names that it lists.
struct Label {
  std::string_view name;
  Content content;
};
constexpr Label kLabels[] = {
    {"CERTIFICATE",         Content::Certificate},
    {"X509 CERTIFICATE",    Content::Certificate},
    {"X.509 CERTIFICATE",   Content::Certificate},
    {"TRUSTED CERTIFICATE", Content::Certificate},
    {"X509 CRL",            Content::Crl        },
    {"CRL",                 Content::Crl        },
    {"PKCS7",               Content::Message    },
    {"PKCS #7 SIGNED DATA", Content::Message    },
    {"CMS",                 Content::Message    },
};

bool Decode(std::string_view text, std::vector<BYTE>& bytes) {
  DWORD size = 0;
  if (!StringToBinary(text, CRYPT_STRING_BASE64HEADER, {nullptr, &size, nullptr, nullptr})) return false;
  bytes.resize(size);
  return StringToBinary(text, CRYPT_STRING_BASE64HEADER, {bytes.data(), &size, nullptr, nullptr});
}

// Objects of one block behind those of the others.
bool ReadBlock(const Block& block, Content content, MessageObjects& objects) {
  if (!Decode(block.text, objects.bytes)) return false;
  if (content == Content::Message) {
    const std::vector<BYTE> encoded = std::exchange(objects.bytes, {});
    return ReadMessageObjects(encoded, Unreadable::Kept, objects);
  }
  const auto type = content == Content::Crl ? ElementType::Crl : ElementType::Certificate;
  const ContextOwner context(CreateContext(type, X509_ASN_ENCODING, objects.bytes));
  if (!context) return false;
  const DWORD size =
      context->certificate.cbCertEncoded;  // tools put remarks of their own behind a certificate
  objects.content.elements.push_back({type, std::span(objects.bytes).first(size), 0, 0});
  return true;
}

}  // namespace

bool FailAsUnreadable() { return GetLastError() != ERROR_NOT_ENOUGH_MEMORY && Fault(CRYPT_E_FILE_ERROR); }

bool IsPemBundle(std::string_view text) {
  // an encoded object may have a text in it
  if (text.size() < 2 || (text[0] == 0x30 && static_cast<unsigned char>(text[1]) >= 0x80)) return false;
  return NextBlock(text) && NextBlock(text);
}

bool ReadPemBundle(std::string_view text, MessageObjects& objects) {
  std::vector<MessageObjects> blocks;
  size_t size = 0;
  while (const std::optional<Block> block = NextBlock(text)) {
    const auto* const row = std::find_if(std::begin(kLabels), std::end(kLabels),
                                         [&](const Label& each) { return each.name == block->label; });
    if (row == std::end(kLabels)) continue;
    SetLastError(ERROR_SUCCESS);
    if (!ReadBlock(*block, row->content, blocks.emplace_back())) return FailAsUnreadable();
    for (const ImageElement& each : blocks.back().content.elements) size += each.encoded.size();
  }
  objects = {};
  objects.bytes.reserve(size);  // what points into it stays good
  for (const MessageObjects& block : blocks) {
    for (const ImageElement& each : block.content.elements) {
      const size_t at = objects.bytes.size();
      objects.bytes.insert(objects.bytes.end(), each.encoded.begin(), each.encoded.end());
      objects.content.elements.push_back(
          {each.type, std::span(objects.bytes).subspan(at, each.encoded.size()), 0, 0});
    }
  }
  return !objects.content.elements.empty() || Fault(CRYPT_E_FILE_ERROR);
}

}  // namespace certkern
