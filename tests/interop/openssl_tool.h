// The openssl program, run as a process of its own: the other party of these tests.
#ifndef CERTKERN_TESTS_INTEROP_OPENSSL_TOOL_H
#define CERTKERN_TESTS_INTEROP_OPENSSL_TOOL_H

#include <certkern/types.h>

#include <filesystem>
#include <span>
#include <string>
#include <vector>

using Bytes = std::vector<BYTE>;

// A directory that goes with the test program.
const std::filesystem::path& WorkDirectory();

Bytes ReadFile(const std::filesystem::path& path);
// Into a file of the work directory, which the next call overwrites.
std::filesystem::path WriteScratch(std::span<const BYTE> bytes);

// Standard output of a shell command; a failed one is a failure of the test, with what it said.
std::string RunShell(const std::string& command);

#endif
