#pragma once

// Internal: how a record finds its entries, by key and by position. For yobject.cpp.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "yinet/host/text.h"

namespace yinet {

// Finds nodes by their `key`. Open addressing with the hash beside each pointer, so that neither growing nor walking
// over neighbours touches the nodes themselves: that keeps look-ups flat up to millions of keys.
template <typename Node>
class KeyIndex {
 public:
  [[nodiscard]] bool empty() const { return count_ == 0; }

  [[nodiscard]] Node* find(std::uint64_t hash, std::string_view key) const {
    for (std::size_t at = home(hash); slots_[at].node != nullptr; at = next(at)) {
      if (slots_[at].hash == hash && equal_ignoring_case(slots_[at].node->key, key)) return slots_[at].node;
    }
    return nullptr;
  }

  void add(std::uint64_t hash, Node* node) {
    if ((count_ + 1) * 4 > slots_.size() * 3) grow();
    place(hash, node);
    ++count_;
  }

  void remove(std::uint64_t hash, const Node* node) {
    std::size_t hole = home(hash);
    while (slots_[hole].node != node) hole = next(hole);
    // Entries behind the hole move back unless they would land before their home.
    for (std::size_t at = next(hole); slots_[at].node != nullptr; at = next(at)) {
      const std::size_t from_home = (at - home(slots_[at].hash)) & mask();
      if (from_home < ((at - hole) & mask())) continue;
      slots_[hole] = slots_[at];
      hole = at;
    }
    slots_[hole].node = nullptr;
    --count_;
  }

 private:
  struct Slot {
    std::uint64_t hash = 0;
    Node* node = nullptr;
  };

  [[nodiscard]] std::size_t mask() const { return slots_.size() - 1; }
  [[nodiscard]] std::size_t home(std::uint64_t hash) const { return static_cast<std::size_t>(hash) & mask(); }
  [[nodiscard]] std::size_t next(std::size_t at) const { return (at + 1) & mask(); }

  void place(std::uint64_t hash, Node* node) {
    std::size_t at = home(hash);
    while (slots_[at].node != nullptr) at = next(at);
    slots_[at] = {hash, node};
  }

  void grow() {
    std::vector<Slot> old(std::max<std::size_t>(32, slots_.size() * 2));
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.node != nullptr) place(slot.hash, slot.node);
    }
  }

  std::vector<Slot> slots_;  // a power of two
  std::size_t count_ = 0;
};

// Tells which slot holds the n-th entry where deleted entries have left holes between the others: a Fenwick tree over
// the slots. Every operation but fill takes a step for each time that their number can be halved.
class SlotRanks {
 public:
  [[nodiscard]] bool empty() const { return sums_.empty(); }
  // `count` slots, each with an entry.
  void fill(std::size_t count) {
    sums_.resize(count + 1);
    for (std::size_t i = 1; i <= count; ++i) sums_[i] = span(i);
  }
  // One slot more, with an entry.
  void append() {
    const std::size_t at = sums_.size();
    std::size_t sum = 1;
    for (std::size_t back = 1; back < span(at); back *= 2) sum += sums_[at - back];
    sums_.push_back(sum);
  }
  // The slot's entry goes.
  void remove(std::size_t slot) {
    for (std::size_t i = slot + 1; i < sums_.size(); i += span(i)) --sums_[i];
  }
  // Forgets the slots behind the first `count`.
  void cut(std::size_t count) { sums_.resize(count + 1); }

  // The slot of the entry with `rank` others before it; there must be one.
  [[nodiscard]] std::size_t slot_of(std::size_t rank) const {
    std::size_t slot = 0;
    for (std::size_t step = std::bit_floor(sums_.size() - 1); step > 0; step /= 2) {
      if (slot + step >= sums_.size() || sums_[slot + step] > rank) continue;
      slot += step;
      rank -= sums_[slot];
    }
    return slot;
  }

 private:
  // How many slots the sum at `i` spans: those up to slot i - 1.
  static std::size_t span(std::size_t i) { return i & (~i + 1); }

  std::vector<std::size_t> sums_;  // of entries; [0] is not used
};

}  // namespace yinet
