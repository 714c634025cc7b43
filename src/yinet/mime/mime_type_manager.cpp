#include <algorithm>
#include <array>
#include <new>

#include "yinet/mime/ymime_message.h"

namespace {

struct StandardAgents {
  TextPlain plain{kMimeTextPlain};
  TextHTML html{kMimeTextHtml};
  TextCalendar calendar;
  YAppOctetStream octet_stream{kMimeOctetStream};

  [[nodiscard]] std::array<YMIMEContentAgent*, 4> in_order() { return {&plain, &html, &calendar, &octet_stream}; }
};

// One set for all messages: agents have no state. Nothing to destroy, so they outlive every registry.
StandardAgents& standard_agents() {
  static StandardAgents agents;
  return agents;
}

}  // namespace

YMIMEMessage::CMIMETypeManager::CMIMETypeManager(const CMIMETypeManager& other) { *this = other; }

YMIMEMessage::CMIMETypeManager& YMIMEMessage::CMIMETypeManager::operator=(const CMIMETypeManager& other) {
  if (this == &other) return *this;
  const std::scoped_lock lock(guard_, other.guard_);
  agents_ = other.agents_;
  has_standard_agents_ = other.has_standard_agents_;
  last_.store(other.last_.load());
  return *this;
}

void YMIMEMessage::CMIMETypeManager::RegisterMIMEType(YMIMEContentAgent* agent) {
  if (agent == nullptr) return;
  append(std::shared_ptr<YMIMEContentAgent>(
      agent, [](YMIMEContentAgent* plain_memory) { ::operator delete(dynamic_cast<void*>(plain_memory)); }));
}

YMIMEContentAgent* YMIMEMessage::CMIMETypeManager::GetHandler(int code) const {
  const std::lock_guard lock(guard_);
  const auto found = std::ranges::find_if(agents_, [code](const auto& agent) { return agent->HasTypeCode(code); });
  return found != agents_.end() ? found->get() : last_.load();
}

void YMIMEMessage::CMIMETypeManager::RegisterStandardAgents() {
  StandardAgents& standard = standard_agents();
  // Nearly every message finds this done by the one before.
  if (last_.load(std::memory_order_acquire) == &standard.octet_stream) return;
  const std::lock_guard lock(guard_);
  if (!has_standard_agents_) {
    agents_.reserve(agents_.size() + standard.in_order().size());
    for (YMIMEContentAgent* const agent : standard.in_order())
      agents_.emplace_back(std::shared_ptr<void>(), agent);  // shared, not owned
    has_standard_agents_ = true;
  }
  last_.store(&standard.octet_stream, std::memory_order_release);
}

int YMIMEMessage::CMIMETypeManager::Count() const {
  const std::lock_guard lock(guard_);
  return static_cast<int>(agents_.size());
}

void YMIMEMessage::CMIMETypeManager::append(std::shared_ptr<YMIMEContentAgent> agent) {
  const std::lock_guard lock(guard_);
  YMIMEContentAgent* const registered = agents_.emplace_back(std::move(agent)).get();
  last_.store(registered, std::memory_order_release);
}
