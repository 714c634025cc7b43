// Sending and receiving, plain and over TLS, with peers that are slow, silent, gone or rude.

#include <openssl/bio.h>
#include <poll.h>

#include <csignal>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/ports.h"

namespace yinet::test {
namespace {

enum class Layer { plain, tls12, tls13 };
const std::vector<Layer> kAllLayers = {Layer::plain, Layer::tls12, Layer::tls13};

struct Way {
  Layer layer;
  Mode mode = Mode::polling;
  bool ahead = false;
};

std::vector<Way> every_way(const std::vector<Layer>& layers = kAllLayers) {
  std::vector<Way> ways;
  for (const Layer layer : layers) {
    for (const Mode mode : kBothModes) ways.push_back({layer, mode});
  }
  return ways;
}

// A scripted peer, and a socket that is connected to it.
struct Talk {
  Talk(Way way, const Script& script, const ScriptedPeer::Options& options = {})
      : trace(__FILE__, __LINE__, std::to_string(static_cast<int>(way.layer)) + ", " + name_of(way.mode)),
        peer(with_tls(way.layer, script), options) {
    if (way.layer != Layer::plain) {
      EXPECT_TRUE(socket.InitSSLClientContext("", false, true));
    }
    socket.read_ahead(way.ahead);
    EXPECT_EQ(connect_to(socket, peer, way.mode), 0);
  }
  static Script with_tls(Layer layer, const Script& script) {
    if (layer == Layer::plain) return script;
    TlsServerOptions options;
    options.version = layer == Layer::tls12 ? TlsVersion::tls12 : TlsVersion::tls13;
    return Script().start_tls(TlsContext::server(Certificates::shared().good(), options)).then(script);
  }
  template <typename Container>
  int receive_something(Container& target, int size) {
    int count = 0;
    while ((count = socket.Receive(target, size, false)) == 0) socket.wait_for_input(1000);
    return count;
  }

