#include "yinet/host/ylog.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "yinet/host/codepage.h"
#include "yinet/host/hook_scope.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/shared_slot.h"
#include "yinet/host/text.h"
#include "yinet/host/ytextmanager.h"

YLog_class YLog;

namespace yinet {

constinit std::atomic<bool> g_debug_traces = false;

namespace {

constexpr std::string_view kMask = "***";

constinit std::atomic<bool> g_json = false;
constinit thread_local SecretScope* t_innermost_secret = nullptr;
constinit thread_local bool t_in_sink = false;

// Never destroyed: the log serves until the process has ended.
SharedSlot<LogSink>& sink_slot() {
  static auto* const slot = new SharedSlot<LogSink>;
  return *slot;
}

std::tm local_time(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return parts;
}

// "2026-11-21 10:00:00"
std::string plain_time(const std::tm& parts) {
  char text[64];
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts));
}

// "2026-11-21T10:00:00.123+01:00"
std::string iso_time(std::chrono::system_clock::time_point time) {
  const std::tm parts = local_time(time);
  const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto milliseconds = since_epoch - std::chrono::floor<std::chrono::seconds>(since_epoch);
  const long offset = std::abs(parts.tm_gmtoff / 60);
  char rest[32];  // milliseconds and zone
  std::snprintf(rest, sizeof rest, ".%03d%c%02ld:%02ld", static_cast<int>(milliseconds.count()),
                parts.tm_gmtoff < 0 ? '-' : '+', offset / 60, offset % 60);
  std::string text = plain_time(parts) + rest;
  text[text.find(' ')] = 'T';
  return text;
}

const char* kind_name(LogKind kind) {
  switch (kind) {
    case LogKind::event: return "event";
    case LogKind::error: return "error";
    case LogKind::debug_start: return "debug_start";
    case LogKind::debug: return "debug";
    case LogKind::debug_end: return "debug_end";
  }
  return "event";
}

bool is_trace(LogKind kind) { return kind != LogKind::event && kind != LogKind::error; }

std::string bracket(const LogRecord& record) {
  if (!is_trace(record.kind)) return "[" + std::to_string(record.level) + "]";
  const char* const side = record.kind == LogKind::debug_start ? " start"
                           : record.kind == LogKind::debug_end ? " end"
                                                               : "";
  return "[trace " + std::to_string(record.channel) + side + "]";
}

// Shorter secrets are parts of common words, which would tell them by what is missing.
constexpr std::size_t kShortestPartOfWords = 4;

std::string mask_word(std::string_view text, std::string_view word) {
  std::string out;
  std::size_t copied = 0;
  for (std::size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    const bool begins = at == 0 || !is_alphanumeric(text[at - 1]) || !is_alphanumeric(word.front());
    const bool ends = end == text.size() || !is_alphanumeric(text[end]) || !is_alphanumeric(word.back());
    if (at < copied || !begins || !ends) continue;
    out.append(text.substr(copied, at - copied)).append(kMask);
    copied = end;
  }
  return out.append(text.substr(copied));
}

// A text of a record as UTF-8 without its secrets.
std::string safe_utf8(std::string_view text) { return name_to_utf8(mask_url_passwords(SecretScope::masked(text))); }

void cut_at_limit(std::string& utf8) {
  const auto limit = static_cast<std::size_t>(setting_number(settings::kLogTextLimit));
  if (utf8.size() <= limit) return;
  const std::string note = "... (" + std::to_string(utf8.size()) + " bytes)";
  std::size_t kept = limit;
  while (kept > 0 && (static_cast<unsigned char>(utf8[kept]) & 0xC0U) == 0x80) --kept;  // not inside a character
  utf8.replace(kept, std::string::npos, note);
}

// Length of a sequence that a terminal would obey or that would fake another line: the C1 controls, line and paragraph
// separators, and what turns the direction of writing. 0 for all others.
std::size_t control_sequence(std::string_view utf8) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(utf8[i]); };
  if (utf8.size() >= 2 && byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) <= 0x9F) return 2;
  if (utf8.size() < 3 || byte(0) != 0xE2) return 0;
  const bool marks = byte(1) == 0x80 && (byte(2) == 0x8E || byte(2) == 0x8F || (byte(2) >= 0xA8 && byte(2) <= 0xAE));
  const bool isolates = byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9;
  return marks || isolates ? 3 : 0;
}

