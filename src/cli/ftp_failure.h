#pragma once

// What went wrong with an FTP server, in words for people and as an exit code of "yinet ftp".

#include <cstdint>
#include <string>

class ftps;

namespace yinet::cli {

// After a reply that did not come the connection is closed, and the last message is that of an older command.
bool no_reply(ftps& ftp);
// Whether the last command was answered, and not with a refusal.
bool went_well(ftps& ftp);

// Each says on standard error what happened and gives the exit code.
int connection_failure(ftps& ftp, const std::string& server, const std::string& user);
int command_failure(ftps& ftp, const std::string& path);  // of a command about this file or folder of the server
// Of a transfer from or to `remote`, after `done` of `total` bytes; `result` is that of ftps. Of a local file nothing is said.
int transfer_failure(ftps& ftp, int result, const std::string& remote, std::int64_t done, std::int64_t total);
// Empty when the file can be sent, otherwise why not, with `title` as its name.
std::string reason_not_to_send(const std::string& file, const std::string& title);

}  // namespace yinet::cli
