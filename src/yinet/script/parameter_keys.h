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

// File transfer
inline constexpr std::string_view kConnection = "pVerbindungsdaten";
inline constexpr std::string_view kSourcePath = "pQuellPfad";
inline constexpr std::string_view kTargetPath = "pZielPfad";
inline constexpr std::string_view kPath = "pPfad";
inline constexpr std::string_view kText = "pInhalt";
// Keys of the connection's record.
inline constexpr std::string_view kServerUrl = "ServerUrl";
inline constexpr std::string_view kProtocol = "Protokoll";
inline constexpr std::string_view kServer = "Server";
inline constexpr std::string_view kPort = "Port";
inline constexpr std::string_view kLoginName = "Benutzername";
inline constexpr std::string_view kLoginPassword = "Passwort";
inline constexpr std::string_view kProxyServerUrl = "ProxyServerUrl";
inline constexpr std::string_view kProxyProtocol = "ProxyProtokoll";
inline constexpr std::string_view kProxyServer = "ProxyServer";
inline constexpr std::string_view kProxyPort = "ProxyPort";
inline constexpr std::string_view kProxyLoginName = "ProxyBenutzername";
inline constexpr std::string_view kProxyLoginPassword = "ProxyPasswort";

// SFTP, where its names are not FTP's
inline constexpr std::string_view kSshHost = "pHost";
inline constexpr std::string_view kComplete = "pVollstaendig";
inline constexpr std::string_view kKeyFile = "pSchluessel";
inline constexpr std::string_view kKeyPassword = "pSchluesselPasswort";

// FTP and internet functions through libcurl
inline constexpr std::string_view kFetchedFiles = "pDateien";
inline constexpr std::string_view kSearchWords = "pSuchbegriffe";

// Mail
inline constexpr std::string_view kMailFile = "pEMLDatei";
inline constexpr std::string_view kMail = "pMail";
inline constexpr std::string_view kOptions = "pOptionen";

}  // namespace yinet::key
