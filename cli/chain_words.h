// What the error bits of a chain and the codes of a policy mean, in sentences; English, or Russian by the locale.
#ifndef CERTKERN_CLI_CHAIN_WORDS_H
#define CERTKERN_CLI_CHAIN_WORDS_H

#include <certkern/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace certkern::cli {

// The user's locale asks for Russian.
bool SpeaksRussian();

// Of the sentences below, and of all else that a chain's report says.
std::string_view Say(std::string_view english, std::string_view russian);

// One sentence for each bit, and the published names without their prefix.
std::vector<std::string_view> StatusSentences(DWORD errorStatus);
std::vector<std::string_view> StatusNames(DWORD errorStatus);

std::string PolicySentence(DWORD code);

enum class Verdict { Valid, Invalid, Undetermined };
// What could not be found out is something else than what is wrong.
Verdict VerdictOf(DWORD errorStatus);
Verdict VerdictOfPolicy(DWORD code);
std::string_view VerdictName(Verdict verdict);  // for programs
std::string_view VerdictWord(Verdict verdict);
int ExitStatusOf(Verdict verdict);

}  // namespace certkern::cli

#endif