void append_hex(std::string& out, unsigned char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  out += "\\x";
  out += kDigits[byte >> 4];
  out += kDigits[byte & 15];
}

// printable() for UTF-8: text from outside can neither end the line nor steer the terminal.
std::string printable_utf8(std::string_view utf8) {
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  std::string out;
  out.reserve(utf8.size());
  while (!utf8.empty()) {
    const auto ascii = static_cast<std::size_t>(std::find_if_not(utf8.begin(), utf8.end(), is_ascii) - utf8.begin());
    out += printable(utf8.substr(0, ascii));
    utf8.remove_prefix(ascii);
    const std::size_t control = control_sequence(utf8);
    for (const char c : utf8.substr(0, control)) append_hex(out, static_cast<unsigned char>(c));
    utf8.remove_prefix(control);
    if (control > 0 || utf8.empty()) continue;
    out += utf8.front();
    utf8.remove_prefix(1);
  }
  return out;
}

std::string line_text(std::string_view text) {
  std::string utf8 = safe_utf8(text);
  cut_at_limit(utf8);
  return printable_utf8(utf8);
}

std::string json_text(std::string_view text) {
  std::string utf8 = safe_utf8(text);
  cut_at_limit(utf8);
  return utf8;
}

void write_to_standard_error(const LogRecord& record) {
  const std::string line = (g_json.load(std::memory_order_relaxed) ? log_json_line(record) : log_line(record)) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);  // one call, so that lines of several threads do not mix
}

void write_record(LogKind kind, int level, int channel, int number, YString text, std::string_view extra) {
  LogRecord record;
  record.kind = kind;
  record.level = level;
  record.number = number;
  record.channel = channel;
  record.text = std::move(text).str();
  record.extra = extra;
  record.time = std::chrono::system_clock::now();
  write_log(record);
}

void write_trace(LogKind kind, int channel, int number, std::string_view p1, std::string_view p2,
                 std::string_view p3 = {}, std::string_view p4 = {}, std::string_view p5 = {}) noexcept {
  if (!debug_traces()) return;
  try {
    write_record(kind, 0, channel, number, YTextManager.GetYText(number, p1, p2, p3, p4, p5), {});
  } catch (...) {  // no memory for the text: a log is not worth failing for
  }
}

}  // namespace

void set_log_sink(LogSink sink) { sink_slot().set(std::move(sink)); }

void set_log_json(bool on) { g_json.store(on, std::memory_order_relaxed); }

void set_debug_traces(bool on) { g_debug_traces.store(on, std::memory_order_relaxed); }

std::string log_line(const LogRecord& record) {
  std::string line = plain_time(local_time(record.time)) + " " + bracket(record) + " " + std::to_string(record.number) +
                     " " + line_text(record.text);
  if (record.extra.empty()) return line;
  if (line.ends_with('.')) line.pop_back();  // the cause goes on with the sentence
  return line + ": " + line_text(record.extra);
}

