// XML documents: what is read can be written again, and reading that gives the same record.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "yinet/host/yjson.h"
#include "yinet/host/yxml.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view xml(reinterpret_cast<const char*>(data), size);
  YObject record;
  if (YXml::Parse(xml, record)) return 0;
  std::string again;
  // The reader takes names and control characters that must not be written.
  if (YXml::WriteElements(record, again)) return 0;
  // Names that Windows-1252 cannot hold stay as UTF-8 bytes, which may stand for two texts.
  for (const char c : again)
    if (static_cast<signed char>(c) < 0) return 0;
  YObject second;
  if (YXml::Parse(again, second) || YJSON::Write(second, 0) != YJSON::Write(record, 0)) std::abort();
  return 0;
}
