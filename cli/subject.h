// Distinguished names from the command line: each --subject is one relative name.
#ifndef CERTKERN_CLI_SUBJECT_H
#define CERTKERN_CLI_SUBJECT_H

#include "field.h"

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace certkern::cli {

void AddSubjectOption(CLI::App& command, std::vector<std::string>& subject);

// "CN=Anna", "2.5.4.10=Example" ... as an encoded Name, in the order given.
Bytes EncodeSubject(const std::vector<std::string>& subject);

// Wide characters of UTF-8. Fails, naming what it is, when it is no UTF-8.
std::wstring Wide(const std::string& utf8, const std::string& what);

}  // namespace certkern::cli

#endif
