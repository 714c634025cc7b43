// Whole mails, as files and as text: nothing is left in the folder, every attachment listed is there under a name that
// stays in a folder, and the same mail decodes to the same record every time. The walk over the parts finds what its rules
// find, told one after the other.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/settings.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yjson.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/ymime_message.h"

namespace {

namespace fs = std::filesystem;

void require(bool condition) {
  if (!condition) std::abort();
}

// One folder per process, in memory where there is one; it goes with the process.
class Folder {
 public:
  Folder()
      : path_((fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path()) /
              ("yinet-mail-fuzz-" + std::to_string(getpid()))) {
    fs::create_directories(path_ / "mail");
    fs::create_directories(path_ / "temp");
    yinet::set_temporary_folder((path_ / "temp").string());
    yinet::set_log_sink([](const yinet::LogRecord&) {});
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] std::string mail() const { return (path_ / "mail" / "mail.eml").string(); }
  [[nodiscard]] bool holds_only_the_mail() const {
    for (const auto& entry : fs::recursive_directory_iterator(path_))
      if (entry.is_regular_file() && entry.path() != mail()) return false;
    return true;
  }

 private:
  fs::path path_;
};

bool decode(const std::string& source, unsigned long flags, YObject& record, int longest_text = 100) {
  return YMIMEMessage(YString(), 0, longest_text, 0).Decode(YString(source), &record, flags);
}

Folder& folder() {
  static Folder only;
  return only;
}

void check(const std::string& mail, bool readable) {
  yinet::set_setting("Mail", "Lesefreundlich", readable ? "1" : "0");
  std::ofstream(folder().mail(), std::ios::binary) << mail;
  YObject record;
  require(decode(folder().mail(), 0, record) != mail.empty());
  require(folder().holds_only_the_mail());
  const YString attachments = record.GetString("ANLAGEN");
  for (const std::string_view name : attachments.Items()) {
    require(record.Find<YBuffer>(name) != nullptr && !name.empty() && name != "." && name != "..");
    require(name.find_first_of(std::string_view("/\\:\r\n\0", 6)) == std::string_view::npos);
  }
  YObject again;
  decode(folder().mail(), 0, again);
  require(YJSON::Write(record) == YJSON::Write(again));
  YObject information;
  decode(mail, 8 | 4 | 2, information);
}

// --- The walk over the parts, against the rules told one after the other, without caches, budgets or limits ---------------

constexpr std::size_t kNone = std::string::npos;

struct Leaf {
  std::string type, content;  // type: the value of "Content-Type", empty without one
};

struct Walk {
  std::string text;
  std::vector<Leaf> leaves = {};
  int parts = 0;

  // False when a mail makes more parts than are worth a comparison.
  bool decode_part(std::size_t start, const std::string& parent) {
    if (++parts > 400) return false;
    const std::size_t line_end = find("\r\n", start);
    std::string header;
    std::size_t body = start + 2;
    if (start == 0 || (line_end != kNone && start < line_end)) {
      const std::size_t blank = find("\r\n\r\n", start);
      std::size_t end = blank == kNone ? text.size() : blank + 2;
      body = blank == kNone ? end : blank + 4;
      const std::size_t next_part = parent.empty() ? kNone : find("\r\n--" + parent, start - 2);
      if (next_part != kNone && next_part + 2 < end) end = body = next_part + 2;
      header = text.substr(start, end - start);
    }
    const std::string type = type_in(header);
    const std::size_t mark = type.find("; boundary=");
    if (mark != kNone && mark + 11 < type.size()) return decode_parts(body, type.substr(mark + 11));
    body = std::min(body, text.size());
    const std::size_t next = parent.empty() ? kNone : find(parent, body);
    leaves.push_back({type, text.substr(body, next == kNone ? kNone : std::max(next, body + 2) - 2 - body)});
    return true;
  }

