#include "yinet/host/yjson.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "yinet/host/codepage.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"

namespace yinet {
namespace {

constexpr std::string_view kBufferKey = "$base64";
constexpr std::string_view kDateKey = "$date";

// --- Writing --------------------------------------------------------------------------------------------------------

class JsonWriter {
 public:
  JsonWriter(std::string& out, int indent) : out_(out), indent_(indent) {}

  void write(const YObject& record, std::size_t depth = 0) {
    const int count = record.GetStringKeyCount();
    out_ += '{';
    for (int i = 0; i < count; ++i) {
      separate(i, depth + 1);
      write_text(record.GetStringKey(i));
      out_ += indent_ > 0 ? ": " : ":";
      write_value(record, i, depth + 1);
    }
    close('}', count, depth);
  }

 private:
  void write_value(const YObject& record, int index, std::size_t depth) {
    if (const auto* text = record.FindAt<YString>(index)) write_text(*text);
    else if (const auto* number = record.FindAt<std::int32_t>(index)) out_ += std::to_string(*number);
    else if (const auto* truth = record.FindAt<bool>(index)) out_ += *truth ? "true" : "false";
    else if (const auto* bytes = record.FindAt<YBuffer>(index))
      write_wrapped(kBufferKey, base64_encoded(bytes->view()));
    else if (const auto* date = record.FindAt<YDateAndTime>(index)) write_wrapped(kDateKey, date->toIso());
    else if (const auto* object = record.FindAt<YObject>(index)) write(*object, depth);
    else if (const auto* array = record.FindAt<YObjectArray>(index)) write_array(*array, depth);
    else out_ += "null";
  }

  void write_array(const YObjectArray& array, std::size_t depth) {
    out_ += '[';
    for (int i = 0; i < array.Count(); ++i) {
      separate(i, depth + 1);
      write(*array.ItemPtr(i), depth + 1);
    }
    close(']', array.Count(), depth);
  }

  void write_wrapped(std::string_view key, std::string_view ascii) {
    out_.append("{\"").append(key).append(indent_ > 0 ? "\": \"" : "\":\"").append(ascii).append("\"}");
  }

  void write_text(std::string_view ansi) {
    static constexpr char kHex[] = "0123456789abcdef";
    out_ += '"';
    for (const char c : utf8_from_ansi(ansi)) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') out_.append({'\\', c});
      else if (c == '\n') out_ += "\\n";
      else if (c == '\r') out_ += "\\r";
      else if (c == '\t') out_ += "\\t";
      else if (byte < 0x20 || byte == 0x7F) out_.append({'\\', 'u', '0', '0', kHex[byte >> 4], kHex[byte & 15]});
      else out_ += c;
    }
    out_ += '"';
  }

  void separate(int index, std::size_t depth) {
    if (index > 0) out_ += ',';
    break_line(depth);
  }
  void close(char bracket, int count, std::size_t depth) {
    if (count > 0) break_line(depth);
    out_ += bracket;
  }
  void break_line(std::size_t depth) {
    if (indent_ > 0) out_.append(1, '\n').append(depth * static_cast<std::size_t>(indent_), ' ');
  }

  std::string& out_;
  int indent_;
};

// --- Reading --------------------------------------------------------------------------------------------------------

// Receives the events of the JSON parser and builds a record from them. Each open object or array is a frame; a closed
// one moves into the frame below it. The lowest frame stands for the place where the whole document goes.
class JsonReader {
 public:
  using number_integer_t = nlohmann::json::number_integer_t;
  using number_unsigned_t = nlohmann::json::number_unsigned_t;
  using number_float_t = nlohmann::json::number_float_t;
  using string_t = nlohmann::json::string_t;
  using binary_t = nlohmann::json::binary_t;

  JsonReader(std::string_view root_key, JsonNotes* notes) : notes_(notes) {
    frames_.emplace_back(Kind::object);
    frames_.back().key = root_key;
  }

  [[nodiscard]] YObject& document() { return frames_.front().object; }
  [[nodiscard]] const JsonError& error() const { return error_; }

