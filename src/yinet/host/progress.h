#pragma once

#include <cstdint>
#include <functional>

namespace yinet {

// Bytes of the running transfer that went through so far, and all of them (-1 when that is not known). Called on the
// transferring thread, many times; it must not throw.
using ProgressReport = std::function<void(std::int64_t done, std::int64_t total)>;

}  // namespace yinet
