#include "failure.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace certkern::cli {
namespace {

struct Reason {
  DWORD code;
  const char* text;
};
constexpr Reason kReasons[] = {
    {NTE_KEYSET_NOT_DEF,
     "there is no such key container; \"certkern key list\" names those that exist, \"certkern key new\" "
     "makes one"                                                                                                  },
    {NTE_EXISTS,
     "a key container of this name exists already; choose another name, or remove the old one with "
     "\"certkern key delete\""                                                                                    },
    {NTE_BAD_KEYSET,                   "the key container is damaged"                                             },
    {NTE_PERM,                         "not allowed: the keys belong to another user, or others may write to them"},
    {NTE_BAD_KEYSET_PARAM,             "this cannot be the name of a key container; it must have 1 to 200 bytes"  },
    {NTE_TOKEN_KEYSET_STORAGE_FULL,    "there is no space left for keys"                                          },
    {NTE_NO_KEY,                       "the key container has no key of this purpose"                             },
    {NTE_BAD_KEY_STATE,
     "the private key is not exportable; that is decided when the key is made, by --exportable"                   },
    {NTE_BAD_KEY,                      "this is no usable private key"                                            },
    {NTE_BAD_PUBLIC_KEY,               "this is no usable public key"                                             },
    {NTE_BAD_ALGID,                    "the algorithm or parameter set is not available"                          },
    {NTE_BAD_LEN,
     "this length is not possible; RSA keys above 8192 bits have to be allowed in the configuration "
     "(MaxRsaKeyBits)"                                                                                            },
    {NTE_SILENT_CONTEXT,               "the private key is behind a PIN"                                          },
    {NTE_NO_MEMORY,                    "out of memory"                                                            },
    {ERROR_CALL_NOT_IMPLEMENTED,       "not possible with objects of this kind"                                   },
    {ERROR_NOT_ENOUGH_MEMORY,          "out of memory"                                                            },
    {SCARD_W_WRONG_CHV,                "wrong PIN"                                                                },
    {SCARD_W_CARD_NOT_AUTHENTICATED,   "the private key is behind a PIN"                                          },
    {CRYPT_E_INVALID_IA5_STRING,       "only ASCII characters are possible here"                                  },
    {CRYPT_E_INVALID_NUMERIC_STRING,   "only digits and blanks are possible here"                                 },
    {CRYPT_E_INVALID_PRINTABLE_STRING,
     "only ASCII letters, digits, blanks and '()+,-./:=? are possible here"                                       },
};

}  // namespace

std::string ReasonOf(DWORD code) {
  const auto* row = std::find_if(std::begin(kReasons), std::end(kReasons),
                                 [code](const Reason& candidate) { return candidate.code == code; });
  return row == std::end(kReasons) ? fmt::format("code 0x{:08x}", code) : row->text;
}

void ThrowCode(std::string_view what, DWORD code) {
  throw Failure(fmt::format("{}: {}", what, ReasonOf(code)));
}

void Complain(std::string_view text) noexcept {
  static_cast<void>(std::fputs("certkern: ", stderr));
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
  static_cast<void>(std::fputc('\n', stderr));
}

void ThrowLastError(std::string_view what) { ThrowCode(what, GetLastError()); }

void ThrowErrno(std::string_view what) {
  const int code = errno;
  throw Failure(
      fmt::format("{}: {}", what, std::strerror(code)));  // NOLINT(concurrency-mt-unsafe): one thread
}

}  // namespace certkern::cli
