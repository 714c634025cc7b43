// Composing mails, beside GMime in the same run: a German text, its HTML twin and attachments from the disk (a temporary
// folder, best on tmpfs). Bytes per second count the mail as it leaves.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gmime/gmime.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench_data.h"
#include "yinet/host/text.h"
#include "yinet/mime/fold_lines.h"
#include "yinet/mime/quoted_printable.h"
#include "yinet/mime/ymime_message.h"

namespace {

constexpr std::size_t kTextBytes = 4000;
constexpr std::size_t kHtmlBytes = 6000;

using yinet::bench::german_text;

// The input of all programs: files in a folder of this process.
class Input {
 public:
  Input(std::size_t attachment_bytes, int attachments)
      : text(german_text(kTextBytes, "\r\n")),
        html("<html><body><p>" + german_text(kHtmlBytes, "<br>\r\n") + "</p></body></html>") {
    std::filesystem::create_directories(folder_);
    html_file = folder_ / "Nachricht.htm";
    std::ofstream(html_file, std::ios::binary) << html;
    const std::string bytes = yinet::bench::random_bytes(attachment_bytes);
    for (int i = 0; i < attachments; ++i) {
      files.push_back(folder_ / ("anlage" + std::to_string(i) + ".bin"));
      std::ofstream(files.back(), std::ios::binary) << bytes;
    }
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input() { std::filesystem::remove_all(folder_); }

  std::string text;
  std::string html;
  std::filesystem::path html_file;
  std::vector<std::filesystem::path> files;

 private:
  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("yinet-compose-bench-" + std::to_string(getpid()));
};

// Header and body as a sender takes them.
struct Composed {
  YString header;
  YString body;
  [[nodiscard]] std::size_t size() const { return header.str().size() + body.str().size(); }
  [[nodiscard]] std::string text() const { return header.str() + body.str(); }
};

Composed composed_by_yinet(const Input& input) {
  YObject mail;
  mail.StoreText("ABSENDER", "eva@example.org");
  mail.StoreText("EMPF\xC4NGER", "max@example.org");
  mail.StoreText("BETREFF", "Angebot M\xE4rz");
  mail.StoreText("NACHRICHT", input.text);
  std::string list = input.html_file.string();
  for (const auto& file : input.files) list += "|" + file.string();
  mail.StoreText("ANLAGEN", list);
  YMIMEMessage message(YString(), 0, 10240, 0);
  message.CreateMessage(&mail);
  return {message.GetHeader(), message.GetBody()};
}

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, Unref>;

Owned<GMimePart> text_part(const char* subtype, const std::string& text, GMimeContentEncoding encoding) {
  Owned<GMimePart> part(g_mime_part_new_with_type("text", subtype));
  g_mime_object_set_content_type_parameter(GMIME_OBJECT(part.get()), "charset", "iso-8859-1");
  const Owned<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(text.data(), text.size()));
  const Owned<GMimeDataWrapper> content(
      g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
  g_mime_part_set_content(part.get(), content.get());
  g_mime_part_set_content_encoding(part.get(), encoding);
  return part;
}

struct GMimeComposed {
  Owned<GMimeStream> stream;
  [[nodiscard]] const GByteArray* bytes() const {
    return g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream.get()));
  }
  [[nodiscard]] std::size_t size() const { return bytes()->len; }
  [[nodiscard]] std::string text() const { return {reinterpret_cast<const char*>(bytes()->data), bytes()->len}; }
};

