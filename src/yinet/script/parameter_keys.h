#pragma once

// Names of the parameters of script functions, letter for letter as scripts write them.

#include <string_view>

namespace yinet::key {

inline constexpr std::string_view kResult = "_RETV";

inline constexpr std::string_view kUrl = "pUrl";
inline constexpr std::string_view kStatus = "pStatus";
inline constexpr std::string_view kResponseFile = "pResponseFile";
inline constexpr std::string_view kContent = "pContent";
inline constexpr std::string_view kContentType = "pContentType";

// Mail
inline constexpr std::string_view kMailFile = "pEMLDatei";
inline constexpr std::string_view kMail = "pMail";
inline constexpr std::string_view kOptions = "pOptionen";

}  // namespace yinet::key
