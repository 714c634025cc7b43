#pragma once

// Internal: the rows that each family adds to the function table, from <family>_functions.cpp.

#include <span>

#include "yinet/script/function_table.h"

namespace yinet {

std::span<const ScriptFunction> filetransfer_functions();
std::span<const ScriptFunction> ftp_functions();
std::span<const ScriptFunction> ftps_functions();
std::span<const ScriptFunction> http_functions();
std::span<const ScriptFunction> internet_functions();
std::span<const ScriptFunction> mime_functions();
std::span<const ScriptFunction> soap_functions();
std::span<const ScriptFunction> ssh_functions();
std::span<const ScriptFunction> tls_functions();

}  // namespace yinet
