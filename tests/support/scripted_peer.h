// Peers whose every byte a test writes down: what they expect, what they send, in which pieces, and how
// they end. For what real servers will not do.
//
//   ScriptedPeer peer(Script().read_until("\r\n\r\n").send("HTTP/1.1 200 OK\r\n\r\n").reset());
//   ... a client talks to peer.port() ...
//   EXPECT_EQ(peer.received(), "GET / HTTP/1.1\r\n...");
//
// A script that can't be followed (other bytes than expected, a client that closes too early, silence
// where bytes should come) becomes a failure of the running test, with a transcript of the connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/deadline.h"
#include "support/file_descriptor.h"
#include "support/tls_context.h"

namespace yinet::test {

// How the other side has ended the connection, as far as was read.
enum class Ending { none, closed, closed_without_notify, reset };

struct ConnectionRecord;  // what the test may look at
struct ScriptRun;         // the threads and records of one peer

// One connection, as a script sees it. No step waits longer than kStepPatience for the client, or kGrace once the test
// finishes the peer; a step that fails throws, which ends the script and is reported. "The client" is the other side.
// Used by the script's own thread only.
class Connection {
 public:
  static constexpr milliseconds kStepPatience{20000};
  static constexpr milliseconds kGrace{5000};

  Connection(ScriptRun& run, ConnectionRecord& record, FileDescriptor socket, std::size_t index);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  void run(const std::function<void(Connection&)>& script);  // and the ending that it leaves open; never throws

  [[nodiscard]] std::size_t index() const { return index_; }  // 0 for the first connection of its peer

  // --- receiving: bytes that came beyond what a step needs stay for the next one ---
  void expect(std::string_view bytes);                 // exactly these; fails at the first other byte
  std::string read_until(std::string_view delimiter);  // up to the delimiter and with it
  std::string read_line() { return read_until("\n"); }
  void skip(std::size_t count);
  std::string read_to_end();  // the rest, until the client ends its side, however it does that
  void expect_end();          // no further byte, and an end in order: with TLS a close_notify first

  // --- sending ---
  void send(std::string_view bytes);
  void send_pieces(const std::vector<std::string>& pieces, milliseconds pause = milliseconds(5));
  void send_slowly(std::string_view bytes, milliseconds pause = milliseconds(1));  // byte by byte
  // Sends `bytes` over and over until the client closes, the test finishes the peer or `most` bytes are out.
  void flood(std::string_view bytes, std::size_t most);

  // --- waiting ---
  void pause(milliseconds time);      // cut short when the test finishes the peer
  void wait_for(const Signal& gate);  // until the test sets it
  // Neither sends nor reads until the client closes or the test finishes the peer: a client that sends
  // much will get stuck.
  void stay_silent();

  // --- TLS; the context says whether the script's side is the server or the client ---
  void start_tls(const TlsContext& context);
  bool try_tls(const TlsContext& context);  // false, and no failure, when the handshake fails

  // --- ending; a script that has none of these ends with close() ---
  void close();                 // TLS: close_notify; end of sending; reads on until the client ends too
  void close_without_notify();  // the same without close_notify
  void half_close();            // end of sending (with close_notify), the script goes on reading
  void reset();                 // RST, whatever is still under way is lost

 private:
  void begin(std::string step);
  [[noreturn]] void fail(const std::string& reason) const;
  void note(const std::string& event);

  short wait(short events, const char* for_what, bool insist = true);
  void pump();
  void take(std::string_view from_wire);
  void store(std::string_view bytes);
  void end_input(Ending ending);
  bool more();
  void need_more();
  bool push(std::string_view bytes, bool insist = true);
  bool push_wire(std::string_view bytes, bool insist);
  void end_sending();
  void drain();

  ScriptRun& run_;
  ConnectionRecord& record_;
  FileDescriptor socket_;
  const std::size_t index_;
  TlsSession tls_;
  bool tls_up_ = false;
  std::string tls_error_;
  std::string inbox_;   // application bytes that no step has asked for yet
  bool ended_ = false;  // nothing more can come from the client
  bool gone_ = false;   // and the wire has ended as well
  bool sending_ended_ = false;
  std::string step_;
};

using ConnectionScript = std::function<void(Connection&)>;

// A list of steps, each with the meaning of the Connection function of its name. Can be called again
// and again; copies are independent.
class Script {
 public:
  Script& then(ConnectionScript step) {
    steps_.push_back(std::move(step));
    return *this;
  }
  void operator()(Connection& connection) const {
    for (const ConnectionScript& step : steps_) step(connection);
  }

