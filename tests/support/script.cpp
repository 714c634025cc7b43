#include "support/scripted_peer.h"

namespace yinet::test {

Script& Script::then(ConnectionScript step) {
  steps_.push_back(std::move(step));
  return *this;
}

void Script::operator()(Connection& connection) const {
  for (const ConnectionScript& step : steps_) step(connection);
}

Script& Script::patience(milliseconds time) {
  return then([time](Connection& c) { c.set_patience(time); });
}
Script& Script::count_only() {
  return then([](Connection& c) { c.count_only(); });
}
Script& Script::expect(std::string bytes) {
  return then([bytes = std::move(bytes)](Connection& c) { c.expect(bytes); });
}
Script& Script::read_until(std::string delimiter) {
  return then([delimiter = std::move(delimiter)](Connection& c) { c.read_until(delimiter); });
}
Script& Script::skip(std::size_t count) {
  return then([count](Connection& c) { c.skip(count); });
}
Script& Script::read_to_end() {
  return then([](Connection& c) { c.read_to_end(); });
}
Script& Script::expect_end() {
  return then([](Connection& c) { c.expect_end(); });
}
Script& Script::send(std::string bytes) {
  return then([bytes = std::move(bytes)](Connection& c) { c.send(bytes); });
}
Script& Script::send_pieces(std::vector<std::string> pieces, milliseconds pause_between) {
  return then([pieces = std::move(pieces), pause_between](Connection& c) { c.send_pieces(pieces, pause_between); });
}
Script& Script::send_slowly(std::string bytes, milliseconds pause_between) {
  return then([bytes = std::move(bytes), pause_between](Connection& c) { c.send_slowly(bytes, pause_between); });
}
Script& Script::flood(std::string bytes, std::size_t most) {
  return then([bytes = std::move(bytes), most](Connection& c) { c.flood(bytes, most); });
}
Script& Script::pause(milliseconds time) {
  return then([time](Connection& c) { c.pause(time); });
}
Script& Script::wait_for(const Signal& gate) {
  return then([&gate](Connection& c) { c.wait_for(gate); });
}
Script& Script::stay_silent() {
  return then([](Connection& c) { c.stay_silent(); });
}
Script& Script::start_tls(TlsContext context) {
  return then([context = std::move(context)](Connection& c) { c.start_tls(context); });
}
Script& Script::cut_tls_handshake(TlsContext context, std::size_t most) {
  return then([context = std::move(context), most](Connection& c) { c.cut_tls_handshake(context, most); });
}
Script& Script::read_tls_record() {
  return then([](Connection& c) { c.read_tls_record(); });
}
Script& Script::end_tls() {
  return then([](Connection& c) { c.end_tls(); });
}
Script& Script::close() {
  return then([](Connection& c) { c.close(); });
}
Script& Script::close_without_notify() {
  return then([](Connection& c) { c.close_without_notify(); });
}
Script& Script::half_close() {
  return then([](Connection& c) { c.half_close(); });
}
Script& Script::close_now() {
  return then([](Connection& c) { c.close_now(); });
}
Script& Script::reset() {
  return then([](Connection& c) { c.reset(); });
}
Script& Script::relay_to(std::uint16_t port) {
  return then([port](Connection& c) { c.relay_to(port); });
}

}  // namespace yinet::test
