// Characters that a foreign text must not bring to a place where people decide by what they read: they move the cursor,
// turn the direction of writing, or hide what is there. Line breaks are among them.
#ifndef CERTKERN_PLATFORM_HARMFUL_CHARACTERS_H
#define CERTKERN_PLATFORM_HARMFUL_CHARACTERS_H

#include <algorithm>
#include <iterator>

namespace certkern {

struct CharacterRange {
  wchar_t first, last;
};

// Controls; joiners and marks of direction; line separators; tags.
inline constexpr CharacterRange kHarmfulCharacters[] = {
    {0x00,    0x1F   },
    {0x7F,    0x9F   },
    {0xAD,    0xAD   },
    {0x61C,   0x61C  },
    {0x115F,  0x1160 },
    {0x180B,  0x180F },
    {0x200B,  0x200F },
    {0x2028,  0x202E },
    {0x2060,  0x206F },
    {0x3164,  0x3164 },
    {0xFEFF,  0xFEFF },
    {0xFFF0,  0xFFFB },
    {0xE0000, 0xE0FFF},
};

constexpr wchar_t kReplacementCharacter = 0xFFFD;

inline bool IsHarmful(wchar_t character) {
  return std::any_of(std::begin(kHarmfulCharacters), std::end(kHarmfulCharacters),
                     [character](const CharacterRange& range) {
                       return range.first <= character && character <= range.last;
                     });
}

}  // namespace certkern

#endif
