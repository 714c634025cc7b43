#pragma once

// Numbers of the messages, grouped by subsystem. The texts stand in the catalogue (messages_*.cpp).

namespace yinet::message {

// Host and script frame
inline constexpr int kScriptFunctionFailed = 21001;   // an exception ended a script function
inline constexpr int kScriptClassUnknown = 21002;     // ExecuteFunction: no such class or function
inline constexpr int kScriptClassFailed = 21003;      // ExecuteFunction: the function threw
inline constexpr int kDriveNotMapped = 21004;
inline constexpr int kTemporaryFolderUnusable = 21005;
inline constexpr int kFileNameRefused = 21006;        // NUL in a file name

// Secure socket
inline constexpr int kPasswordBufferTooSmall = 21403;
inline constexpr int kCertificateListItemFailed = 21404;
inline constexpr int kCertificateFolderFailed = 21405;
inline constexpr int kConnectFailed = 21410;
inline constexpr int kHandshakeStepFailed = 21414;
inline constexpr int kCertificateRejected = 21415;
inline constexpr int kStartTlsContextFailed = 21418;
inline constexpr int kLockRequested = 21432;          // trace
inline constexpr int kUnlockRequested = 21433;        // trace
inline constexpr int kSendTextGaveUp = 21434;
inline constexpr int kTlsContextFailed = 21435;
inline constexpr int kTlsConnectFailed = 21442;
inline constexpr int kConnectTlsFailed = 21443;
inline constexpr int kConnectBlockingFailed = 21444;
inline constexpr int kStartTlsCertificateRejected = 21447;
inline constexpr int kReceiveBufferFailed = 21448;
inline constexpr int kReceiveBufferBlockingFailed = 21451;
inline constexpr int kReceiveTextBlockingFailed = 21452;
inline constexpr int kReceiveTextFailed = 21453;
inline constexpr int kSendBufferBlockingFailed = 21455;
inline constexpr int kSendTextFailed = 21456;
inline constexpr int kSendBufferFailed = 21457;
inline constexpr int kSendTextBlockingFailed = 21460;
inline constexpr int kStartTlsFailed = 21462;
inline constexpr int kLockTaken = 21469;              // trace
inline constexpr int kUnlocked = 21470;               // trace
inline constexpr int kSendBufferGaveUp = 21471;

// DNS
inline constexpr int kDnsLibraryFailed = 21500;
inline constexpr int kDnsFunctionMissing = 21501;
inline constexpr int kDnsQueryFailed = 21502;

// HTTP
inline constexpr int kHttpConnectFailed = 21901;
inline constexpr int kHttpSendFailed = 21902;
inline constexpr int kHttpReceiveFailed = 21903;
inline constexpr int kHttpServerSilent = 21904;
inline constexpr int kHttpLineBreakRefused = 21905;   // CR, LF or NUL in what would become a header line
inline constexpr int kHttpResponseFileFailed = 21906;
inline constexpr int kHttpReplyTooLarge = 21907;
inline constexpr int kHttpUrlParsed = 21921;          // trace
inline constexpr int kHttpGetTrace = 21922;           // trace
inline constexpr int kHttpPostTrace = 21923;          // trace

}  // namespace yinet::message
