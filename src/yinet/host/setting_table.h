#pragma once

// Every setting of the library, by subject. Each constant is a row of all_settings().

#include "yinet/host/settings.h"

namespace yinet::settings {

// Names of the host
YINET_API extern const Setting kSystemName;            // "SYSTEM"/"NAME"
YINET_API extern const Setting kLanguage;              // "System"/"Sprache"
YINET_API extern const Setting kRawNames;              // "Kommunikation"/"NamenUnveraendert"
YINET_API extern const Setting kTemporaryFolder;       // "Dateien"/"TempVerzeichnis"

// Sockets and TLS
YINET_API extern const Setting kConnectPause;          // pause after a TCP connect, 50 ms
YINET_API extern const Setting kConnectLimit;          // non-blocking connect without progress, 120 s
YINET_API extern const Setting kSendPause;             // one wait of a non-blocking send while connecting, 50 ms
YINET_API extern const Setting kSendAttempts;          // 50
YINET_API extern const Setting kIdleLimit;             // a silent peer in an endless wait, 120 s
YINET_API extern const Setting kTlsAttemptPause;       // 10 ms
YINET_API extern const Setting kTlsAttempts;           // 500
YINET_API extern const Setting kTlsCloseLimit;         // wait for the peer's end after our last write, 2000 ms
YINET_API extern const Setting kTlsVerifyAlways;       // every client verifies, off
YINET_API extern const Setting kTlsCheckName;          // the certificate's name counts too, on
YINET_API extern const Setting kTlsMinimumVersion;     // "", "1.0" .. "1.3": the system's policy when empty
YINET_API extern const Setting kTlsCipherList;         // OpenSSL cipher list, the system's policy when empty
YINET_API extern const Setting kDefaultAddress;        // "Kommunikation"/"StandardIPAdresse"
YINET_API extern const Setting kReadAhead;             // bytes of read-ahead below Receive, 65536

// DNS
YINET_API extern const Setting kDnsServers;            // "address:port,..."; the system's when empty
YINET_API extern const Setting kDnsTimeout;            // one lookup, all servers and tries together
YINET_API extern const Setting kDnsTries;

// HTTP
YINET_API extern const Setting kHttpIdlePause;         // 100 ms
YINET_API extern const Setting kHttpIdlePolls;         // 100
YINET_API extern const Setting kHttpHeaderLimit;       // 8 MB
YINET_API extern const Setting kHttpBodyLimit;         // 0: none
YINET_API extern const Setting kHttpTimeLimit;         // whole reply, 0: none
YINET_API extern const Setting kHttpExactReader;       // off
YINET_API extern const Setting kHttpCookieLimit;       // 300 per host

}  // namespace yinet::settings
