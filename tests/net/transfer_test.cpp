// Sending and receiving, plain and over TLS, with peers that are slow, silent, gone or rude.

#include <openssl/bio.h>
#include <poll.h>

#include <csignal>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/ports.h"

namespace yinet::test {
namespace {

constexpr std::size_t kMegabyte = 1 << 20;

struct Way {
  TlsVersion tls;  // any: none at all
  Mode mode = Mode::polling;
};
constexpr TlsVersion kPlain = TlsVersion::any;

std::vector<Way> every_way() {
  std::vector<Way> ways;
  for (const TlsVersion version : {kPlain, TlsVersion::tls12, TlsVersion::tls13})
    for (const Mode mode : kBothModes) ways.push_back({version, mode});
  return ways;
}

// A scripted peer, and a socket that is connected to it.
struct Talk {
  Talk(Way way, const Script& script, const ScriptedPeer::Options& options = {})
      : trace(__FILE__, __LINE__, std::to_string(static_cast<int>(way.tls)) + ", " + name_of(way.mode)),
        peer(with_tls(way.tls, script), options) {
    EXPECT_TRUE(way.tls == kPlain || socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, peer, way.mode), 0);
  }
  static Script with_tls(TlsVersion version, const Script& script) {
    if (version == kPlain) return script;
    return Script().start_tls(TlsContext::server(Certificates::shared().good(), {.version = version})).then(script);
  }
  template <typename Container>
  int receive_something(Container& target, int size) {
    int count = 0;
    while ((count = socket.Receive(target, size, false)) == 0) socket.wait_for_input(1000);
    return count;
  }
  void expect_arrived(const std::string& content) {
    socket.Close();
    peer.finish();
    EXPECT_TRUE(peer.received() == content) << peer.received().size() << " bytes arrived";
    EXPECT_EQ(peer.client_ending(), Ending::closed);
  }

