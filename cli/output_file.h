// Files that results go to.
#ifndef CERTKERN_CLI_OUTPUT_FILE_H
#define CERTKERN_CLI_OUTPUT_FILE_H

#include "output.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace certkern::cli {

// Takes the next piece of what is written.
using Sink = std::function<void(std::span<const BYTE>)>;

// Writes all bytes to an open file; `name` is for the user.
void WriteAll(int file, std::span<const BYTE> bytes, std::string_view name);

// Writes a file. One that something was read from is refused before anything is written, by whatever name it goes. What is
// public goes beside a regular file first and takes its place when it is whole, with its owner and its mode, so that a
// failure leaves what was there; a device, a FIFO, a file with several names, of another owner or in a directory that takes no
// files of ours is written as it stands. What is secret goes into a new file, which
// only its owner may read.
void WriteFile(const std::string& path, Secrecy secrecy, const std::function<void(const Sink&)>& write);

}  // namespace certkern::cli

#endif
