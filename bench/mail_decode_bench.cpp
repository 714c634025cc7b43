// Decoding mails, beside GMime and mimetic in the same run. The mails are files in memory (/dev/shm, or the temporary
// folder): yinet reads each and, as it always does, passes every attachment through a file beside it. GMime maps the mail
// and decodes all of it: header words, texts to UTF-8, attachments into memory, or into files that are deleted again.
// mimetic undoes transfer encodings only: it knows neither header words nor charsets. Bytes per second count the mails.
// "ratio" is the peak of memory that decoding added, as a multiple of the mail.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gmime/gmime.h>
#include <mimetic/mimetic.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <ranges>
#include <string>
#include <string_view>
#include <vector>

#include "bench_data.h"
#include "support/resource_check.h"
#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/host/yfile.h"
#include "yinet/mime/quoted_printable.h"
#include "yinet/mime/ymime_message.h"

namespace {

namespace fs = std::filesystem;
using yinet::bench::german_text;

// --- Mails -------------------------------------------------------------------------------------------------------------

const fs::path& folder() {
  static const fs::path kFolder = (fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) /
                                  ("yinet-decode-bench-" + std::to_string(getpid()));
  return kFolder;
}

std::string encoded_text(std::string_view ansi) { return yinet::quoted_printable_encoded(yinet::utf8_from_ansi(ansi)); }

std::string header(unsigned seed, int more_lines = 5) {
  const std::string number = std::to_string(seed);
  std::string lines;
  for (int i = 0; i < more_lines; ++i)
    lines += "Received: from mx" + std::to_string(i) +
             ".example.net (mx.example.net [192.0.2.1])\r\n\tby mail.example.org with ESMTPS id " + number +
             "; Sat, 21 Nov 2026 10:00:00 +0100\r\n";
  return lines +
         "From: =?utf-8?Q?J=C3=B6rg_Gr=C3=BCn?= <joerg.gruen@example.com>\r\nTo: Einkauf <einkauf@example.org>, "
         "lager@example.org\r\n"
         "Subject: =?utf-8?Q?Angebot_f=C3=BCr_M=C3=A4rz_" +
         number + "?=\r\nDate: Sat, 21 Nov 2026 10:00:00 +0100\r\nMessage-ID: <" + number +
         "@example.com>\r\nMIME-Version: 1.0\r\n";
}

constexpr const char* kQuoted = "; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";

std::string alternative(unsigned seed, std::size_t text_bytes) {
  return "Content-Type: multipart/alternative; boundary=\"=_inner\"\r\n\r\n--=_inner\r\nContent-Type: text/plain" +
         (kQuoted + encoded_text(german_text(text_bytes, "\r\n", seed))) + "\r\n--=_inner\r\nContent-Type: text/html" +
         kQuoted + "<html><body><p>" + encoded_text(german_text(text_bytes, "<br>\r\n", seed + 1)) +
         "</p></body></html>\r\n--=_inner--\r\n";
}

std::string attachment(unsigned seed, std::size_t bytes) {
  return "Content-Type: application/octet-stream; name=\"anlage" + std::to_string(seed) +
         ".bin\"\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment\r\n\r\n" +
         yinet::bench::in_lines(yinet::base64_encoded(yinet::bench::random_bytes(bytes, seed)));
}

std::string mixed(unsigned seed, const std::vector<std::string>& parts, int header_lines = 5) {
  std::string mail = header(seed, header_lines) + "Content-Type: multipart/mixed; boundary=\"=_outer\"\r\n\r\n";
  for (const std::string& part : parts) mail += "--=_outer\r\n" + part;
  return mail + "--=_outer--\r\n";
}

struct MailSet {
  std::vector<std::string> files;
  std::int64_t bytes = 0;
};

enum Kind { kSmall, kAttachments, kLarge, kSize, kParts, kHeaderLines };

std::string mail_of(Kind kind, std::int64_t number, unsigned seed) {
  constexpr std::int64_t kMillion = 1'000'000;
  switch (kind) {
    case kSmall: return header(seed) + alternative(seed, 2700);
    case kAttachments:
      return mixed(seed, {alternative(seed, 500),
                          attachment(seed, static_cast<std::size_t>(kMillion * 3 / 4 * (1 + seed % 5)))});
    case kLarge: return mixed(seed, {alternative(seed, 500), attachment(seed, 73 * kMillion)});
    case kSize: return mixed(seed, {attachment(seed, static_cast<std::size_t>(number * 73 / 100))});
    case kParts: {
      std::vector<std::string> parts;
      for (int i = 0; i < number; ++i) parts.push_back(attachment(static_cast<unsigned>(i), 1000));
      return mixed(seed, parts);
    }
    case kHeaderLines: return mixed(seed, {alternative(seed, 500)}, static_cast<int>(number));
  }
  return {};
}

const MailSet& mails(Kind kind, int count, std::int64_t number) {
  static std::map<std::pair<Kind, std::int64_t>, MailSet> sets;
  MailSet& set = sets[{kind, number}];
  if (!set.files.empty()) return set;
  const fs::path place = folder() / (std::to_string(kind) + "-" + std::to_string(number));
  fs::create_directories(place);
  for (int i = 0; i < count; ++i) {
    const std::string mail = mail_of(kind, number, static_cast<unsigned>(i));
    set.files.push_back(place / (std::to_string(i) + ".eml"));
    std::ofstream(set.files.back(), std::ios::binary) << mail;
    set.bytes += static_cast<std::int64_t>(mail.size());
  }
  return set;
}

// --- Programs: each hands all that it decoded to `take`, texts as UTF-8 ------------------------------------------------

struct Count {
  std::size_t bytes = 0;
  void text(std::string_view content) { bytes += content.size(); }
  void ansi_text(std::string_view content) { bytes += content.size(); }
  void file(std::string_view content) { bytes += content.size(); }
};

// Keeps what it gets. Whether a text ends its lines with CRLF or LF, and its last one at all, is each program's own affair.
struct Keep {
  std::vector<std::string> texts, files;
  void text(std::string_view content) {
    texts.emplace_back(yinet::trimmed(content));
    std::erase(texts.back(), '\r');
  }
  void ansi_text(std::string_view content) { text(yinet::utf8_from_ansi(content)); }
  void file(std::string_view content) { files.emplace_back(content); }
};

struct Yinet {
  static constexpr bool kDecodesHeaders = true;
  template <typename Taker>
  static void decode(const std::string& file, Taker& take) {
    YObject mail;
    YMIMEMessage(YString(), 0, 1 << 20, 0).Decode(YString(file), &mail, 0);
    take.ansi_text(mail.GetString("BETREFF"));
    take.ansi_text(*mail.Find<YString>("NACHRICHT"));
    const YString attachments = mail.GetString("ANLAGEN");
    for (const std::string_view name : attachments.Items()) {
      const std::string_view content = mail.Find<YBuffer>(name)->view();
      if (name == "Nachricht.htm") take.ansi_text(content);
      else take.file(content);
    }
  }
};

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, Unref>;

template <bool kFiles>
struct GMime {
  static constexpr bool kDecodesHeaders = true;
  template <typename Taker>
  static void decode(const std::string& file, Taker& take) {
    const Owned<GMimeStream> stream(
        g_mime_stream_mmap_new(open(file.c_str(), O_RDONLY | O_CLOEXEC), PROT_READ, MAP_PRIVATE));
    const Owned<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
    const Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
    take.text(g_mime_message_get_subject(message.get()));
    benchmark::DoNotOptimize(g_mime_message_get_from(message.get()));
    benchmark::DoNotOptimize(g_mime_message_get_to(message.get()));
    benchmark::DoNotOptimize(g_mime_message_get_date(message.get()));
    g_mime_message_foreach(
        message.get(),
        [](GMimeObject*, GMimeObject* part, gpointer taker) { take_part<Taker>(part, *static_cast<Taker*>(taker)); },
        &take);
  }

