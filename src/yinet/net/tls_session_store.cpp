#include "yinet/net/tls_session_store.h"

#include <algorithm>
#include <cstdint>

#include "yinet/host/setting_table.h"
#include "yinet/net/tls_session.h"

namespace yinet {

TlsSessionStore& TlsSessionStore::shared() {
  // Never destroyed: a connection may still be closed while the process ends.
  static auto* const store = new TlsSessionStore;
  return *store;
}

SslSessionHandle TlsSessionStore::take(std::string_view key) {
  const std::lock_guard lock(mutex_);
  return take_locked(key);
}

SslSessionHandle TlsSessionStore::take_locked(std::string_view key) {
  const auto found = std::ranges::find(sessions_, key, &decltype(sessions_)::value_type::first);
  if (found == sessions_.end()) return nullptr;
  SslSessionHandle session = std::move(found->second);
  sessions_.erase(found);
  return session;
}

void TlsSessionStore::keep(std::string_view key, SSL* connection) {
  const std::int64_t most = setting_number(settings::kTlsSessionsKept);
  SslSessionHandle session = most > 0 ? resumable_session(connection) : nullptr;
  if (!session) return;
  const std::lock_guard lock(mutex_);
  take_locked(key);
  if (std::ssize(sessions_) >= most) sessions_.erase(sessions_.begin(), sessions_.end() - (most - 1));
  sessions_.emplace_back(key, std::move(session));
}

}  // namespace yinet
