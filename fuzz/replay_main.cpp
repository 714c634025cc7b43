// Stands in for libFuzzer where the compiler has none: feeds each file of the given files and folders to the fuzzer,
// then simple mutations of it. The mutations are the same in every run, so a failure can be repeated.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int kMutationsPerFile = 2000;
constexpr std::size_t kMaxMutatedBytes = 64 * 1024;  // larger seeds are replayed as they are: time

using Bytes = std::vector<std::uint8_t>;

Bytes content_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// A block of exactly the right size, so that a sanitizer sees the first byte read behind the input.
void feed(const Bytes& input) {
  const auto block = std::make_unique<std::uint8_t[]>(input.size());
  std::copy(input.begin(), input.end(), block.get());
  LLVMFuzzerTestOneInput(block.get(), input.size());
}

std::size_t below(std::mt19937& random, std::size_t limit) { return limit == 0 ? 0 : random() % limit; }

// One change of the kinds that break parsers: another byte, a cut, a doubled or dropped piece.
void mutate(Bytes& input, std::mt19937& random) {
  static constexpr std::uint8_t kTelling[] = {0, '\t', '\n', '\r', ' ', '"', '-', '0', ':', ';', '=', '?', 0x7F, 0xFF};
  const std::size_t at = below(random, input.size());
  const std::size_t length = 1 + below(random, std::min<std::size_t>(16, input.size() - at));
  const auto position = input.begin() + static_cast<std::ptrdiff_t>(at);
  switch (random() % 6) {
    case 0:
      if (!input.empty()) *position = static_cast<std::uint8_t>(random());
      break;
    case 1:
      if (!input.empty()) *position = kTelling[below(random, std::size(kTelling))];
      break;
    case 2: input.insert(position, kTelling[below(random, std::size(kTelling))]); break;
    case 3: input.resize(at); break;
    case 4:
      if (!input.empty()) input.erase(position, position + static_cast<std::ptrdiff_t>(length));
      break;
    case 5:
      if (!input.empty()) {
        const Bytes piece(position, position + static_cast<std::ptrdiff_t>(length));
        input.insert(position, piece.begin(), piece.end());
      }
      break;
  }
}

void replay(const std::filesystem::path& path) {
  const Bytes seed = content_of(path);
  feed(seed);
  if (seed.size() > kMaxMutatedBytes) return;
  std::mt19937 random(static_cast<std::uint32_t>(seed.size()));
  for (int round = 0; round < kMutationsPerFile; ++round) {
    Bytes input = seed;
    for (std::size_t changes = 1 + below(random, 4); changes > 0; --changes) mutate(input, random);
    feed(input);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = argv[i];
    if (!std::filesystem::is_directory(path)) {
      replay(path);
      ++files;
      continue;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      if (!entry.is_regular_file()) continue;
      replay(entry.path());
      ++files;
    }
  }
  std::printf("%zu files, %d mutations of each\n", files, kMutationsPerFile);
  // A fuzzer without seeds has tested nothing.
  return files > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
