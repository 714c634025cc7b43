// Cost per item of records, item lists and placeholders at sizes that grow ten thousandfold: it must stay flat.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

namespace {

std::vector<std::string> make_keys(std::int64_t count) {
  std::vector<std::string> keys;
  for (std::int64_t i = 0; i < count; ++i) keys.push_back("Kopfzeile-" + std::to_string(i));
  return keys;
}

void count_items(benchmark::State& state, const char* unit) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.counters[unit] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                                            benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void FillRecord(benchmark::State& state) {
  const auto keys = make_keys(state.range(0));
  for (auto _ : state) {
    YObject record;
    for (const auto& key : keys) record.StoreText(key, "wert");
    benchmark::DoNotOptimize(record.GetStringKeyCount());
  }
  count_items(state, "per_key");
}

void FindInRecord(benchmark::State& state) {
  auto keys = make_keys(state.range(0));
  YObject record;
  for (const auto& key : keys) record.StoreText(key, "wert");
  for (auto& key : keys) key = yinet::to_upper(key);
  for (auto _ : state) {
    for (const auto& key : keys) benchmark::DoNotOptimize(record.Find<YString>(key));
  }
  count_items(state, "per_key");
}

void WalkAndEmptyRecord(benchmark::State& state) {
  const auto keys = make_keys(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    YObject record;
    for (const auto& key : keys) record.StoreText(key, "wert");
    state.ResumeTiming();
    for (int i = 0; i < record.GetStringKeyCount(); ++i) record.Delete(record.GetStringKey(i));  // every other one
    while (record.GetStringKeyCount() > 0) record.Delete(record.GetStringKey(0));
  }
  count_items(state, "per_key");
}

void BuildItemList(benchmark::State& state) {
  for (auto _ : state) {
    YString list;
    for (std::int64_t i = 0; i < state.range(0); ++i) list.AddItem("anlage.pdf");
    benchmark::DoNotOptimize(list.Length());
  }
  count_items(state, "per_item");
}

void WalkItemList(benchmark::State& state) {
  YString list;
  for (std::int64_t i = 0; i < state.range(0); ++i) list.AddItem("anlage.pdf");
  for (auto _ : state) {
    std::size_t total = 0;
    for (const auto item : list.Items()) total += item.size();
    benchmark::DoNotOptimize(total);
  }
  count_items(state, "per_item");
}

void FillPlaceholders(benchmark::State& state) {
  std::string text;
  for (std::int64_t i = 0; i < state.range(0); ++i) text += "Feld $1$ hat $2:04$ ";
  for (auto _ : state) benchmark::DoNotOptimize(yinet::formatted(text, std::string("Name"), std::string("17")));
  count_items(state, "per_item");
}

}  // namespace

#define YINET_SIZES RangeMultiplier(100)->Range(100, 1000000)
BENCHMARK(FillRecord)->YINET_SIZES;
BENCHMARK(FindInRecord)->YINET_SIZES;
BENCHMARK(WalkAndEmptyRecord)->YINET_SIZES;
BENCHMARK(BuildItemList)->YINET_SIZES;
BENCHMARK(WalkItemList)->YINET_SIZES;
BENCHMARK(FillPlaceholders)->YINET_SIZES;