std::string log_json_line(const LogRecord& record) {
  nlohmann::ordered_json line;
  line["time"] = iso_time(record.time);
  line["kind"] = kind_name(record.kind);
  if (is_trace(record.kind)) line["channel"] = record.channel;
  else line["level"] = record.level;
  line["number"] = record.number;
  line["text"] = json_text(record.text);
  if (!record.extra.empty()) line["extra"] = json_text(record.extra);
  // ASCII only: even shown raw, nothing in it steers a terminal.
  return line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

void write_log(const LogRecord& record) noexcept {
  if (t_in_sink) return;  // a sink that logs would call itself for ever
  const HookScope in_sink(t_in_sink);
  try {
    if (const auto sink = sink_slot().get()) (*sink)(record);
    else write_to_standard_error(record);
  } catch (...) {  // a host's sink may fail as it likes
  }
}

SecretScope::SecretScope(std::string_view secret) : secret_(secret), outer_(t_innermost_secret) {
  t_innermost_secret = this;
}

SecretScope::~SecretScope() {
  SecretScope** link = &t_innermost_secret;  // usually the first: scopes end in reverse order
  while (*link != nullptr && *link != this) link = &(*link)->outer_;
  if (*link == this) *link = outer_;
  std::fill(secret_.begin(), secret_.end(), '\0');
}

std::string SecretScope::masked(std::string_view text) {
  std::vector<std::string> secrets;
  for (const SecretScope* scope = t_innermost_secret; scope != nullptr; scope = scope->outer_) {
    if (scope->secret_.empty()) continue;
    secrets.push_back(scope->secret_);
    if (auto utf8 = name_to_utf8(scope->secret_); utf8 != scope->secret_) secrets.push_back(std::move(utf8));
  }
  // The longest first, or a secret that is part of another would leave the rest of that one readable.
  std::sort(secrets.begin(), secrets.end(), [](const auto& a, const auto& b) { return a.size() > b.size(); });
  std::string out(text);
  for (const std::string& secret : secrets)
    out = secret.size() < kShortestPartOfWords ? mask_word(out, secret) : replaced(out, secret, kMask);
  return out;
}

std::string mask_url_passwords(std::string_view text) {
  constexpr std::string_view kMark = "://";
  std::string out;
  std::size_t copied = 0;
  std::size_t at = 0;  // the next "@" and the end of the word, looked up once for all URLs before them
  std::size_t end = 0;
  for (std::size_t mark = text.find(kMark); mark != std::string_view::npos;
       mark = text.find(kMark, mark + kMark.size())) {
    const std::size_t start = mark + kMark.size();
    if (start < copied) continue;
    if (at < start) at = text.find('@', start);
    if (at == std::string_view::npos) break;
    if (end < start) end = std::min(text.find_first_of(std::string_view(" \t\r\n\"'<>\0\x01", 10), start), text.size());
    const std::size_t authority_end = std::min(text.find_first_of("/?#", start), end);
    // The last "@" of the authority ends the user's part. Where there is none, a password that holds "/", "?" or "#" may
    // have cut it short; a colon that begins no port gives that away.
    std::size_t user_end = text.substr(start, authority_end - start).rfind('@');
    const std::size_t colon = text.substr(start, authority_end - start).find(':');
    if (colon == std::string_view::npos) continue;
    if (user_end == std::string_view::npos) {
      const std::string_view port = text.substr(start + colon + 1, authority_end - start - colon - 1);
      if (text[start] == '[' || std::all_of(port.begin(), port.end(), is_digit) || at >= end) continue;
      user_end = text.substr(start, end - start).rfind('@');
    }
    if (user_end == std::string_view::npos || colon >= user_end) continue;
    out.append(text.substr(copied, start + colon + 1 - copied)).append(kMask);
    copied = start + user_end;
  }
  return out.append(text.substr(copied));
}

}  // namespace yinet

void YLog_class::Event(int level, int number, std::string_view p1, std::string_view p2, std::string_view p3,
                       std::string_view p4, std::string_view p5, std::string_view p6, std::string_view p7,
                       std::string_view p8, std::string_view p9) noexcept {
  try {
    yinet::write_record(yinet::LogKind::event, level, 0, number,
                        YTextManager.GetYText(number, p1, p2, p3, p4, p5, p6, p7, p8, p9), {});
  } catch (...) {  // no memory for the text: a log is not worth failing for
  }
}

void YLog_class::EventEx(int level, int number, std::string_view text, std::string_view extra) noexcept {
  try {
    yinet::write_record(yinet::LogKind::event, level, 0, number, YString(text), extra);
  } catch (...) {
  }
}

void YLog_class::DebugStart(int channel, int number, std::string_view p1, std::string_view p2,
                            std::string_view p3) noexcept {
  yinet::write_trace(yinet::LogKind::debug_start, channel, number, p1, p2, p3);
}

void YLog_class::DebugEvent(int channel, int number, std::string_view p1, std::string_view p2, std::string_view p3,
                            std::string_view p4, std::string_view p5) noexcept {
  yinet::write_trace(yinet::LogKind::debug, channel, number, p1, p2, p3, p4, p5);
}

void YLog_class::DebugEnd(int channel, int number, std::string_view p1, std::string_view p2) noexcept {
  yinet::write_trace(yinet::LogKind::debug_end, channel, number, p1, p2);
}
