#pragma once

// The bytes of a remote file, read with several requests under way. Knows no local file.

#include <cstddef>
#include <functional>

#include "yinet/ssh/ssh_connection.h"

namespace yinet {

struct ReadPlan {
  std::uint32_t piece;    // bytes of one request, 1 at least
  std::size_t in_flight;  // requests that may wait for their answers, 1 at least
};

enum class ReadEnd { complete, refused, not_wanted };

// Reads an open file from its first byte to its end and hands the bytes over in order; stops when `sink` gives false. The
// number of requests grows with every full answer, so that short files cost few. Answers may be shorter than what was asked
// for (servers have limits of their own), which is no end: what is missing is asked for again.
ReadEnd read_remote_file(const SshConnection& connection, sftp_file_struct* file, const ReadPlan& plan,
                         const std::function<bool(const char* bytes, std::size_t count)>& sink);

}  // namespace yinet
