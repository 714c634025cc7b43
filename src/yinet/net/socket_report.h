#pragma once

// How this folder reports: one log entry per failure, with the message's text and the cause as extra text.

#include <string_view>

#include "yinet/host/ylog.h"
#include "yinet/host/ytextmanager.h"

namespace yinet {

// Usual levels of socket messages.
inline constexpr int kTransferLevel = 2;  // what happens on a connection, and TLS
inline constexpr int kConnectLevel = 6;   // what happens while one is set up

// Why nothing connects or listens after a TLS context could not be made.
inline constexpr std::string_view kNoTls = "TLS could not be set up";

inline void report(int level, int number, std::string_view cause, std::string_view p1 = {}, std::string_view p2 = {}) {
  YLog.EventEx(level, number, YTextManager.GetYText(number, p1, p2), cause);
}

}  // namespace yinet
