#include "yinet/http/http.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <memory>

#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"
#include "yinet/host/ytextmanager.h"
#include "yinet/http/http_request.h"
#include "yinet/http/http_response.h"
#include "yinet/http/http_url.h"
#include "yinet/net/secure_socket.h"

namespace message = yinet::message;
namespace settings = yinet::settings;
using yinet::ReplyProgress;

namespace {

constexpr int kTraceChannel = 2190;
constexpr int kReadSize = 1024;
constexpr int kStatusOk = 200;
constexpr int kMostContent = std::numeric_limits<int>::max();

// Nothing here throws but for lack of memory, and nothing may leave the exported operations.
template <typename Body>
bool guarded(std::string_view operation, Body body) noexcept {
  try {
    return body();
  } catch (const std::exception& error) {
    YLog.Event(message::kErrorLevel, message::kScriptFunctionFailed, operation, error.what());
    return false;
  }
}

void trace_end(bool done, const YString& status, const YBuffer& response) {
  if (!yinet::debug_traces()) return;
  if (done) YLog.DebugEnd(kTraceChannel, message::kHttpGetTrace, status);
  else YLog.DebugEnd(kTraceChannel, message::kHttpGetTrace, yinet::formatted("$1$\r\n$2$", status, response.view()));
}

std::size_t size_setting(const yinet::Setting& setting) { return static_cast<std::size_t>(setting_number(setting)); }

yinet::ReplyLimits reply_limits() {
  return {.header_bytes = size_setting(settings::kHttpHeaderLimit),
          .body_bytes = size_setting(settings::kHttpBodyLimit),
          .cookies = setting_int(settings::kHttpCookieLimit)};
}

// Names beyond the limit are passed over: a server can't push out what was kept before.
void merge_cookies(const YObject& set_by_reply, int limit, YObject& kept) {
  for (int i = 0; i < set_by_reply.GetStringKeyCount(); ++i) {
    const YString name = set_by_reply.GetStringKey(i);
    if (kept.GetStringKeyCount() >= limit && !kept.Exist(name)) continue;
    kept.Set(name, yinet::kTypeObject, set_by_reply.FindAt<YObject>(i), 0);
  }
}

// How long a server may keep us waiting: a number of pauses in a row without a byte, and a time for the whole reply.
class Patience {
 public:
  void renew() { idle_polls_ = 0; }

  // Waits for input, one pause at most; false when that was the last one. A pause that input cut short does not count.
  bool wait(SecureSocket& socket) {
    if (!socket.wait_for_input(static_cast<int>(std::min(pause_ms_, left_ms())))) ++idle_polls_;
    return idle_polls_ < most_idle_polls_ && !exhausted();
  }

  [[nodiscard]] bool exhausted() const { return limited_ && left_ms() == 0; }

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] std::int64_t left_ms() const {  // rounded up: 0 means over
    if (!limited_) return pause_ms_;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return std::max<std::int64_t>(left, 0);
  }

  const std::int64_t pause_ms_ = setting_int(settings::kHttpIdlePause);
  const std::int64_t most_idle_polls_ = setting_number(settings::kHttpIdlePolls);
  const std::int64_t time_limit_ms_ = setting_int(settings::kHttpTimeLimit);
  const bool limited_ = time_limit_ms_ != 0;
  const Clock::time_point end_ = Clock::now() + std::chrono::milliseconds(time_limit_ms_);
  std::int64_t idle_polls_ = 0;
};

// Some failures share a number; the extra text tells them apart.
void log_failure(int number, std::string_view extra) {
  YLog.EventEx(message::kErrorLevel, number, YTextManager.GetYText(number), extra);
}

void log_failure(ReplyProgress failure, const yinet::ReplyLimits& limits) {
  switch (failure) {
    case ReplyProgress::header_too_long:
      return log_failure(message::kHttpServerSilent,
                         yinet::formatted("header of more than $1$ bytes", std::to_string(limits.header_bytes)));
    case ReplyProgress::body_too_long:
      return YLog.Event(message::kErrorLevel, message::kHttpReplyTooLarge, settings::kHttpBodyLimit.name,
                        std::to_string(limits.body_bytes));
    case ReplyProgress::malformed:
      return log_failure(message::kHttpReceiveFailed, "length or chunks of the body can't be read");
    case ReplyProgress::cut:
    case ReplyProgress::more:
    case ReplyProgress::complete: return YLog.Event(message::kErrorLevel, message::kHttpReceiveFailed);
  }
}

}  // namespace

bool HTTP::Get(const YString& url, YBuffer& response, YString& contentType, YString& status) {
  return guarded("HTTP::Get", [&] {
    YLog.DebugStart(kTraceChannel, message::kHttpGetTrace, url);
    YString host;
    YString path;
    unsigned port = 0;
    bool use_tls = false;
    ParseUrl(url, host, port, path, use_tls);
    const YString head = GenarateHeader(EREQUST_TYPE::get, host, path, nullptr, nullptr);
    YBuffer request{std::string_view(head)};
    const bool done = !head.IsEmpty() && DoRequest(host, port, request, use_tls, response, contentType, status);
    trace_end(done, status, response);
    return done;
  });
}

