#pragma once

// Internal: the rows that each family adds to the function table.

#include <span>

#include "yinet/script/function_table.h"

namespace yinet {

std::span<const ScriptFunction> filetransfer_functions();  // filetransfer_functions.cpp
std::span<const ScriptFunction> ftp_functions();  // ftp_functions.cpp
std::span<const ScriptFunction> ftps_functions();  // ftps_functions.cpp
std::span<const ScriptFunction> http_functions();  // http_functions.cpp
std::span<const ScriptFunction> internet_functions();  // internet_functions.cpp
std::span<const ScriptFunction> mime_functions();  // mime_functions.cpp
std::span<const ScriptFunction> soap_functions();  // soap_functions.cpp
std::span<const ScriptFunction> ssh_functions();   // ssh_functions.cpp
std::span<const ScriptFunction> tls_functions();   // tls_functions.cpp

}  // namespace yinet
