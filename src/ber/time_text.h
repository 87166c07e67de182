// UTCTime and GeneralizedTime. RFC 5280, 4.1.2.5; X.680, 46 and 47.
#ifndef CERTKERN_BER_TIME_TEXT_H
#define CERTKERN_BER_TIME_TEXT_H

#include "ber/decode_arena.h"
#include "ber/read_cursor.h"
#include "ber/write_cursor.h"

#include <certkern/types.h>

#include <string_view>

namespace certkern {

// Positional: no digit, no terminator and no zone is looked at. 11 or 13 characters; two digits of year below 50 are
// this century. A date that no calendar has still succeeds, as the zero time.
[[nodiscard]] bool BerParseUtcTime(std::string_view text, FILETIME& time);
// 13, 15, 17, 18 or 19 characters; one to three digits of a second from position 15 on. An impossible date fails.
[[nodiscard]] bool BerParseGeneralizedTime(std::string_view text, FILETIME& time);

// Either form, by the next identifier. While the arena only counts, a form that cannot fail is not converted.
[[nodiscard]] bool BerDecodeTime(BerReadCursor& in, FILETIME& time, const BerDecodeArena& arena);
inline bool BerNextIsTime(const BerReadCursor& in) {
  return in.nextIs(kTagUtcTime) || in.nextIs(kTagGeneralizedTime);
}

inline bool IsZero(const FILETIME& time) { return !time.dwLowDateTime && !time.dwHighDateTime; }

// Whole seconds only. UTCTime holds 1950 to 2049, and fails outside.
[[nodiscard]] bool BerEncodeUtcTime(const FILETIME& time, BerWriteCursor& out);
[[nodiscard]] bool BerEncodeGeneralizedTime(const FILETIME& time, BerWriteCursor& out);
// UTCTime where it holds the year, else GeneralizedTime; the zero time fails.
[[nodiscard]] bool BerEncodeTime(const FILETIME& time, BerWriteCursor& out);

}  // namespace certkern

#endif
