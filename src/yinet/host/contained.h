#pragma once

#include <utility>

namespace yinet {

// Runs the body of an exported function that could run out of memory: nothing is thrown to the caller, who gets
// `failure` instead.
template <typename Result, typename Work>
Result contained(Result failure, Work&& work) noexcept {
  try {
    return std::forward<Work>(work)();
  } catch (...) {
    return failure;
  }
}

}  // namespace yinet
