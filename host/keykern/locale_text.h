// The current multibyte encoding: that of the process's locale.
#ifndef CERTKERN_KEYKERN_LOCALE_TEXT_H
#define CERTKERN_KEYKERN_LOCALE_TEXT_H

#include "keykern/text_sink.h"

#include <string_view>

namespace keykern {

// True also where the locale was never set: its ASCII is a part of UTF-8, and UTF-8 is what such programs get.
bool LocaleIsUtf8();

// Through the locale's own encoding. False for ill-formed text under Check::Strict, and for an encoding that the
// system cannot convert.
bool FromLocale(std::string_view text, Check check, WideSink& sink);
// The encoding's own substitute is a question mark.
bool ToLocale(std::wstring_view text, Check check, Substitute& substitute, ByteSink& sink);

}  // namespace keykern

#endif
