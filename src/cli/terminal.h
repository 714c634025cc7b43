#pragma once

// The program's edges: text from the command line, standard input and output, remarks on standard error. All text is UTF-8
// out here and Windows-1252 inside the library.

#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/ystring.h"

namespace yinet {
struct LogRecord;
}

namespace yinet::cli {

// Standard output; nothing is added. Whether all of it arrived is known at the end: see finish_output.
void print(std::string_view text);
// False, with a remark, when standard output could not take everything (a full disk, say).
bool finish_output();

// One line on standard error after "yinet: "; a JSON line after remarks_as_json(true).
void remark(std::string_view text);
void remarks_as_json(bool on);
// The same for a wrong call, with passwords in URLs masked; gives its exit code.
int wrong_call(std::string_view text);
// The program's log sink: a record on standard error, in the form that was chosen there. What tells no trouble, a server's
// host key for example, is left out while traces are off.
void print_log(const LogRecord& record);

struct TextArgument {
  std::string text;
  bool kept_as_utf8 = false;  // Windows-1252 cannot hold it: the bytes went in as they are
};
TextArgument text_from_argument(std::string_view argument);
YString to_ansi(std::string_view argument);  // the text alone

// Text of the library as one line for people: UTF-8, control characters escaped.
std::string shown(std::string_view ansi);

// The bytes of a file of the system, of standard input for "-"; empty after a failure, which `problem` explains.
std::optional<std::string> read_file(const std::string& name, std::string& problem);
// "-" is standard input in texts for people.
std::string file_title(const std::string& name);

}  // namespace yinet::cli