  testing::ScopedTrace trace;
  ScriptedPeer peer;
  OpenSocket socket;
};

class Transfer : public SocketTest {
 protected:
  Signal go;
};

TEST_F(Transfer, WithoutAConnectionThereIsNothingToDo) {
  OpenSocket socket;
  YBuffer bytes;
  YString text("old");
  EXPECT_FALSE(socket.Send(YBuffer("x")) || socket.Send(YString("x")) || socket.GetBinaryFromReceive(bytes, 2));
  EXPECT_EQ(socket.Receive(bytes, 8, false), 0);
  EXPECT_EQ(socket.Receive(text, 8, false), 0);
  EXPECT_EQ(bytes.view(), std::string(8, '\0'));
  EXPECT_EQ(text.str(), std::string(8, '\0'));
  EXPECT_EQ(socket.Receive(bytes, -5, false), 0);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, ReceiveLeavesExactlyTheSizeAskedForWithZerosBehind) {
  for (const Way way : every_way()) {
    Talk talk(way, Script().send("0123456789").expect("go").send("abc").read_to_end());
    YBuffer bytes(std::string(5000, 'o'));
    EXPECT_EQ(talk.receive_something(bytes, 4096), 10);
    EXPECT_EQ(bytes.view(), "0123456789" + std::string(4086, '\0'));
    if (!is_blocking(way.mode)) {
      EXPECT_EQ(talk.socket.Receive(bytes, 4096, false), 0) << "nothing there: at once";
    }
    EXPECT_FALSE(talk.socket.Send(YString())) << "empty";
    EXPECT_TRUE(talk.socket.Send(YString("go")));
    YString text("old content");
    EXPECT_EQ(talk.receive_something(text, 2), 2);
    EXPECT_EQ(text, "ab");
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, AnEndOfThePeerIsNoEntryHoweverItComes) {
  const Script endings[] = {Script().close(), Script().close_without_notify(), Script().reset()};
  for (const Way way : every_way()) {
    for (const Script& end : endings) {
      Talk talk(way, Script().send("last").expect("ok").then(end));
      EXPECT_EQ(receive_exactly(talk.socket, 4), "last");
      EXPECT_TRUE(talk.socket.Send(YString("ok")));
      YBuffer bytes;
      YString text;
      EXPECT_EQ(talk.receive_something(bytes, 16), -1000);
      EXPECT_EQ(talk.socket.Receive(text, 16, false), -1000);
      EXPECT_EQ(bytes.view(), std::string(16, '\0'));
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

// The peer never answers the handshake, which counts as done where nothing is verified. What it says then is no TLS.
TEST_F(Transfer, AFailedReadIsOneEntryUnlessQuiet) {
  const SettingChange attempts(settings::kTlsAttempts, "1");
  struct Case {
    int (*receive)(OpenSocket&, YBuffer&, YString&);
    int number;
  };
  const Case cases[] = {
      {[](OpenSocket& s, YBuffer& b, YString&) { return s.Receive(b, 9, false); }, message::kReceiveBufferFailed},
      {[](OpenSocket& s, YBuffer&, YString& t) { return s.Receive(t, 9, false); }, message::kReceiveTextFailed},
      {[](OpenSocket& s, YBuffer& b, YString&) { return s.ReceiveBlocking(b, 9, false); },
       message::kReceiveBufferBlockingFailed},
      {[](OpenSocket& s, YBuffer&, YString& t) { return s.ReceiveBlocking(t, 9, false); },
       message::kReceiveTextBlockingFailed},
      {[](OpenSocket& s, YBuffer& b, YString&) { return s.Receive(b, 9, true); }, 0},
      {[](OpenSocket& s, YBuffer&, YString& t) { return s.ReceiveBlocking(t, 9, true); }, 0}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.number);
    log.clear();
    Signal speak;
    ScriptedPeer peer(Script().wait_for(speak).send("220 this is no TLS at all\r\n").read_to_end());
    OpenSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    ASSERT_EQ(connect_to(socket, peer), 0);
    EXPECT_TRUE(socket.tlsActive);
    speak.set();
    ASSERT_TRUE(socket.wait_for_input(static_cast<int>(kPatience.count())));
    YBuffer bytes;
    YString text;
    EXPECT_EQ(one.receive(socket, bytes, text), -1000);
    EXPECT_EQ(log.numbers(), one.number == 0 ? std::vector<int>() : std::vector<int>{one.number});
    EXPECT_THAT(log.last(one.number).extra, testing::HasSubstr(one.number == 0 ? "" : "wrong version number"));
  }
}

// --- Large contents -----------------------------------------------------------------------------------------------------

constexpr std::size_t kMegabyte = 1 << 20;

ScriptedPeer::Options small_window() {
  ScriptedPeer::Options options;
  options.receive_buffer = 64 * 1024;
  return options;
}

TEST_F(Transfer, ALargeSendArrivesWholeAndOnce) {
  const std::string content = pattern_bytes(64 * kMegabyte);
  const Script in_fits =
      Script().skip(100).pause(milliseconds(50)).skip(3 * kMegabyte).pause(milliseconds(50)).read_to_end();
  for (const Way way : every_way({Layer::plain, Layer::tls13})) {
    Talk talk(way, in_fits, small_window());
    EXPECT_TRUE(is_blocking(way.mode) ? talk.socket.Send(YString(content)) : talk.socket.Send(YBuffer(content)));
    EXPECT_EQ(talk.socket.bytes_sent(), content.size());
    talk.socket.Close();
    talk.peer.finish();
    EXPECT_TRUE(talk.peer.received() == content) << talk.peer.received().size() << " bytes arrived";
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, AStandstillEndsTheSendAndTheRestCanFollow) {
  const std::string content = pattern_bytes(16 * kMegabyte);
  for (const Layer layer : kAllLayers) {
    log.clear();
    Signal read;
    Talk talk({layer}, Script().wait_for(read).read_to_end(), small_window());
    {
      const SettingChange limit(settings::kIdleLimit, "100");
      EXPECT_FALSE(talk.socket.Send(YBuffer(content)));
    }
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSendBufferFailed));
    EXPECT_THAT(log.last(message::kSendBufferFailed).extra, testing::HasSubstr("within 100 ms"));
    EXPECT_GT(talk.socket.bytes_sent(), 0U);
    EXPECT_LT(talk.socket.bytes_sent(), content.size());
    if (layer != Layer::plain) {
      EXPECT_FALSE(talk.socket.Send(YString("x"))) << "would be taken for the rest of the record that stands half-sent";
    }
    read.set();
    EXPECT_TRUE(talk.socket.send_rest(YBuffer(content)));
    talk.socket.Close();
    talk.peer.finish();
    EXPECT_TRUE(talk.peer.received() == content) << talk.peer.received().size() << " bytes arrived";
  }
}

// SIGPIPE has its default action here: one that got through would end the test program.
TEST_F(Transfer, APeerThatResetsInTheMiddleOfASendIsAFailureAndNoSignal) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  const std::string content = pattern_bytes(8 * kMegabyte);
  for (const Way way : every_way()) {
    log.clear();
    Talk talk(way, Script().skip(1000).reset());
    EXPECT_FALSE(talk.socket.Send(YBuffer(content)));
    EXPECT_FALSE(talk.socket.Send(YString(content)));  // EPIPE now
    const bool blocks = is_blocking(way.mode);
    const int text_failed = blocks ? message::kSendTextBlockingFailed : message::kSendTextFailed;
    EXPECT_THAT(
        log.numbers(),
        testing::ElementsAre(blocks ? message::kSendBufferBlockingFailed : message::kSendBufferFailed, text_failed));
    EXPECT_THAT(log.last(text_failed).extra, testing::Not(testing::IsEmpty()));
    EXPECT_EQ(log.last(text_failed).level, 2);
    talk.socket.Close();
    static_cast<void>(talk.peer.take_failures());
    Talk gone(way, Script().reset());
    YBuffer bytes;
    EXPECT_EQ(gone.receive_something(bytes, 1), -1000);
    gone.socket.Close();  // TLS says goodbye to nobody
  }
}

// A connection whose connect never comes about, as a caller may get it from elsewhere.
TEST_F(Transfer, ASendOnAConnectingSocketGivesUpWithTheWaitAfterTheLast) {
  const SettingChange pause(settings::kSendPause, "4");
  FullListener nobody;
  BIO* const connecting = BIO_new_connect(("127.0.0.1:" + std::to_string(nobody.port())).c_str());
  BIO_set_nbio(connecting, 1);
  ASSERT_LE(BIO_do_connect(connecting), 0);
  OpenSocket socket(connecting, false);
  const auto time = time_of([&] { EXPECT_FALSE(socket.Send(YBuffer("x"))); });
  EXPECT_GE(time, milliseconds(51 * 4));
  EXPECT_FALSE(socket.Send(YString("x")));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSendBufferGaveUp, message::kSendTextGaveUp));
  EXPECT_THAT(log.last(message::kSendBufferGaveUp).extra, testing::HasSubstr("51 waits"));
  YBuffer bytes;
  EXPECT_EQ(socket.Receive(bytes, 4, false), 0);
}

// --- Closing ------------------------------------------------------------------------------------------------------------

TEST_F(Transfer, AnUploadClosedAtOnceLosesNothing) {
  const std::string content = pattern_bytes(4 * kMegabyte);
  for (const Way way : every_way({Layer::tls12, Layer::tls13})) {
    Talk talk(way, Script().pause(milliseconds(20)).skip(content.size()).expect_end(), small_window());
    EXPECT_TRUE(talk.socket.Send(YBuffer(content)));
    talk.socket.Close();
    talk.peer.finish();
    EXPECT_TRUE(talk.peer.received() == content) << talk.peer.received().size() << " bytes arrived";
    EXPECT_EQ(talk.peer.client_ending(), Ending::closed);
  }
}

TEST_F(Transfer, AnOrderlyEndWaitsForAStubbornPeerUpToItsLimitAndOnlyAfterAWrite) {
  for (const bool answers : {false, true}) {
    const SettingChange limit(settings::kTlsCloseLimit, answers ? std::to_string(2 * kPatience.count()) : "80");
    Script script = Script().expect("ping");
    if (answers) script.send("pong");
    Talk talk({Layer::tls13}, script.wait_for(go));
    ASSERT_TRUE(talk.socket.Send(YString("ping")));
    if (answers) {
      EXPECT_EQ(receive_exactly(talk.socket, 4), "pong");
    }
    const auto time = time_of([&] { talk.socket.Close(); });
    EXPECT_LT(time, milliseconds(5000));
    if (!answers) {
      EXPECT_GE(time, milliseconds(80));
    }
    if (answers) go.set();
    static_cast<void>(talk.peer.take_failures());
  }
}

// --- Pieces of fixed size, and reading ahead ------------------------------------------------------------------------------

TEST_F(Transfer, BinaryRepliesEndWithOneReadOfTheWholeCountSilenceOrTheEnd) {
  const SettingChange limit(settings::kIdleLimit, "60");
  for (const Way way : every_way({Layer::plain})) {
    Signal rest;
    Talk talk(way, Script().send("a").wait_for(rest).send("bcde").close());
    YBuffer target;
    EXPECT_EQ(talk.socket.GetBinaryFromReceive(target, is_blocking(way.mode) ? 1 : 2), is_blocking(way.mode))
        << "one byte, then silence";
    rest.set();
    EXPECT_TRUE(talk.socket.GetBinaryFromReceive(target, 4));
    EXPECT_FALSE(talk.socket.GetBinaryFromReceive(target, 1));
    EXPECT_EQ(target.view(), is_blocking(way.mode) ? "abcde" : std::string_view("a\0bcde", 6));
  }
}

std::vector<int> counts_of_reads(Way way, const std::vector<int>& sizes) {
  std::string content;
  Script script;
  for (const unsigned size : {1U, 1500U, 16384U, 100U, 20000U, 3U}) {
    content += pattern_bytes(size, size);
    script.send(pattern_bytes(size, size));
  }
  Talk talk(way, script.half_close().read_to_end());
  const int descriptor = talk.socket.GetScoketDescriptor();
  talk.socket.read_ahead(way.ahead);  // handing the descriptor out turned it off
  // Everything must be there before the first read, or the counts would be the network's.
  pollfd all_arrived{descriptor, POLLRDHUP, 0};
  EXPECT_EQ(poll(&all_arrived, 1, static_cast<int>(kPatience.count())), 1);
  std::vector<int> counts;
  std::string all;
  YBuffer target;
  do {
    counts.push_back(talk.socket.Receive(target, sizes[counts.size() % sizes.size()], false));
    if (counts.back() > 0) all += target.view().substr(0, static_cast<std::size_t>(counts.back()));
  } while (counts.back() > 0);
  EXPECT_TRUE(all == content);
  return counts;
}

TEST_F(Transfer, ReadAheadCannotBeSeen) {
  const SettingChange capacity(settings::kReadAhead, "3000");  // small, so that it is filled many times
  for (const Way way : every_way()) {
    const Way ahead{way.layer, way.mode, true};
    for (const std::vector<int>& sizes : {std::vector<int>{1024}, {1, 7, 100}, {16384}, {2000, 65536, 1}}) {
      EXPECT_EQ(counts_of_reads(ahead, sizes), counts_of_reads(way, sizes)) << sizes[0];
    }
  }
}

}  // namespace
}  // namespace yinet::test
