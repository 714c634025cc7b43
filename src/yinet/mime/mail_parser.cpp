#include "yinet/mime/mail_parser.h"

#include <string>

#include "yinet/host/text.h"

MailParser_class MailParser;

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kFieldMark = ": ";

std::string_view display_name(std::string_view address) {
  const std::size_t bracket = address.find('<');
  if (bracket == std::string_view::npos) return {};
  const std::string_view name = yinet::trimmed(address.substr(0, bracket));
  if (name.empty() || name.front() != '"' || name.back() != '"') return name;
  return name.size() == 1 ? std::string_view() : yinet::trimmed(name.substr(1, name.size() - 2));
}

std::string_view bare_address(std::string_view item) {
  const std::size_t open = item.find('<');
  if (open == std::string_view::npos) return item;
  const std::size_t close = item.find('>', open);
  if (close == std::string_view::npos) return item;
  return item.substr(open + 1, close - open - 1);
}

// Collects the fields of a header block, one line after the other.
class FieldCollector {
 public:
  explicit FieldCollector(YObject& record) : record_(record) {}

  void take_line(std::string_view line) {
    const std::size_t mark = line.find(kFieldMark);
    const bool folded = !line.empty() && (line.front() == ' ' || line.front() == '\t');
    if (mark != std::string_view::npos && !folded) {
      store();
      key_ = line.substr(0, mark);
      value_ = line.substr(mark + kFieldMark.size());
    } else if (!key_.empty()) {
      value_ += line;
    }
  }

  void store() {
    if (key_.empty()) return;
    if (auto* const stored = record_.Find<YString>(key_)) {
      stored->str() += kLineEnd;
      stored->str() += value_;
    } else {
      record_.StoreText(key_, value_);
    }
    key_ = {};
  }

 private:
  YObject& record_;
  std::string_view key_;  // of the field being read; empty before the first one
  std::string value_;
};

}  // namespace

YString MailParser_class::ExtractDisplayName(const YString& address) const noexcept try {
  return display_name(address);
} catch (...) {
  return {};
}

YString MailParser_class::ExtractMailAddress(const YString& list, YString separator) const noexcept try {
  std::string addresses;
  bool first = true;
  for (const std::string_view item : yinet::split(list, ",")) {
    if (!first) addresses += separator.str();
    first = false;
    addresses += bare_address(item);
  }
  return addresses;
} catch (...) {
  return {};
}

YObject MailParser_class::ParseMailHeader(const YString& header) const noexcept try {
  YObject record;
  FieldCollector fields(record);
  for (std::string_view rest = header; !rest.empty();) {
    const std::size_t end = rest.find(kLineEnd);
    fields.take_line(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + kLineEnd.size());
  }
  fields.store();
  return record;
} catch (...) {
  return {};
}
