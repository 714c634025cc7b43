// HTTP messages: cutting, start lines, header blocks and values; fields that were written read back the same.

#include <cstdint>
#include <cstdlib>

#include "yinet/host/yjson.h"
#include "yinet/http/http_helper.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const YString text(bytes);

  YString header;
  YBuffer message(bytes);
  YBuffer body;
  const bool cut = HttpHelper.ExtractMessageParts(message, &header, &body);
  if (HttpHelper.ExtractMessageParts(message, nullptr, &message) != cut) std::abort();
  if (cut && !(message == body)) std::abort();
  if (cut && (!bytes.starts_with(header) || !bytes.ends_with(body.view()))) std::abort();

  YString method;
  YString path;
  YObject query;
  int status = 0;
  if (HttpHelper.ParseRequestStartLine(text, &method, &path, &query) && method.IsEmpty()) std::abort();
  if (HttpHelper.ParseResponseStartLine(text, &status) != (status > 0 || status < -1) && status != -1) std::abort();
  HttpHelper.ParseHeaderValue(text, &path, &query);

  YObject fields;
  HttpHelper.ParseHeader(text, &path, &fields);
  const YString written = HttpHelper.CreateHeader(fields);
  YObject again;
  // A start line keeps a first field without colon from being taken for one.
  if (!written.IsEmpty() && !HttpHelper.ParseHeader("start\r\n" + written, nullptr, &again)) std::abort();
  if (!written.IsEmpty() && YJSON::Write(again) != YJSON::Write(fields)) std::abort();
  return 0;
}
