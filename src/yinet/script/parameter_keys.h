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

inline constexpr std::string_view kSoapCall = "pParam";
inline constexpr std::string_view kSoapAnswer = "pErg";

// FTP
inline constexpr std::string_view kFtpType = "pFTPTyp";
inline constexpr std::string_view kHost = "pHOST";
inline constexpr std::string_view kUser = "pUser";
inline constexpr std::string_view kPassword = "pPasswd";
inline constexpr std::string_view kFileName = "pDateiname";
inline constexpr std::string_view kLocalName = "pLokalerName";
inline constexpr std::string_view kTargetFolder = "pZielverzeichnis";
inline constexpr std::string_view kSourceFile = "pQuellDateiname";
inline constexpr std::string_view kTargetFile = "pZieldateiname";
inline constexpr std::string_view kCertificate = "pZertifikat";
inline constexpr std::string_view kProxyType = "pProxyTyp";
inline constexpr std::string_view kProxyAddress = "pProxyAdr";
inline constexpr std::string_view kProxyUser = "pProxyBenutzer";
inline constexpr std::string_view kProxyPassword = "pProxyPassword";

// Mail
inline constexpr std::string_view kMailFile = "pEMLDatei";
inline constexpr std::string_view kMail = "pMail";
inline constexpr std::string_view kOptions = "pOptionen";

}  // namespace yinet::key
