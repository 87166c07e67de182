#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <mutex>
#include <string_view>

#include "platform/uikern.h"
#include "uikern/terminal.h"

namespace certkern::dialog {
namespace {

enum class Answer { No, Yes, Unclear };

// Questions that are put before no answer counts as no.
constexpr int kTries = 3;

constexpr DWORD kPrimaryLanguage = 0x3FF;  // of an identifier; the rest tells countries apart
constexpr DWORD kRussian = 0x19;
constexpr DWORD kAnyLanguage = 0;

// Whole words and first letters. The English ones count in every language: not every keyboard has the others at hand.
struct Word {
  DWORD language;
  std::string_view text;
  Answer answer;
};
constexpr Word kWords[] = {
    {kAnyLanguage, "y",      Answer::Yes},
    {kAnyLanguage, "Y",      Answer::Yes},
    {kAnyLanguage, "yes",    Answer::Yes},
    {kAnyLanguage, "Yes",    Answer::Yes},
    {kAnyLanguage, "YES",    Answer::Yes},
    {kAnyLanguage, "n",      Answer::No },
    {kAnyLanguage, "N",      Answer::No },
    {kAnyLanguage, "no",     Answer::No },
    {kAnyLanguage, "No",     Answer::No },
    {kAnyLanguage, "NO",     Answer::No },
    {kAnyLanguage, "",       Answer::No },
    {kRussian,     "д",     Answer::Yes},
    {kRussian,     "Д",     Answer::Yes},
    {kRussian,     "да",   Answer::Yes},
    {kRussian,     "Да",   Answer::Yes},
    {kRussian,     "ДА",   Answer::Yes},
    {kRussian,     "н",     Answer::No },
    {kRussian,     "Н",     Answer::No },
    {kRussian,     "нет", Answer::No },
    {kRussian,     "Нет", Answer::No },
    {kRussian,     "НЕТ", Answer::No },
};

std::string_view Trimmed(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t first = line.find_first_not_of(kBlanks);
  if (first == line.npos) return {};
  return line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
}

Answer Understand(std::string_view line, DWORD language) {
  if (!line.ends_with('\n')) return Answer::Unclear;  // cut: what went before is not what the user said
  const auto word = std::ranges::find_if(kWords, [&](const Word& row) {
    return (row.language == kAnyLanguage || row.language == language) && row.text == Trimmed(line);
  });
  return word != std::end(kWords) ? word->answer : Answer::Unclear;
}

// Everything but a clear yes is a no.
bool Affirmed(Terminal& terminal, std::string_view text, DWORD language) {
  const std::string_view question = language == kRussian ? "\nДа или нет? [нет] " : "\nYes or no? [no] ";
  if (!terminal.write("\n") || !terminal.write(Harmless(text)) || !terminal.write("\n")) return false;
  for (int i = 0; i < kTries; ++i) {
    if (!terminal.write(question)) return false;
    const std::optional<std::string> line = terminal.readLine();
    if (!line) return false;
    const Answer answer = Understand(*line, language);
    if (answer != Answer::Unclear) return answer == Answer::Yes;
  }
  return false;
}

bool IsServed(const SV_DIALOG_REQUEST* request) {
  if (!request || request->cbSize < sizeof *request || request->dwStyle != SV_DIALOG_YES_NO) return false;
  const size_t size = request->pszText ? strnlen(request->pszText, kMaxDialogText + 1) : 0;
  return size > 0 && size <= kMaxDialogText;
}

DWORD Ask(const SV_DIALOG_REQUEST& request) {
  static constinit std::mutex oneAtATime;
  const std::lock_guard guard(oneAtATime);
  Terminal terminal;
  const bool yes = terminal && Affirmed(terminal, request.pszText, request.dwLanguage & kPrimaryLanguage);
  return yes ? ERROR_SUCCESS : ERROR_CANCELLED;
}

}  // namespace
}  // namespace certkern::dialog

using namespace certkern::
    dialog;  // NOLINT(google-build-using-namespace): only the exported C function follows

// A cancelled thread may be waiting for the user: its unwinding passes through, and gives the terminal back.
extern "C" DWORD SVDisplayMessageEx(const SV_DIALOG_REQUEST* pRequest) {
  DWORD code = ERROR_INVALID_PARAMETER;
  if (IsServed(pRequest)) {
    try {
      code = Ask(*pRequest);
    } catch (const std::exception&) {
      code = ERROR_NOT_ENOUGH_MEMORY;
    }
  }
  if (code) SetLastError(code);
  return code;
}