  Script& expect(std::string bytes) { return add(&Connection::expect, std::move(bytes)); }
  Script& read_until(std::string delimiter) { return add(&Connection::read_until, std::move(delimiter)); }
  Script& skip(std::size_t count) { return add(&Connection::skip, count); }
  Script& read_to_end() { return add(&Connection::read_to_end); }
  Script& expect_end() { return add(&Connection::expect_end); }
  Script& send(std::string bytes) { return add(&Connection::send, std::move(bytes)); }
  Script& send_pieces(std::vector<std::string> pieces, milliseconds pause = milliseconds(5)) {
    return add(&Connection::send_pieces, std::move(pieces), pause);
  }
  Script& send_slowly(std::string bytes, milliseconds pause = milliseconds(1)) {
    return add(&Connection::send_slowly, std::move(bytes), pause);
  }
  Script& flood(std::string bytes, std::size_t most) { return add(&Connection::flood, std::move(bytes), most); }
  Script& pause(milliseconds time) { return add(&Connection::pause, time); }
  Script& wait_for(const Signal& gate) { return add(&Connection::wait_for, std::cref(gate)); }  // outlives the peer
  Script& stay_silent() { return add(&Connection::stay_silent); }
  Script& start_tls(TlsContext context = TlsContext::server()) {
    return add(&Connection::start_tls, std::move(context));
  }
  Script& close() { return add(&Connection::close); }
  Script& close_without_notify() { return add(&Connection::close_without_notify); }
  Script& half_close() { return add(&Connection::half_close); }
  Script& reset() { return add(&Connection::reset); }

 private:
  template <class Step, class... Given>
  Script& add(Step step, Given... given) {
    return then([=](Connection& connection) { static_cast<void>((connection.*step)(given...)); });
  }
  std::vector<ConnectionScript> steps_;
};

// What peers and clients have in common: looking at what happened, at any time and from any thread.
class ScriptedEnd {
 public:
  ScriptedEnd(const ScriptedEnd&) = delete;
  ScriptedEnd& operator=(const ScriptedEnd&) = delete;

  // Everything that connection number `index` has received so far: application bytes once TLS is up.
  // When a write was the client's last act, call finish() first.
  [[nodiscard]] std::string received(std::size_t index = 0) const;
  [[nodiscard]] TlsInfo tls(std::size_t index = 0) const;
  [[nodiscard]] Ending client_ending(std::size_t index = 0) const;

  // False when the time is over before it happens.
  [[nodiscard]] bool wait_for_received(std::string_view text, std::size_t index = 0) const;

  // Lets all scripts run to their end, ends silences, closes everything and reports what went wrong as
  // failures of the running test. The destructor does the same; a second call does nothing.
  void finish();

  // Finishes, and returns what went wrong instead of reporting it (empty: nothing).
  [[nodiscard]] std::string take_failures();

 protected:
  ScriptedEnd();
  ~ScriptedEnd();
  std::unique_ptr<ScriptRun> run_;
};

struct ScriptedPeerOptions {
  std::string address = "127.0.0.1";
  int receive_buffer = 0;  // bytes; small, for a client that shall get stuck. 0: the system's
};

// A server: a listener on a free loopback port. Connections run side by side, each in its own thread.
class ScriptedPeer : public ScriptedEnd {
 public:
  using Options = ScriptedPeerOptions;

  // Exactly one connection, or one for each script in the order of their arrival. One that never comes is reported;
  // any further one is reset and reported.
  explicit ScriptedPeer(ConnectionScript script, const Options& options = {})
      : ScriptedPeer(std::vector{std::move(script)}, options) {}
  explicit ScriptedPeer(std::vector<ConnectionScript> in_order, const Options& options = {});
  // Any number of connections, none included, with the same script.
  static ScriptedPeer for_every_connection(ConnectionScript script, const Options& options = {}) {
    return {Every(), std::move(script), options};
  }
  ~ScriptedPeer() = default;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] std::string target() const;  // "127.0.0.1:12345"
  [[nodiscard]] std::string url(std::string_view path = "/", std::string_view scheme = "http") const;
  [[nodiscard]] std::size_t connection_count() const;
  [[nodiscard]] bool wait_for_connections(std::size_t count) const;

 private:
  struct Every {};
  ScriptedPeer(Every, ConnectionScript script, const Options& options);
  void listen(const Options& options, std::function<ConnectionScript(std::size_t)> choice);
  std::uint16_t port_ = 0;
};

// A client: connects to a port of this machine and runs one script, in a thread of its own.
class ScriptedClient : public ScriptedEnd {
 public:
  ScriptedClient(std::uint16_t port, const ConnectionScript& script);
  ~ScriptedClient() = default;
};

}  // namespace yinet::test