  bool decode_parts(std::size_t body, const std::string& boundary) {
    const std::size_t size = boundary.size();
    const std::size_t first = find(boundary, body);
    std::size_t end = find("--" + boundary + "--", body);
    if (first == kNone) return true;
    if (end == kNone) {
      end = 0;
      for (std::size_t q = first - 2; (q = find("--" + boundary, q + 4 + size)) != kNone;) end = q;
    }
    for (std::size_t i = first; i < end; i = find(boundary, i + size))  // none is beyond every end
      if (!decode_part(i + size + 2, boundary)) return false;
    return true;
  }
  // What the first such line of a header says; unfolding has a fuzzer of its own, and before an empty line nothing is read.
  static std::string type_in(const std::string& header) {
    std::string lines = "\r\n" + yinet::replaced(yinet::replaced(header, "\r\n ", " "), "\r\n\t", " ");
    const std::size_t at = header.starts_with("\r\n") ? kNone : lines.find("\r\nContent-Type:");
    if (at == kNone) return {};
    return std::string(
        yinet::trimmed(lines.substr(at + 15, std::min(lines.find("\r\n", at + 2), lines.size()) - at - 15)));
  }
  [[nodiscard]] std::size_t find(const std::string& what, std::size_t from) const { return text.find(what, from); }
};

void compare_walk(const std::string& mail) {
  Walk walk{mail};
  if (mail.empty() || mail.ends_with("\r\n.\r\n") || !walk.decode_part(0, "")) return;
  std::string expected, files;
  for (auto& [type, content] : walk.leaves) {
    const bool is_text = type.empty() || type.substr(0, type.find(';')) == "text/plain";
    for (bool more = true; more && content.ends_with("\r\n"); more = is_text && !type.empty())
      content.resize(content.size() - 2);
    if (content.empty()) continue;
    if (is_text) expected += (expected.empty() ? "" : "\r\n\r\nEingebettete Mail:\r\n\r\n") + content;
    else files += "[" + content + "]";
  }
  yinet::set_setting("Mail", "Lesefreundlich", "0");
  std::ofstream(folder().mail(), std::ios::binary) << mail;
  YObject record;
  require(decode(folder().mail(), 0, record, 10240));
  std::string found = record.GetString("NACHRICHT").str();
  const YString attachments = record.GetString("ANLAGEN");
  for (const std::string_view name : attachments.Items()) found += "[" + record.GetString(name).str() + "]";
  require(found == expected + files);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input, false);
  check(input, true);

  static const auto likely = yinet::split(
      "Content-Type: |multipart/mixed|text/plain|text/html|message/rfc822|a/b|; boundary=|; name=|x.bin|\r\n|\r\n|"
      "\r\n\r\n|--|--b\r\n|--b--\r\n|b|b|bb|; charset=utf-8|Content-Transfer-Encoding: |base64|quoted-printable|"
      "QUJD|=|\"|Subject: |=?utf-8?B?|?=|From: |<|\n|.\r\n",
      "|");
  std::string mapped;
  for (const char c : input.substr(0, 4096)) mapped += likely[static_cast<unsigned char>(c) % likely.size()];
  check(mapped, size % 2 == 0);

  // Mails of few parts that get in each other's way; the input only says which ones.
  static const auto parts = yinet::split(
      "--z\r\n|--z|--z--|--z--\r\n|--zz\r\n|--zz--\r\n|--xx\r\n|--xx--\r\n|z|\r\n|\r\n\r\n|"
      "Content-Type: text/plain\r\n|Content-Type: a/x\r\n|Content-Type: multipart/mixed; boundary=zz\r\n|"
      "Content-Type: multipart/x; boundary=z\r\n|Content-Type: multipart/x; boundary=xx\r\n|eins|zwei|X: y\r\n|"
      " folded\r\n|\t\r\n",
      "|");
  std::seed_seq seed(input.begin(), input.end());
  std::mt19937 random(seed);
  std::string mail = random() % 4 == 0 ? "" : "Content-Type: multipart/mixed; boundary=z\r\n\r\n";
  for (std::size_t pieces = random() % 16; pieces > 0; --pieces) mail += parts[random() % parts.size()];
  compare_walk(mail);
  return 0;
}
