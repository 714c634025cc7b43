// Behind Connection: the socket, its TLS session, and the record that the test's thread looks at.
// Internal to the scripted peers.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "support/scripted_peer.h"

namespace yinet::test {

class ScriptFailure : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What one connection has seen. Guarded by the mutex of its runner.
struct ConnectionRecord {
  std::string received;
  std::size_t received_count = 0;
  std::string transcript;
  std::size_t transcript_lines = 0;
  std::string failure;
  TlsInfo tls;
  Ending client_ending = Ending::none;
  bool over = false;  // the descriptor is closed and the thread about to end
};

// What all connections of one peer share.
struct RunnerState {
  mutable std::mutex mutex;
  mutable std::condition_variable changed;  // some record has
  Signal finishing;                         // the test wants to go on
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

// Bytes that come in at the end and go out at the front, at constant cost per byte.
class ByteQueue {
 public:
  void push(std::string_view bytes) { bytes_.append(bytes); }
  [[nodiscard]] std::string_view view() const { return std::string_view(bytes_).substr(front_); }
  [[nodiscard]] bool empty() const { return front_ == bytes_.size(); }
  void pop(std::size_t count);
  std::string take(std::size_t count) {
    std::string bytes(view().substr(0, count));
    pop(bytes.size());
    return bytes;
  }
  std::string take_all() { return take(view().size()); }

 private:
  std::string bytes_;
  std::size_t front_ = 0;
};

struct Connection::Impl {
  Impl(RunnerState& state, ConnectionRecord& record, FileDescriptor socket, std::size_t index);

  // Runs the script and whatever ending it leaves open; never throws.
  void run(const ConnectionScript& script);

  void begin_step(std::string description);
  [[noreturn]] void fail(const std::string& reason) const;
  void note(const std::string& event);

  // Time limit of one step: begins anew with each byte, and is cut down once the peer is finished.
  class Limit {
   public:
    explicit Limit(Impl& impl) : impl_(impl), deadline_(impl.current_patience()) {}
    void restart() { deadline_ = Deadline(impl_.current_patience()); }
    void cut_down() { deadline_ = Deadline(std::min(deadline_.left(), kGrace)); }
    [[nodiscard]] const Deadline& deadline() const { return deadline_; }

   private:
    Impl& impl_;
    Deadline deadline_;
  };
  [[nodiscard]] milliseconds current_patience() const { return finishing_seen ? std::min(patience, kGrace) : patience; }

  // Changes the record and wakes who waits for that.
  template <class Change>
  void change(Change change_record) {
    {
      const std::lock_guard lock(state.mutex);
      change_record();
    }
    state.changed.notify_all();
  }

  // Waits until the socket has one of `events` and returns what happened on it; fails the step when the limit is over.
  short wait(short events, Limit& limit, const char* what_for);
  [[nodiscard]] bool finishing(milliseconds patience) const;  // waits up to `patience` for it

  bool need_input(Limit& limit);     // more bytes in the inbox; false when the client has ended its side
  void require_input(Limit& limit);  // fails then
  void pump();                       // takes what the socket has, without waiting
  void take_from_wire(std::string_view bytes);
  void wire_ended(Ending ending);
  void store(std::string_view bytes);

  void queue(std::string_view bytes);  // application bytes, through TLS when it is up
  void flush(Limit& limit);            // until the outbox is empty
  bool try_flush();                    // as far as it goes without waiting; false when the client is gone
  bool run_handshake(const TlsContext& context);
  void start_session(const TlsContext& context);

  void end_sending();
  void drain();  // reads until the client ends or the test finishes the peer
  void close_descriptor();

  RunnerState& state;
  ConnectionRecord& record;
  FileDescriptor socket;
  const std::size_t index;
  milliseconds patience = kStepPatience;
  std::optional<TlsSession> tls;
  bool tls_up = false;
  ByteQueue inbox;     // application bytes that no step has asked for yet
  ByteQueue outbox;    // bytes for the wire
  bool ended = false;  // nothing more can come from the client
  bool sending_ended = false;
  bool keep_received = true;
  bool finishing_seen = false;
  int steps = 0;
  std::string step = "nothing yet";
};

}  // namespace yinet::test
