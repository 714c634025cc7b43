// Peers whose every byte a test writes down: what they expect, what they send, in which pieces, and how they end. For what
// real servers will not do.
//   ScriptedPeer peer(Script().read_until("\r\n\r\n").send("HTTP/1.1 200 OK\r\n\r\n").reset());
// A script that can't be followed (other bytes than expected, an early end, silence) is a failure of the running test.
#pragma once

#include <deque>
#include <functional>
#include <optional>

#include "support/certificates.h"
#include "support/ports.h"

namespace yinet::test {

struct TlsInfo {
  std::string server_name;  // SNI as the client sent it, or empty
  bool session_reused = false;
};

struct ConnectionRecord {
  std::string received, failure;
  TlsInfo tls;
};

class ScriptedEnd;

// One connection, as a script sees it, in the script's own thread. No step waits longer than kStepPatience for the client
// (the other side), or kGrace once the test finishes the peer; a step that fails throws.
class Connection {
 public:
  static constexpr milliseconds kStepPatience{20000};
  static constexpr milliseconds kGrace{5000};

  Connection(ScriptedEnd& end, ConnectionRecord& record, FileDescriptor socket)
      : end_(end), record_(record), socket_(std::move(socket)) {}
  void run(const std::function<void(Connection&)>& script);  // and the ending that it leaves open; never throws

  // Bytes that came beyond what a step needs stay for the next one.
  void expect(std::string_view bytes);                 // exactly these; fails at the first other byte
  std::string read_until(std::string_view delimiter);  // up to the delimiter and with it
  std::string read_line() { return read_until("\n"); }
  void skip(std::size_t count);
  std::string read_to_end();  // the rest, until the client ends its side, however it does that
  void expect_end();          // no further byte, and an end in order: with TLS a close_notify first

  void send(std::string_view bytes);
  void send_slowly(std::string_view bytes, milliseconds pause = milliseconds(1));  // byte by byte
  // Sends `bytes` over and over until the client closes, the test finishes the peer or `most` bytes are out.
  void flood(std::string_view bytes, std::size_t most);

  void pause(milliseconds time) { look(-1, 0, time); }  // cut short when the test finishes the peer
  void wait_for(const Signal& gate);                    // until the test sets it
  void stay_silent();  // neither sends nor reads until the client closes or the test finishes the peer

  void start_tls(const TlsContext& context);  // which says whether the script's side is the server or the client

  // A script that has none of these ends with close().
  void close();                 // TLS: close_notify; end of sending; reads on until the client ends too
  void close_without_notify();  // the end of sending alone
  void half_close();            // end of sending (with close_notify), the script goes on reading
  void reset();                 // RST, whatever is still under way is lost

 private:
  [[noreturn]] void fail(const std::string& reason) const;
  short look(int descriptor, short events, milliseconds time) const;
  short wait(short events, bool insist = true);
  bool must_retry(long result, bool tls) const;
  void pump();
  bool more();
  void need_more() {
    if (!more()) fail("the client has ended, and too early");
  }
  bool push(std::string_view bytes, bool insist);

  ScriptedEnd& end_;
  ConnectionRecord& record_;
  FileDescriptor socket_;
  std::shared_ptr<ssl_st> tls_;
  bool tls_up_ = false;
  std::string inbox_;   // application bytes that no step has asked for yet
  bool ended_ = false;  // nothing more can come from the client
  bool gone_ = false;   // and the wire has ended as well
  bool rude_ = false;   // reset, or under TLS without close_notify
  bool sending_ended_ = false;
};

using ConnectionScript = std::function<void(Connection&)>;

// A list of steps, each with the meaning of the Connection function of its name.
class Script {
 public:
  Script& then(ConnectionScript step) { return steps_.push_back(std::move(step)), *this; }
  void operator()(Connection& connection) const {
    for (const ConnectionScript& step : steps_) step(connection);
  }

  Script& expect(std::string bytes) { return add(&Connection::expect, std::move(bytes)); }
  Script& read_until(std::string delimiter) { return add(&Connection::read_until, std::move(delimiter)); }
  Script& skip(std::size_t count) { return add(&Connection::skip, count); }
  Script& read_to_end() { return add(&Connection::read_to_end); }
  Script& expect_end() { return add(&Connection::expect_end); }
  Script& send(std::string bytes) { return add(&Connection::send, std::move(bytes)); }
  Script& send_slowly(std::string bytes, milliseconds pause = milliseconds(1)) {
    return add(&Connection::send_slowly, std::move(bytes), pause);
  }
  Script& flood(std::string bytes, std::size_t most) { return add(&Connection::flood, std::move(bytes), most); }
  Script& pause(milliseconds time) { return add(&Connection::pause, time); }
  Script& wait_for(const Signal& gate) { return add(&Connection::wait_for, std::cref(gate)); }  // outlives the peer
  Script& stay_silent() { return add(&Connection::stay_silent); }
  Script& start_tls(TlsContext context = TlsContext::server()) { return add(&Connection::start_tls, context); }
  Script& close() { return add(&Connection::close); }
  Script& close_without_notify() { return add(&Connection::close_without_notify); }
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
  // What connection number `index` has received so far. When a write was the client's last act, call finish() first.
  [[nodiscard]] std::string received(std::size_t index = 0) const { return look(index).received; }
  [[nodiscard]] TlsInfo tls(std::size_t index = 0) const { return look(index).tls; }
  [[nodiscard]] std::size_t connection_count() const;

  // Lets all scripts run to their end, ends silences, closes everything and reports what went wrong; once.
  void finish();
  [[nodiscard]] std::string take_failures();  // the same, but returns what went wrong

 protected:
  ScriptedEnd() = default;
  ~ScriptedEnd() { finish(); }
  void start(FileDescriptor connected, const ConnectionScript& script);  // in a thread of its own
  std::string name_;
  std::optional<std::size_t> needed_;  // connections that must come; absent: any number
  Signal finishing_;                   // the test wants to go on
  std::thread acceptor_;

 private:
  friend class Connection;
  [[nodiscard]] ConnectionRecord look(std::size_t index) const;
  mutable std::mutex mutex_;
  std::deque<ConnectionRecord> records_;  // guarded by the mutex; their addresses stay
  std::deque<std::thread> workers_;       // of the accepting thread; the test's only before and after it
  bool finished_ = false;
};

// A server: a listener on a free loopback port. Connections run side by side, each in its own thread.
class ScriptedPeer : public ScriptedEnd {
 public:
  // One connection for each script, in the order of their arrival: others are reset, and these and missing ones reported.
  explicit ScriptedPeer(ConnectionScript script) : ScriptedPeer(std::vector{std::move(script)}) {}
  explicit ScriptedPeer(std::vector<ConnectionScript> in_order) : ScriptedPeer(std::move(in_order), false) {}
  // Any number of connections, none included, with the same script.
  static ScriptedPeer for_every_connection(ConnectionScript script) { return {std::vector{std::move(script)}, true}; }

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] std::string target() const { return name_; }  // "127.0.0.1:12345"
  [[nodiscard]] std::string url(const std::string& path = "/", const std::string& scheme = "http") const {
    return scheme + "://" + name_ + path;
  }

 private:
  ScriptedPeer(std::vector<ConnectionScript> scripts, bool repeat);
  std::uint16_t port_ = 0;
};

// A client: connects to a port of this machine and runs one script, in a thread of its own.
class ScriptedClient : public ScriptedEnd {
 public:
  ScriptedClient(std::uint16_t port, const ConnectionScript& script);
};

}  // namespace yinet::test