bool HTTP::POST(const YString& url, const YBuffer& content, const YString& contentType, YBuffer& response,
                YString& responseContentType, YString& status) {
  return guarded("HTTP::POST", [&] {
    YLog.DebugStart(kTraceChannel, message::kHttpPostTrace, url, content.view());
    YString host;
    YString path;
    unsigned port = 0;
    bool use_tls = false;
    ParseUrl(url, host, port, path, use_tls);
    YString head;
    if (content.Size() <= kMostContent) {
      const int size = static_cast<int>(content.Size());
      head = GenarateHeader(EREQUST_TYPE::post, host, path, &size, &contentType);
    } else {
      YLog.EventEx(message::kErrorLevel, message::kHttpSendFailed,
                   YTextManager.GetYText(message::kHttpSendFailed, host), "content of more than 2147483647 bytes");
    }
    bool done = false;
    if (!head.IsEmpty()) {
      YBuffer request;
      request.Reserve(head.Length() + content.Size());
      request.Add(head);
      request.Add(content);
      done = DoRequest(host, port, request, use_tls, response, responseContentType, status);
    }
    trace_end(done, status, response);
    return done;
  });
}

void HTTP::set_request_field(const YString& name, const YString& value) {
  guarded("HTTP::set_request_field", [&] {
    fields_.Store<YString>(name, value);
    return true;
  });
}

void HTTP::ParseUrl(const YString& url, YString& host, unsigned& port, YString& path, bool& useTls) {
  const yinet::HttpUrl parts = yinet::parse_http_url(url, useTls);
  host = YString(parts.host);
  port = parts.port;
  path = YString(parts.path);
  useTls = parts.tls;
  if (yinet::debug_traces())
    YLog.DebugEvent(kTraceChannel, message::kHttpUrlParsed, url, host, path, std::to_string(port), useTls ? "1" : "0");
}

YString HTTP::GenarateHeader(const EREQUST_TYPE& type, const YString& host, const YString& path,
                             const int* contentLength, const YString* contentType) const {
  const std::string user_agent = setting_text(settings::kSystemName);
  const yinet::RequestHead head{.method = type,
                                .host = host,
                                .path = path,
                                .user_agent = user_agent,
                                .time = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()),
                                .cookies = cookies_.Find<YObject>(host),
                                .fields = &fields_,
                                .content_length = contentLength ? *contentLength : 0,
                                .content_type = contentType ? std::string_view(*contentType) : std::string_view()};
  if (const auto value = line_breaking_value(head)) {
    YLog.Event(message::kErrorLevel, message::kHttpLineBreakRefused, *value);
    return {};
  }
  return request_head_text(head);
}

bool HTTP::DoRequest(const YString& host, const unsigned& port, YBuffer& request, const bool& useTls, YBuffer& response,
                     YString& contentType, YString& status) {
  SecureSocket socket;
  socket.share_sessions(true);
  if (useTls) socket.InitSSLClientContext(YString(), false, true);
  if (socket.Connect(host, port, false) != 0) {
    YLog.Event(message::kErrorLevel, message::kHttpConnectFailed, host);
    return false;
  }
  socket.read_ahead(true);
  if (!socket.Send(request)) {
    YLog.Event(message::kErrorLevel, message::kHttpSendFailed, host);
    socket.Close();
    return false;
  }
  YObject header;
  const bool done = ReceiveResponse(socket, response, header, status);
  if (const auto* set_by_reply = header.Find<YObject>(yinet::kCookies))
    merge_cookies(*set_by_reply, setting_int(settings::kHttpCookieLimit), cookies_.Ensure<YObject>(host));
  socket.Close();
  contentType = header.GetString("Content-Type");
  return done;
}

bool HTTP::ReceiveResponse(SecureSocket& socket, YBuffer& body, YObject& header, YString& status) {
  const yinet::ReplyLimits limits = reply_limits();
  const auto reader = make_reply_reader(setting_flag(settings::kHttpExactReader), limits, header, status);
  Patience patience;
  YBuffer scratch;
  ReplyProgress progress = ReplyProgress::more;
  while (progress == ReplyProgress::more) {
    const int count = socket.Receive(scratch, kReadSize, false);
    bool in_time = true;
    if (count > 0) {
      patience.renew();
      progress = reader->feed(scratch.view().substr(0, static_cast<std::size_t>(count)));
      in_time = progress != ReplyProgress::more || !patience.exhausted();
    } else if (count < 0) {
      // What a reset cuts off is no whole reply, however its body was to end.
      progress = socket.is_broken() ? ReplyProgress::cut : reader->feed_end();
    } else {
      in_time = patience.wait(socket);
    }
    if (!in_time) {
      log_failure(message::kHttpServerSilent, patience.exhausted() ? "no whole reply within the time limit" : "");
      return false;
    }
  }
  if (progress != ReplyProgress::complete) {
    log_failure(progress, limits);
    return false;
  }
  body = reader->take_body();
  return reader->status_code() == kStatusOk;
}

void HTTP::ParseHeader(YString& headerText, YObject& header, YString& status) {
  yinet::parse_header_block(headerText, setting_int(settings::kHttpCookieLimit), header, status);
}

bool HTTP::isResponseContentComplete(const YBuffer& body, const bool& chunked, const int& contentLength) {
  return yinet::body_is_complete(body.view(), chunked, contentLength);
}

void HTTP::ProcessChunkedContent(YBuffer& in, YBuffer& out) {
  out.Move(in);
  out.SetSize(static_cast<long>(yinet::decode_chunks_in_place(reinterpret_cast<char*>(out.Ptr()), out.view().size())));
}

void HTTP::getChunkedContentLength(YBuffer& buffer, const int& start, int& size, int& dataStart) {
  const auto chunk = yinet::read_chunk_start(buffer.view(), static_cast<std::size_t>(std::max(start, 0)));
  constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
  size = chunk ? static_cast<int>(std::min(chunk->size, kMost)) : 0;
  dataStart = chunk ? static_cast<int>(chunk->data_start) : 0;
}