 private:
  template <typename Taker>
  static void take_part(GMimeObject* object, Taker& take) {
    if (GMIME_IS_TEXT_PART(object)) {
      char* const text = g_mime_text_part_get_text(GMIME_TEXT_PART(object));
      take.text(text);
      g_free(text);
    } else if (GMIME_IS_PART(object)) {
      GMimeDataWrapper* const content = g_mime_part_get_content(GMIME_PART(object));
      const Owned<GMimeStream> memory(g_mime_stream_mem_new());
      if constexpr (kFiles) {
        const std::string file = folder() / "attachment";
        const Owned<GMimeStream> out(g_mime_stream_fs_open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600, nullptr));
        g_mime_data_wrapper_write_to_stream(content, out.get());
        g_mime_stream_reset(out.get());
        g_mime_stream_write_to_stream(out.get(), memory.get());
        unlink(file.c_str());
      } else {
        g_mime_data_wrapper_write_to_stream(content, memory.get());
      }
      const GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()));
      take.file({reinterpret_cast<const char*>(bytes->data), bytes->len});
    }
  }
};

struct Mimetic {
  static constexpr bool kDecodesHeaders = false;
  template <typename Taker>
  static void decode(const std::string& file, Taker& take) {
    mimetic::File mail(file);
    const mimetic::MimeEntity message(mail.begin(), mail.end());
    take_part(message, take);
  }

