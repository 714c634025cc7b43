// Behind ScriptedEnd: what its threads and the test's share. Internal to the scripted peers.
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "support/scripted_peer.h"

namespace yinet::test {

// Guarded by the mutex of its run.
struct ConnectionRecord {
  std::string received;
  std::string transcript;
  std::string failure;
  TlsInfo tls;
  Ending client_ending = Ending::none;
};

struct ScriptRun {
  void start(FileDescriptor connected, const ConnectionScript& script);  // in a thread of its own
  void accept_from(FileDescriptor listener, const std::function<ConnectionScript(std::size_t)>& choice);
  void finish();
  std::string failures();

  mutable std::mutex mutex;
  std::deque<ConnectionRecord> records;  // guarded by the mutex; their addresses stay
  Signal finishing;                      // the test wants to go on
  std::string name;
  std::size_t needed = 0;
  std::size_t unexpected = 0;  // of the accepting thread; read after its end
  std::thread acceptor;
  std::deque<std::thread> workers;  // of the accepting thread; the test's only before and after it
  bool finished = false;
};

}  // namespace yinet::test
