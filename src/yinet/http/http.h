#pragma once

#include "yinet/host/export.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

class SecureSocket;

// Kinds of request. Any other number gives a request line without a method word.
enum class EREQUST_TYPE : int { get = 1, post = 2 };  // (sic)

// Small HTTP/1.1 client: GET and POST over plain TCP or, for "https" URLs, TLS; counted and chunked replies; cookies. Each
// request has a connection of its own.
//
// An object holds the cookies that servers have set, by host as the URL spells it, and sends them back with later
// requests; copying an object copies them. They never expire. The setting kHttpCookieLimit bounds them per host.
//
// One thread at a time may use an object; different objects are independent. Requests block: a server that stays silent
// ends one after kHttpIdlePolls pauses of kHttpIdlePause. Nothing is thrown; a failure is false and one log entry.
class YINET_API HTTP {
 public:
  // True when the reply's status code is 200. With any other code the outputs are filled all the same: the body, the
  // field "Content-Type" and the status line without its first word. When the request fails before a whole reply is
  // there, the body stays untouched.
  bool Get(const YString& url, YBuffer& response, YString& contentType, YString& status);
  // Sends `content`, at most 2^31-1 bytes, as `contentType`, which is "text/plain" when empty.
  bool POST(const YString& url, const YBuffer& content, const YString& contentType, YBuffer& response,
            YString& responseContentType, YString& status);
  // A field "name:value" that goes with every later request; an equal name replaces the one before. Requests fail with
  // 21905 when one of both holds CR, LF or NUL.
  void set_request_field(const YString& name, const YString& value);

 private:
  static void ParseUrl(const YString& url, YString& host, unsigned& port, YString& path, bool& useTls);
  // Empty, and logged, when a part would break a line of the head.
  YString GenarateHeader(const EREQUST_TYPE& type, const YString& host, const YString& path, const int* contentLength,
                         const YString* contentType) const;  // (sic)
  bool DoRequest(const YString& host, const unsigned& port, YBuffer& request, const bool& useTls, YBuffer& response,
                 YString& contentType, YString& status);

  static bool ReceiveResponse(SecureSocket& socket, YBuffer& body, YObject& header, YString& status);
  // Steps of the reader that is not exact, under their exported names.
  static void ParseHeader(YString& headerText, YObject& header, YString& status);
  static bool isResponseContentComplete(const YBuffer& body, const bool& chunked, const int& contentLength);
  static void ProcessChunkedContent(YBuffer& in, YBuffer& out);  // takes over the bytes of `in`
  static void getChunkedContentLength(YBuffer& buffer, const int& start, int& size, int& dataStart);

  YObject cookies_;  // by host: records of cookies by name, each a record with the text "VALUE"
  YObject fields_;   // texts by name, beside those that every request has
};
