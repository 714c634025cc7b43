#pragma once

// The local ends of transfers: what was fetched takes its place only when it is complete, and "-" stands for standard
// input and output. Files on the way are taken away again, also when a signal ends the program.

#include <functional>
#include <string>

#include "yinet/host/ystring.h"

namespace yinet::cli {

// Runs `work` with the name of the file it shall write, and brings that to where `file` (FILE of the command line, maybe
// empty or a folder) and the path `remote` say, when it gives kSucceeded: over an older file, which stays otherwise. Devices
// and pipes are written directly. Gives the exit code of `work`, which for kLocalFile leaves it to this function to say why.
int fetch_file(const std::string& file, const std::string& remote,
               const std::function<int(const YString& local)>& work);

// Runs `work` with the name of the file it shall send, which for "-" holds what standard input gave. Gives its exit code.
int send_file(const std::string& file, const std::function<int(const std::string& local)>& work);

}  // namespace yinet::cli