GMimeComposed composed_by_gmime(const Input& input) {
  const Owned<GMimeMessage> message(g_mime_message_new(TRUE));
  g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_FROM, nullptr, "eva@example.org");
  g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_TO, nullptr, "max@example.org");
  g_mime_message_set_subject(message.get(), "Angebot M\xC3\xA4rz", "iso-8859-1");
  const Owned<GMimeMultipart> mixed(g_mime_multipart_new_with_subtype("mixed"));
  const Owned<GMimeMultipart> alternative(g_mime_multipart_new_with_subtype("alternative"));
  const auto plain = text_part("plain", input.text, GMIME_CONTENT_ENCODING_8BIT);
  const auto html = text_part("html", input.html, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  g_mime_multipart_add(alternative.get(), GMIME_OBJECT(plain.get()));
  g_mime_multipart_add(alternative.get(), GMIME_OBJECT(html.get()));
  g_mime_multipart_add(mixed.get(), GMIME_OBJECT(alternative.get()));
  for (const auto& file : input.files) {
    const Owned<GMimePart> part(g_mime_part_new_with_type("application", "octet-stream"));
    const Owned<GMimeStream> stream(g_mime_stream_fs_open(file.c_str(), O_RDONLY, 0, nullptr));
    const Owned<GMimeDataWrapper> content(
        g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    g_mime_part_set_content(part.get(), content.get());
    g_mime_part_set_content_encoding(part.get(), GMIME_CONTENT_ENCODING_BASE64);
    g_mime_part_set_filename(part.get(), file.filename().c_str());
    g_mime_multipart_add(mixed.get(), GMIME_OBJECT(part.get()));
  }
  g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(mixed.get()));
  GMimeComposed composed{Owned<GMimeStream>(g_mime_stream_mem_new())};
  g_mime_object_write_to_stream(GMIME_OBJECT(message.get()), nullptr, composed.stream.get());
  return composed;
}

// Folding and line ends are each program's own affair.
std::string with_single_blanks(std::string_view text) {
  std::string out;
  for (const char c : text)
    if (!yinet::is_blank(c)) out += c;
    else if (!out.ends_with(' ')) out += ' ';
  return std::string(yinet::trimmed(out));
}

// The decoded leaves of a mail, to prove that both programs sent the same.
std::vector<std::string> leaves(const std::string& mail) {
  std::vector<std::string> found;
  const Owned<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(mail.data(), mail.size()));
  const Owned<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  const Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
  g_mime_message_foreach(
      message.get(),
      [](GMimeObject*, GMimeObject* object, gpointer target) {
        if (!GMIME_IS_PART(object)) return;
        const Owned<GMimeStream> content(g_mime_stream_mem_new());
        g_mime_data_wrapper_write_to_stream(g_mime_part_get_content(GMIME_PART(object)), content.get());
        const GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(content.get()));
        const std::string text(reinterpret_cast<const char*>(bytes->data), bytes->len);
        static_cast<std::vector<std::string>*>(target)->push_back(GMIME_IS_TEXT_PART(object) ? with_single_blanks(text)
                                                                                             : text);
      },
      &found);
  std::ranges::sort(found);
  return found;
}

template <typename Composer>
void Compose(benchmark::State& state, Composer compose) {
  const Input input(static_cast<std::size_t>(state.range(0)), static_cast<int>(state.range(1)));
  if (leaves(composed_by_yinet(input).text()) != leaves(composed_by_gmime(input).text())) {
    state.SkipWithError("the two programs did not send the same");
    return;
  }
  std::size_t bytes = 0;
  for (auto _ : state) {
    const auto mail = compose(input);
    bytes += mail.size();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"bytes", "files"})->Unit(benchmark::kMicrosecond)->UseRealTime();
  bench->Args({1 << 20, 1})->Args({10'000, 1})->Args({100'000, 1})->Args({10'000'000, 1})->Args({100'000'000, 1});
  bench->Args({10'000, 10})->Args({10'000, 1000});
}

BENCHMARK_CAPTURE(Compose, yinet, composed_by_yinet)->Apply(sizes);
BENCHMARK_CAPTURE(Compose, gmime, composed_by_gmime)->Apply(sizes);

void FoldText(benchmark::State& state) {
  const std::string text = german_text(static_cast<std::size_t>(state.range(0)), state.range(1) ? "\r\n" : "");
  for (auto _ : state) benchmark::DoNotOptimize(yinet::fold_lines(text));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(FoldText)
    ->ArgNames({"bytes", "lines"})
    ->Args({10'000, 1})
    ->Args({10'000, 0})
    ->Args({10'000'000, 1})
    ->Args({10'000'000, 0});

void QuotedPrintable(benchmark::State& state, std::string (*convert)(std::string_view)) {
  const std::string text = yinet::quoted_printable_encoded(german_text(1'000'000, "\r\n"));
  for (auto _ : state) benchmark::DoNotOptimize(convert(text));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK_CAPTURE(QuotedPrintable, encode, yinet::quoted_printable_encoded);
BENCHMARK_CAPTURE(QuotedPrintable, decode, yinet::quoted_printable_decoded);

}  // namespace

int main(int argc, char** argv) {
  g_mime_init();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  g_mime_shutdown();
  return 0;
}
