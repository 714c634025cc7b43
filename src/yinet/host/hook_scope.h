#pragma once

namespace yinet {

// While it lives, a hook of the host runs on this thread: what the hook asks the library for must not call it again.
// `running` is the thread's own mark for that hook.
class HookScope {
 public:
  explicit HookScope(bool& running) noexcept : running_(running) { running_ = true; }
  ~HookScope() { running_ = false; }
  HookScope(const HookScope&) = delete;
  HookScope& operator=(const HookScope&) = delete;

 private:
  bool& running_;
};

}  // namespace yinet
