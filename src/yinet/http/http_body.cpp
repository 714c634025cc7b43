#include "yinet/http/http_body.h"

#include <array>
#include <optional>
#include <string>
#include <utility>

#include "yinet/charset/charset.h"
#include "yinet/charset/charset_label.h"
#include "yinet/host/codepage.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/structured_value.h"
#include "yinet/host/text.h"
#include "yinet/host/yjson.h"
#include "yinet/host/yobject.h"
#include "yinet/host/yxml.h"
#include "yinet/http/http_message.h"
#include "yinet/http/multipart.h"

namespace yinet {
namespace {

constexpr std::string_view kWholeBody = "BODY";
constexpr std::string_view kFileName = "FILENAME";
constexpr std::string_view kFileType = "CONTENTTYPE";
constexpr std::string_view kFileContent = "CONTENT";

std::string parameter_of(std::string_view structured, std::string_view name) {
  for (const HeaderParameter& parameter : split_structured_value(structured, true).parameters)
    if (equal_ignoring_case(parameter.name, name)) return std::string(parameter.value);
  return {};
}

std::string library_text(std::string_view bytes, std::string_view charset_label) {
  if (!charset_label.empty() && !starts_with_ignoring_case(charset_label, "utf-8")) {
    YString text = charset.ConvertToANSI(YString(bytes), YString(converter_for_label(charset_label)), 0);
    if (!text.IsEmpty()) return std::move(text).str();
  }
  return name_from_utf8(bytes);
}

// Puts the fields of a form into a record; the rules for equal names are here.
class FormFields {
 public:
  explicit FormFields(YObject& fields) : fields_(fields) {}

  bool add_text(std::string_view name, std::string text) {
    if (!count()) return false;
    if (auto* array = fields_.Find<YObjectArray>(name)) {
      array->New()->StoreText(kFileContent, text);
    } else if (const auto* file = fields_.Find<YObject>(name); file != nullptr) {
      array_from_entry(name).New()->StoreText(kFileContent, text);
    } else if (auto* joined = fields_.Find<YString>(name)) {
      *joined += YString::kItemDelimiter;
      *joined += text;
    } else {
      fields_.StoreText(name, text);
    }
    return true;
  }

  bool add_file(std::string_view name, YObject file) {
    if (!count()) return false;
    if (!fields_.Exist(name)) fields_.Store<YObject>(name, std::move(file));
    else *array_from_entry(name).New() = std::move(file);
    return true;
  }

 private:
  bool count() { return --left_ >= 0; }

  // The entry as an array, with what it was before as its first item.
  YObjectArray& array_from_entry(std::string_view name) {
    if (auto* array = fields_.Find<YObjectArray>(name)) return *array;
    YObject first;
    if (auto* file = fields_.Find<YObject>(name)) first = std::move(*file);
    else first.StoreText(kFileContent, fields_.GetString(name));
    auto& array = fields_.Ensure<YObjectArray>(name);
    *array.New() = std::move(first);
    return array;
  }

  YObject& fields_;
  std::int64_t left_ = setting_number(settings::kHttpFormFields);
};

bool parse_form_data(std::string_view content_type, std::string_view body, YObject& record) {
  FormFields fields(record);
  const std::string boundary = parameter_of(content_type, "boundary");
  const std::string form_charset = charset_parameter(content_type);
  return for_each_part(body, boundary, [&](std::string_view head, std::string_view content) {
    YObject header;
    parse_field_lines(head, header);
    const YString disposition = header.GetString("Content-Disposition");
    const YString type = header.GetString("Content-Type");
    std::optional<std::string> name;
    std::optional<std::string> file_name;
    for (const HeaderParameter& parameter : split_structured_value(disposition, true).parameters) {
      if (equal_ignoring_case(parameter.name, "name")) name = library_text(parameter.value, form_charset);
      if (equal_ignoring_case(parameter.name, "filename")) file_name = library_text(parameter.value, form_charset);
    }
    if (!name) return true;  // no field of a form, but no reason to lose the others
    if (!file_name) {
      const std::string own_charset = charset_parameter(type);
      return fields.add_text(*name, library_text(content, own_charset.empty() ? form_charset : own_charset));
    }
    YObject file;
    file.StoreText(kFileName, *file_name);
    file.Store<YString>(kFileType, type);
    file.Store<YBuffer>(kFileContent, YBuffer(content));
    return fields.add_file(*name, std::move(file));
  });
}

bool parse_url_encoded(std::string_view content_type, std::string_view body, YObject& record) {
  FormFields fields(record);
  const std::string form_charset = charset_parameter(content_type);
  return for_each_query_pair(trimmed_back(body), [&](const std::string& name, const std::string& value) {
    return fields.add_text(library_text(name, form_charset), library_text(value, form_charset));
  });
}

bool parse_json(std::string_view /*content_type*/, std::string_view body, YObject& record) {
  if (body.starts_with("\xEF\xBB\xBF")) body.remove_prefix(3);
  if (trimmed_front(body).starts_with('{')) return !YJSON::Parse(body, record);
  return !YJSON::ParseValue(body, kWholeBody, record);
}

bool parse_text(std::string_view content_type, std::string_view body, YObject& record) {
  record.StoreText(kWholeBody, library_text(body, charset_parameter(content_type)));
  return true;
}

bool parse_xml(std::string_view content_type, std::string_view body, YObject& record) {
  return !YXml::Parse(body, record, charset_parameter(content_type));
}

using BodyParser = bool (*)(std::string_view content_type, std::string_view body, YObject& record);

BodyParser parser_for(std::string_view type) {
  constexpr auto kParsers =
      std::to_array<std::pair<std::string_view, BodyParser>>({{"multipart/form-data", parse_form_data},
                                                              {"application/x-www-form-urlencoded", parse_url_encoded},
                                                              {"application/json", parse_json},
                                                              {"text/plain", parse_text},
                                                              {"text/xml", parse_xml},
                                                              {"application/xml", parse_xml}});
  for (const auto& [known, parser] : kParsers)
    if (known == type) return parser;
  if (type.ends_with("+json")) return parse_json;
  if (type.ends_with("+xml")) return parse_xml;
  return nullptr;
}

}  // namespace

std::string media_type(std::string_view content_type) {
  return to_lower(trimmed(content_type.substr(0, content_type.find(';'))));
}

std::string charset_parameter(std::string_view content_type) { return parameter_of(content_type, "charset"); }

bool parse_http_body(std::string_view content_type, std::string_view body, YObject& fields) {
  const BodyParser parser = parser_for(media_type(content_type));
  return parser != nullptr && parser(content_type, body, fields);
}

}  // namespace yinet
