// SOAP requests: whatever a script describes, what is written is XML, and everything in it stands below the envelope.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "yinet/host/yjson.h"
#include "yinet/host/yxml.h"
#include "yinet/http/soap_envelope.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  YObject call;
  if (YJSON::Parse(std::string_view(reinterpret_cast<const char*>(data), size), call)) return 0;
  std::string xml;
  if (yinet::write_soap_envelope(call, xml)) return 0;
  YObject document;
  if (YXml::Parse(xml, document) || document.GetStringKeyCount() != 1) std::abort();
  const auto* envelope = document.Find<YObject>("SOAP-ENV:Envelope");
  const auto* body = envelope ? envelope->Find<YObject>("SOAP-ENV:Body") : nullptr;
  if (!body || body->GetStringKeyCount() != 1 || !body->GetStringKey(0).StartsWith("nskv:")) std::abort();
  return 0;
}