 private:
  template <typename Taker>
  static void take_part(const mimetic::MimeEntity& part, Taker& take) {
    for (const mimetic::MimeEntity* child : part.body().parts()) take_part(*child, take);
    if (!part.body().parts().empty()) return;
    const mimetic::istring& encoding = part.header().contentTransferEncoding().mechanism();
    std::string content;
    if (encoding == "base64") {
      mimetic::Base64::Decoder decoder;
      mimetic::decode(part.body().begin(), part.body().end(), decoder, std::back_inserter(content));
    } else {
      mimetic::QP::Decoder decoder;
      mimetic::decode(part.body().begin(), part.body().end(), decoder, std::back_inserter(content));
    }
    if (part.header().contentType().type() == "text") take.text(content);
    else take.file(content);
  }
};

template <typename Program>
Keep decoded_by(const std::string& file) {
  Keep keep;
  Program::decode(file, keep);
  if (!Program::kDecodesHeaders) keep.texts.insert(keep.texts.begin(), std::string());
  return keep;
}

template <typename Program>
bool agrees(const std::string& file) {
  const Keep mine = decoded_by<Yinet>(file);
  Keep other = decoded_by<Program>(file);
  if (!Program::kDecodesHeaders) other.texts[0] = mine.texts[0];
  return mine.texts == other.texts && mine.files == other.files && !mine.texts[0].empty();
}

template <typename Program>
void decode_set(benchmark::State& state, Kind kind, int count) {
  const MailSet& set = mails(kind, count, state.range(0));
  if (!std::ranges::all_of(set.files | std::views::take(20), agrees<Program>)) {
    state.SkipWithError("the programs did not decode the same");
    return;
  }
  std::size_t before = 0;
  for (auto _ : state) {
    state.PauseTiming();
    yinet::test::reset_peak_memory();
    before = yinet::test::memory_kib("VmRSS:");
    state.ResumeTiming();
    Count sum;
    for (const std::string& file : set.files) Program::decode(file, sum);
    benchmark::DoNotOptimize(sum.bytes);
  }
  const auto grown = static_cast<double>(yinet::test::memory_kib("VmHWM:") - before) * 1024;
  state.counters["ratio"] = grown / (static_cast<double>(set.bytes) / static_cast<double>(set.files.size()));
  state.SetBytesProcessed(state.iterations() * set.bytes);
}

void yinet_decodes(benchmark::State& state, Kind kind, int count) { decode_set<Yinet>(state, kind, count); }
void gmime_decodes(benchmark::State& state, Kind kind, int count) { decode_set<GMime<false>>(state, kind, count); }
void gmime_with_files_decodes(benchmark::State& state, Kind kind, int count) {
  decode_set<GMime<true>>(state, kind, count);
}
void mimetic_decodes(benchmark::State& state, Kind kind, int count) { decode_set<Mimetic>(state, kind, count); }

#define YINET_COMPARE(program)                                                                       \
  BENCHMARK_CAPTURE(program, small, kSmall, 10000)->Arg(0)->Unit(benchmark::kMillisecond);           \
  BENCHMARK_CAPTURE(program, attachments, kAttachments, 200)->Arg(0)->Unit(benchmark::kMillisecond); \
  BENCHMARK_CAPTURE(program, large, kLarge, 1)->Arg(0)->Unit(benchmark::kMillisecond)

YINET_COMPARE(yinet_decodes);
YINET_COMPARE(gmime_decodes);
YINET_COMPARE(gmime_with_files_decodes);
YINET_COMPARE(mimetic_decodes);

// Cost per byte at sizes that grow.
BENCHMARK_CAPTURE(yinet_decodes, size, kSize, 1)
    ->RangeMultiplier(10)
    ->Range(10'000, 100'000'000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(yinet_decodes, parts, kParts, 1)
    ->RangeMultiplier(10)
    ->Range(10, 10'000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(yinet_decodes, header_lines, kHeaderLines, 1)
    ->RangeMultiplier(10)
    ->Range(10, 100'000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  g_mime_init();
  yinet::set_temporary_folder(folder().string());
  fs::create_directories(folder());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  fs::remove_all(folder());
  g_mime_shutdown();
  return 0;
}
