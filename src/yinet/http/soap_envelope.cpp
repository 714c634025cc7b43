#include "yinet/http/soap_envelope.h"

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/host/yxml.h"

namespace yinet {
namespace {

using Problem = std::optional<std::string>;

constexpr std::string_view kServicePrefix = "nskv";

struct Declaration {
  std::string_view attribute, uri;
};
constexpr Declaration kDeclarations[] = {
    {"@xmlns:SOAP-ENV", "http://schemas.xmlsoap.org/soap/envelope/"},
    {"@xmlns:SOAP-ENC", "http://schemas.xmlsoap.org/soap/encoding/"},
    {"@xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance"},
    {"@xmlns:xsd", "http://www.w3.org/2001/XMLSchema"},
};

std::string qualified(std::string_view name) { return formatted("$1$:$2$", kServicePrefix, name); }

// The writer reads "name@attribute" and "#text" as more than names; a script means a name and nothing else.
Problem wrong_name(std::string_view key) {
  if (!key.empty() && key.find_first_of("@#:") == std::string_view::npos) return std::nullopt;
  return "\"" + printable(key) + "\" is no XML name";
}

class HeaderCopy {
 public:
  Problem copy_record(const YObject& from, YObject& to, std::int64_t depth) const {
    if (depth > depth_limit_) return "\"HEADER\" nests deeper than \"XML\"/\"TiefenLimit\" allows";
    for (int i = 0; i < from.GetStringKeyCount(); ++i) {
      const YString key = from.GetStringKey(i);
      if (auto problem = wrong_name(key)) return problem;
      if (auto problem = copy_entry(from, key, to, qualified(key), depth)) return problem;
    }
    return std::nullopt;
  }

 private:
  Problem copy_entry(const YObject& from, const YString& key, YObject& to, const std::string& name,
                     std::int64_t depth) const {
    if (const auto* record = from.Find<YObject>(key))
      return record->IsEmpty() ? std::nullopt : copy_record(*record, to.Ensure<YObject>(name), depth + 1);
    const auto* array = from.Find<YObjectArray>(key);
    if (!array) {
      to.Set(name, from.GetType(key), from._GetValuePtr(key, kTypeAny), 0);
      return std::nullopt;
    }
    auto& items = to.Ensure<YObjectArray>(name);
    for (int i = 0; i < array->Count(); ++i)
      if (auto problem = copy_record(*array->ItemPtr(i), *items.New(), depth + 1)) return problem;
    return std::nullopt;
  }

  const std::int64_t depth_limit_ = setting_number(settings::kXmlDepthLimit);
};

Problem add_operation(const YObject& call, YObject& body) {
  const auto* described = call.Find<YObject>(soap::kBody);
  if (!described) return "\"BODY\" is missing";
  const YString operation = described->GetStringKey(0);
  if (operation.IsEmpty()) return "\"BODY\" names no operation";
  if (auto problem = wrong_name(operation)) return problem;
  auto& element = body.Ensure<YObject>(qualified(operation));
  const auto* parameters = described->FindAt<YObject>(0);
  for (int i = 0; parameters && i < parameters->GetStringKeyCount(); ++i) {
    const YString key = parameters->GetStringKey(i);
    if (auto problem = wrong_name(key)) return problem;
    element.Store<YString>(qualified(key), parameters->GetString(key));
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> write_soap_envelope(const YObject& call, std::string& xml) {
  YObject document;
  auto& envelope = document.Ensure<YObject>("SOAP-ENV:Envelope");
  for (const auto& [attribute, uri] : kDeclarations) envelope.StoreText(attribute, uri);
  envelope.Store<YString>(formatted("@xmlns:$1$", kServicePrefix), call.GetString(soap::kNamespace));
  if (const auto* header = call.Find<YObject>(soap::kHeader))
    if (auto problem = HeaderCopy().copy_record(*header, envelope.Ensure<YObject>("SOAP-ENV:Header"), 1))
      return problem;
  if (auto problem = add_operation(call, envelope.Ensure<YObject>("SOAP-ENV:Body"))) return problem;
  if (auto error = YXml::Write(document, xml)) return std::move(error->reason);
  return std::nullopt;
}

}  // namespace yinet
