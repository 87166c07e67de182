#include "store/root_confirmation.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>
#include <certkern/text.h>

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <span>

#include "ber/read_cursor.h"
#include "names/display_name.h"
#include "platform/catalogue.h"
#include "platform/dialog_library.h"
#include "platform/harmful_characters.h"
#include "platform/limits.h"
#include "platform/text_conversion.h"
#include "store/certificate_digest.h"

namespace certkern {
namespace {

constexpr size_t kSha1Size = 20;

// Many of them in a row would push the rest of the name to where the next line begins.
constexpr CharacterRange kBlanks[] = {
    {0x09,   0x0D  },
    {0x20,   0x20  },
    {0x85,   0x85  },
    {0xA0,   0xA0  },
    {0x1680, 0x1680},
    {0x2000, 0x200A},
    {0x2028, 0x2029},
    {0x202F, 0x202F},
    {0x205F, 0x205F},
    {0x2800, 0x2800},
    {0x3000, 0x3000},
};

bool IsBlank(wchar_t character) {
  return std::any_of(std::begin(kBlanks), std::end(kBlanks), [character](const CharacterRange& each) {
    return each.first <= character && character <= each.last;
  });
}

// A subject without any attribute that people know is shown whole.
bool NameOf(PCCERT_CONTEXT certificate, std::wstring& name) {
  for (const DWORD type : {CERT_NAME_SIMPLE_DISPLAY_TYPE, CERT_NAME_RDN_TYPE}) {
    if (!FindDisplayName({certificate, type, 0, nullptr, false}, name)) return false;
    name = ShownName(name);
    if (!name.empty()) return true;
  }
  return Fault(CRYPT_E_NOT_FOUND);
}

// Of the bytes themselves: the property can be set to anything.
bool HashOf(PCCERT_CONTEXT certificate, std::string& hash) {
  std::array<BYTE, kSha1Size> bytes;
  DWORD size = bytes.size();
  if (!HashEncoded(0, 0, {certificate->pbCertEncoded, certificate->cbCertEncoded}, bytes.data(), &size)) {
    return false;
  }
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (const BYTE each : std::span(bytes).first(size)) hash.append({kDigits[each >> 4], kDigits[each & 15]});
  return true;
}

// A catalogue is a file that anybody may have given us, so nothing but plain %s and %% is taken from a format.
bool Fill(std::string_view format, std::span<const std::string_view> values, std::string& text) {
  size_t used = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      text += format[i];
      continue;
    }
    const char kind = ++i < format.size() ? format[i] : '\0';
    if (kind == '%') {
      text += kind;
    } else if (kind == 's' && used < values.size()) {
      text += values[used++];
    } else {
      return Fault(ERROR_INVALID_DATA);
    }
  }
  return used == values.size() || Fault(ERROR_INVALID_DATA);
}

// A text that had to be cut might lack its hash, or the warning.
bool QuestionAbout(PCCERT_CONTEXT certificate, std::string& text) {
  std::wstring name;
  std::string hash;
  if (!NameOf(certificate, name) || !HashOf(certificate, hash)) return false;
  const ByteText narrow = BytesFromWide(name.c_str(), CP_UTF8);
  const ByteText format = narrow ? ReadMessage(kMessageConfirmRootAdd) : ByteText();
  const std::string_view values[] = {narrow ? narrow.get() : "", hash};
  if (!format || !Fill(format.get(), values, text)) return false;
  return text.size() <= kMaxConfirmationText || Fault(ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace

std::wstring ShownName(std::wstring_view name) {
  std::wstring shown;
  for (const wchar_t each : name) {
    if (shown.size() > kMaxConfirmedName) break;
    if (!IsBlank(each)) {
      shown += IsHarmful(each) ? kReplacementCharacter : each;
    } else if (!shown.empty() && shown.back() != L' ') {
      shown += L' ';
    }
  }
  while (shown.ends_with(L' ')) shown.pop_back();
  if (shown.size() > kMaxConfirmedName) shown.replace(kMaxConfirmedName - 3, shown.npos, L"...");
  return shown;
}

bool ConfirmRootAdd(PCCERT_CONTEXT certificate) {
  try {
    std::string text;
    return QuestionAbout(certificate, text) && AskYesOrNo(text.c_str());
  } catch (const std::exception&) {
    return Fault(ERROR_NOT_ENOUGH_MEMORY);
  }
}

}  // namespace certkern