  testing::ScopedTrace trace;
  ScriptedPeer peer;
  OpenSocket socket;
};

class Transfer : public SocketTest {};

TEST_F(Transfer, WithoutAConnectionThereIsNothingToDo) {
  OpenSocket socket;
  YBuffer bytes;
  YString text("old");
  EXPECT_FALSE(socket.Send(YBuffer("x")) || socket.Send(YString("x")) || socket.GetBinaryFromReceive(bytes, 2));
  EXPECT_EQ(socket.Receive(bytes, 8, false) + socket.Receive(text, 8, false), 0);
  EXPECT_EQ(bytes.view(), std::string(8, '\0'));
  EXPECT_EQ(text.str(), std::string(8, '\0'));
  EXPECT_EQ(socket.Receive(bytes, -5, false), 0);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, ReceiveLeavesTheSizeAskedForAndAnEndIsNoEntryHoweverItComes) {
  const Script endings[] = {Script().close(), Script().close_without_notify(), Script().reset()};
  for (const Way way : every_way()) {
    for (const Script& end : endings) {
      Talk talk(way, Script().send("0123456789").expect("go").send("abc").expect("on").then(end));
      YBuffer bytes(std::string(5000, 'o'));
      EXPECT_EQ(talk.receive_something(bytes, 4096), 10);
      EXPECT_EQ(bytes.view(), "0123456789" + std::string(4086, '\0'));
      EXPECT_TRUE(is_blocking(way.mode) || talk.socket.Receive(bytes, 4096, false) == 0) << "nothing there: at once";
      EXPECT_FALSE(talk.socket.Send(YString())) << "empty";
      EXPECT_TRUE(talk.socket.Send(YString("go")));
      YString text("old content");
      EXPECT_EQ(talk.receive_something(text, 2), 2);
      EXPECT_EQ(text, "ab");
      EXPECT_EQ(receive_exactly(talk.socket, 1), "c");
      EXPECT_TRUE(talk.socket.Send(YBuffer("on")));
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
  for (const int number : {message::kReceiveBufferFailed, message::kReceiveTextFailed,
                           message::kReceiveBufferBlockingFailed, message::kReceiveTextBlockingFailed, 0}) {
    log.clear();
    Signal speak;
    ScriptedPeer peer(Script().wait_for(speak).send("220 this is no TLS at all\r\n").read_to_end());
    OpenSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    ASSERT_EQ(connect_to(socket, peer), 0);
    speak.set();
    ASSERT_TRUE(socket.wait_for_input(static_cast<int>(kPatience.count())));
    socket.blocking = number == message::kReceiveBufferBlockingFailed || number == message::kReceiveTextBlockingFailed;
    const bool text = number == message::kReceiveTextFailed || number == message::kReceiveTextBlockingFailed;
    YBuffer bytes;
    YString characters;
    EXPECT_EQ(text ? socket.Receive(characters, 9, false) : socket.Receive(bytes, 9, number == 0), -1000);
    EXPECT_EQ(log.numbers(), number == 0 ? std::vector<int>() : std::vector<int>{number});
    EXPECT_THAT(log.last(number).extra, testing::HasSubstr(number == 0 ? "" : "wrong version number"));
  }
}

// --- Large contents -----------------------------------------------------------------------------------------------------

TEST_F(Transfer, ALargeSendArrivesWholeAndOnceThoughClosedAtOnce) {
  const std::string content = pattern_bytes(32 * kMegabyte);
  const milliseconds pause(30);
  const Script in_fits =
      Script().skip(100).pause(pause).skip(3 * kMegabyte).pause(pause).skip(29 * kMegabyte - 100).expect_end();
  for (const Way way : every_way()) {
    Talk talk(way, in_fits, {.receive_buffer = 64 * 1024});
    EXPECT_TRUE(is_blocking(way.mode) ? talk.socket.Send(YString(content)) : talk.socket.Send(YBuffer(content)));
    EXPECT_EQ(talk.socket.bytes_sent(), content.size());
    talk.expect_arrived(content);
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, AStandstillEndsTheSendAndTheRestCanFollow) {
  const std::string content = pattern_bytes(16 * kMegabyte);
  for (const TlsVersion version : {kPlain, TlsVersion::tls12, TlsVersion::tls13}) {
    log.clear();
    Signal read;
    Talk talk({version}, Script().wait_for(read).read_to_end(), {.receive_buffer = 64 * 1024});
    {
      const SettingChange limit(settings::kIdleLimit, "100");
      EXPECT_FALSE(talk.socket.Send(YBuffer(content)));
    }
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSendBufferFailed));
    EXPECT_THAT(log.last(message::kSendBufferFailed).extra, testing::HasSubstr("within 100 ms"));
    EXPECT_GT(talk.socket.bytes_sent(), 0U);
    EXPECT_LT(talk.socket.bytes_sent(), content.size());
    EXPECT_TRUE(version == kPlain || !talk.socket.Send(YString("x"))) << "it would be taken for the half-sent record";
    read.set();
    EXPECT_TRUE(talk.socket.send_rest(YBuffer(content)));
    talk.expect_arrived(content);
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
    EXPECT_TRUE(talk.socket.is_broken());
    EXPECT_FALSE(talk.socket.Send(YString(content)));  // EPIPE now
    const bool blocks = is_blocking(way.mode);
    const int text_failed = blocks ? message::kSendTextBlockingFailed : message::kSendTextFailed;
    EXPECT_THAT(
        log.numbers(),
        testing::ElementsAre(blocks ? message::kSendBufferBlockingFailed : message::kSendBufferFailed, text_failed));
    EXPECT_THAT(log.last(text_failed).extra, testing::Not(testing::IsEmpty()));
    EXPECT_EQ(log.last(text_failed).level, 2);
    talk.socket.Close();  // TLS says goodbye to nobody
    static_cast<void>(talk.peer.take_failures());
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
  EXPECT_GE(time_of([&] { EXPECT_FALSE(socket.Send(YBuffer("x"))); }), milliseconds(51 * 4));
  EXPECT_FALSE(socket.Send(YString("x")));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSendBufferGaveUp, message::kSendTextGaveUp));
  EXPECT_THAT(log.last(message::kSendBufferGaveUp).extra, testing::HasSubstr("51 waits"));
  YBuffer bytes;
  EXPECT_EQ(socket.Receive(bytes, 4, false), 0);
}

TEST_F(Transfer, AnOrderlyEndWaitsForAStubbornPeerUpToItsLimitAndOnlyAfterAWrite) {
  for (const bool answers : {false, true}) {
    const SettingChange limit(settings::kTlsCloseLimit, answers ? std::to_string(2 * kPatience.count()) : "80");
    Signal go;
    Talk talk({TlsVersion::tls13}, Script().expect("ping").send(answers ? "pong" : "").wait_for(go));
    ASSERT_TRUE(talk.socket.Send(YString("ping")));
    EXPECT_TRUE(!answers || receive_exactly(talk.socket, 4) == "pong");
    const auto time = time_of([&] { talk.socket.Close(); });
    EXPECT_LT(time, milliseconds(5000));
    EXPECT_GE(time, milliseconds(answers ? 0 : 80));
    go.set();
    static_cast<void>(talk.peer.take_failures());
  }
}

// --- Pieces of fixed size, and reading ahead ------------------------------------------------------------------------------

TEST_F(Transfer, BinaryRepliesEndWithOneReadOfTheWholeCountSilenceOrTheEnd) {
  const SettingChange limit(settings::kIdleLimit, "60");
  Signal rest;
  Talk talk({kPlain}, Script().send("a").wait_for(rest).send("bcde").close());
  YBuffer target;
  EXPECT_FALSE(talk.socket.GetBinaryFromReceive(target, 2)) << "one byte, then silence";
  rest.set();
  EXPECT_TRUE(talk.socket.GetBinaryFromReceive(target, 4));
  EXPECT_FALSE(talk.socket.GetBinaryFromReceive(target, 1));
  EXPECT_EQ(target.view(), std::string_view("a\0bcde", 6));
}

std::vector<int> counts_of_reads(Way way, bool ahead, const std::vector<int>& sizes) {
  std::string content, all;
  Script script;
  for (const unsigned size : {1U, 1500U, 16384U, 100U, 20000U, 3U}) {
    content += pattern_bytes(size, size);
    script.send(pattern_bytes(size, size));
  }
  Talk talk(way, script.half_close().read_to_end());
  // Everything must be there before the first read, or the counts would be the network's.
  pollfd all_arrived{talk.socket.GetScoketDescriptor(), POLLRDHUP, 0};
  EXPECT_EQ(poll(&all_arrived, 1, static_cast<int>(kPatience.count())), 1);
  talk.socket.read_ahead(ahead);  // handing the descriptor out turns it off
  std::vector<int> counts;
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
  for (const Way way : every_way())
    for (const std::vector<int>& sizes : {std::vector<int>{1024}, {1, 7, 100}, {16384}, {2000, 65536, 1}})
      EXPECT_EQ(counts_of_reads(way, true, sizes), counts_of_reads(way, false, sizes)) << sizes[0];
}

}  // namespace
}  // namespace yinet::test