  // The parser's interface: each gives false to stop.
  bool null() {
    if (top().kind == Kind::array) return fail("null cannot stand in an array");
    top().object.Set(top().key, kTypeAny, nullptr, 0);
    return true;
  }
  bool boolean(bool value) {
    if (top().kind == Kind::array) return fail("true and false cannot stand in an array");
    top().object.Store<bool>(top().key, value);
    return true;
  }
  bool number_integer(number_integer_t value) {
    if (top().kind == Kind::object && value >= std::numeric_limits<std::int32_t>::min() &&
        value <= std::numeric_limits<std::int32_t>::max()) {
      top().object.Store<std::int32_t>(top().key, static_cast<std::int32_t>(value));
      return true;
    }
    return add_text(std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) {
    if (value <= static_cast<number_unsigned_t>(std::numeric_limits<std::int32_t>::max())) {
      return number_integer(static_cast<number_integer_t>(value));
    }
    return add_text(std::to_string(value));
  }
  bool number_float(number_float_t /*value*/, const string_t& text) { return add_text(text); }
  bool string(string_t& text) { return add_text(text); }
  bool binary(binary_t& /*bytes*/) { return fail("binary values are no JSON"); }

  bool start_object(std::size_t /*count*/) {
    if (top().kind == Kind::array && top().has_texts) return fail(kMixedArray);
    return push(Kind::object);
  }
  bool key(string_t& name) {
    top().key = to_library_text(name, name);
    return true;
  }
  bool end_object() {
    Frame closed = pop();
    if (top().kind == Kind::array) {
      *top().array.New() = std::move(closed.object);
      return true;
    }
    return store_wrapped(closed.object) || store_object(std::move(closed.object));
  }
  bool start_array(std::size_t /*count*/) {
    if (top().kind == Kind::array) return fail("an array cannot stand in an array");
    return push(Kind::array);
  }
  bool end_array() {
    Frame closed = pop();
    if (closed.has_texts) top().object.StoreText(top().key, closed.texts);
    else top().object.Store<YObjectArray>(top().key, std::move(closed.array));
    return true;
  }
  bool parse_error(std::size_t position, const std::string& /*token*/, const nlohmann::detail::exception& what) {
    std::string_view reason = what.what();
    // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ..."
    if (const auto end = reason.find("] "); end != std::string_view::npos) reason.remove_prefix(end + 2);
    error_ = {std::string(reason), position};
    return false;
  }

 private:
  static constexpr const char* kMixedArray = "an array holds either objects or texts and numbers, not both";

  enum class Kind { object, array };
  struct Frame {
    explicit Frame(Kind what) : kind(what) {}
    Kind kind;
    std::string key;  // of the member being read, library text
    YObject object;
    YObjectArray array;
    std::string texts;  // an array's texts and numbers as an item list
    bool has_texts = false;
  };

  Frame& top() { return frames_.back(); }

  bool push(Kind kind) {
    if (frames_.size() > depth_limit_) return fail("nested deeper than the setting \"JSON\"/\"TiefenLimit\" allows");
    frames_.emplace_back(kind);
    return true;
  }
  Frame pop() {
    Frame closed = std::move(frames_.back());
    frames_.pop_back();
    return closed;
  }

  bool fail(std::string reason) {
    error_.reason = std::move(reason);
    return false;
  }

  bool add_text(const std::string& utf8) {
    Frame& frame = top();
    if (frame.kind == Kind::object) {
      frame.object.Store<YString>(frame.key, YString(to_library_text(utf8, {})));
      return true;
    }
    if (frame.array.Count() > 0) return fail(kMixedArray);
    if (frame.has_texts) frame.texts += YString::kItemDelimiter;
    frame.texts += to_library_text(utf8, {});
    frame.has_texts = true;
    return true;
  }

  // {"$base64": ...} and {"$date": ...}
  bool store_wrapped(YObject& object) {
    if (object.GetStringKeyCount() != 1) return false;
    const YString* text = object.FindAt<YString>(0);
    if (text == nullptr) return false;
    if (object.GetStringKey(0).Equals(kBufferKey)) {
      std::string bytes;
      if (!base64_decode(*text, bytes)) return false;
      top().object.Store<YBuffer>(top().key, YBuffer(bytes));
      return true;
    }
    if (!object.GetStringKey(0).Equals(kDateKey)) return false;
    YDateAndTime date;
    if (!text->IsEmpty() && !date.SetIso(*text)) return false;
    top().object.Store<YDateAndTime>(top().key, date);
    return true;
  }
  bool store_object(YObject object) {
    top().object.Store<YObject>(top().key, std::move(object));
    return true;
  }

  // `member` names the key that is being read itself; otherwise the note names the current one.
  std::string to_library_text(const std::string& utf8, std::string_view member) {
    if (auto ansi = ansi_from_utf8(utf8)) return *std::move(ansi);
    if (notes_ != nullptr) notes_->kept_as_utf8.push_back(path(member));
    return utf8;
  }
  std::string path(std::string_view member) {
    std::string result;
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      const bool last = i + 1 == frames_.size();
      const std::string_view part = last && !member.empty() ? member : std::string_view(frames_[i].key);
      if (part.empty()) continue;
      if (!result.empty()) result += '/';
      result += last && !member.empty() ? std::string(part) : name_to_utf8(part);
    }
    return result;
  }

  std::vector<Frame> frames_;
  const std::size_t depth_limit_ = static_cast<std::size_t>(std::min(setting_int(settings::kJsonDepthLimit), 1000));
  JsonNotes* notes_;
  JsonError error_;
};

std::optional<JsonError> read_json(std::string_view json, JsonReader& reader) {
  if (nlohmann::json::sax_parse(json.begin(), json.end(), &reader)) return std::nullopt;
  return reader.error();
}

}  // namespace
}  // namespace yinet

std::string YJSON::Write(const YObject& record, int indent) {
  std::string out;
  yinet::JsonWriter(out, indent).write(record);
  return out;
}

std::optional<yinet::JsonError> YJSON::ParseValue(std::string_view json, std::string_view key, YObject& record,
                                                  yinet::JsonNotes* notes) {
  yinet::JsonReader reader(key, notes);
  if (auto error = yinet::read_json(json, reader)) return error;
  record.Add(std::move(reader.document()));
  return std::nullopt;
}

std::optional<yinet::JsonError> YJSON::Parse(std::string_view json, YObject& record, yinet::JsonNotes* notes) {
  yinet::JsonReader reader({}, notes);
  if (auto error = yinet::read_json(json, reader)) return error;
  YObject* const object = reader.document().FindAt<YObject>(0);
  if (object == nullptr) return yinet::JsonError{"a JSON object is expected", 0};
  record.Add(std::move(*object));
  return std::nullopt;
}
