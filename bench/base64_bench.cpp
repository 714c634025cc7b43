// Base64 beside OpenSSL's block functions, on random bytes. "Lines" is the form of mails: 76 characters and CRLF, which
// OpenSSL's block decoder does not take, so its stream decoder stands beside it.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "bench_data.h"
#include "yinet/host/ybase64.h"

namespace {

using yinet::bench::in_lines;
using yinet::bench::random_bytes;

const unsigned char* octets(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }
unsigned char* octets(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

void expect(bool holds) {
  if (!holds) std::abort();  // what does not give the same bytes is not worth timing
}

// Whole groups, so that no side has to deal with padding.
std::string input(const benchmark::State& state) {
  return random_bytes(static_cast<std::size_t>(state.range(0)) / 57 * 57);
}

void finish(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * static_cast<std::int64_t>(state.iterations()));
}

void encode_yinet(benchmark::State& state) {
  const std::string bytes = input(state);
  for (auto _ : state) {
    std::string text = yinet::base64_encoded(bytes);
    benchmark::DoNotOptimize(text.data());
  }
  finish(state, bytes.size());
}

void encode_openssl(benchmark::State& state) {
  const std::string bytes = input(state);
  for (auto _ : state) {
    std::string text(bytes.size() / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(octets(text), octets(bytes), static_cast<int>(bytes.size()));
    benchmark::DoNotOptimize(text.data());
  }
  finish(state, bytes.size());
}

void decode_yinet(benchmark::State& state, bool lines) {
  const std::string bytes = input(state);
  const std::string text = lines ? in_lines(yinet::base64_encoded(bytes)) : yinet::base64_encoded(bytes);
  for (auto _ : state) {
    std::string decoded;
    expect(yinet::base64_decode(text, decoded) && decoded.size() == bytes.size());
    benchmark::DoNotOptimize(decoded.data());
  }
  finish(state, bytes.size());
}

void decode_openssl(benchmark::State& state) {
  const std::string bytes = input(state);
  const std::string text = yinet::base64_encoded(bytes);
  for (auto _ : state) {
    std::string decoded(bytes.size(), '\0');
    expect(EVP_DecodeBlock(octets(decoded), octets(text), static_cast<int>(text.size())) ==
           static_cast<int>(bytes.size()));
    benchmark::DoNotOptimize(decoded.data());
  }
  finish(state, bytes.size());
}

void decode_openssl_lines(benchmark::State& state) {
  const std::string bytes = input(state);
  const std::string text = in_lines(yinet::base64_encoded(bytes));
  const std::unique_ptr<EVP_ENCODE_CTX, void (*)(EVP_ENCODE_CTX*)> context(EVP_ENCODE_CTX_new(), EVP_ENCODE_CTX_free);
  for (auto _ : state) {
    std::string decoded(text.size(), '\0');
    int size = 0;
    EVP_DecodeInit(context.get());
    expect(EVP_DecodeUpdate(context.get(), octets(decoded), &size, octets(text), static_cast<int>(text.size())) >= 0 &&
           size == static_cast<int>(bytes.size()));
    benchmark::DoNotOptimize(decoded.data());
  }
  finish(state, bytes.size());
}

constexpr std::int64_t kSmall = 64 << 10;
constexpr std::int64_t kLarge = 16 << 20;

BENCHMARK(encode_yinet)->RangeMultiplier(16)->Range(kSmall, kLarge);
BENCHMARK(encode_openssl)->RangeMultiplier(16)->Range(kSmall, kLarge);
BENCHMARK_CAPTURE(decode_yinet, plain, false)->RangeMultiplier(16)->Range(kSmall, kLarge);
BENCHMARK(decode_openssl)->RangeMultiplier(16)->Range(kSmall, kLarge);
BENCHMARK_CAPTURE(decode_yinet, lines, true)->RangeMultiplier(16)->Range(kSmall, kLarge);
BENCHMARK(decode_openssl_lines)->RangeMultiplier(16)->Range(kSmall, kLarge);

}  // namespace
