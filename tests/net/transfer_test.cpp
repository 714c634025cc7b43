// Sending and receiving, plain and over TLS, with peers that are slow, silent, gone or rude.

#include <openssl/bio.h>
#include <poll.h>

#include <csignal>

#include "net/socket_test_kit.h"
#include "support/bytes.h"

namespace yinet::test {
namespace {

constexpr TlsVersion kPlain = TlsVersion::any;
constexpr TlsVersion kLayers[] = {kPlain, TlsVersion::tls12, TlsVersion::tls13};

// A scripted peer, and a socket that is connected to it.
struct Talk {
  Talk(TlsVersion tls, Mode mode, const Script& script)
      : trace(__FILE__, __LINE__, std::to_string(static_cast<int>(tls)) + ", " + name_of(mode)),
        peer(tls == kPlain ? script : tls_peer(Certificates::shared().good(), tls).then(script)) {
    EXPECT_TRUE(tls == kPlain || socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, peer, mode), 0);
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
  }

  testing::ScopedTrace trace;
  ScriptedPeer peer;
  OpenSocket socket;
};

void in_every_way(const std::function<void(TlsVersion, Mode)>& test) {
  for (const TlsVersion tls : kLayers)
    for (const Mode mode : kBothModes) test(tls, mode);
}

class Transfer : public NetTest {};

TEST_F(Transfer, ReceiveLeavesTheSizeAskedForAndAnEndIsNoEntryHoweverItComes) {
  for (const Script& end : {Script().close(), Script().close_without_notify(), Script().reset()}) {
    in_every_way([&](TlsVersion tls, Mode mode) {
      Talk talk(tls, mode, Script().send("0123456789").expect("go").send("abc").expect("on").then(end));
      YBuffer bytes(std::string(5000, 'o'));
      EXPECT_EQ(talk.receive_something(bytes, 4096), 10);
      EXPECT_EQ(bytes.view(), "0123456789" + std::string(4086, '\0'));
      EXPECT_TRUE(is_blocking(mode) || talk.socket.Receive(bytes, 4096, false) == 0) << "nothing there: at once";
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
    });
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

// The peer never answers the handshake, which counts as done where nothing is verified. What it says then is no TLS.
TEST_F(Transfer, AFailedReadIsOneEntryUnlessQuiet) {
  using namespace message;
  const SettingChange attempts(settings::kTlsAttempts, "1");
  const int kNumbers[] = {kReceiveBufferFailed, kReceiveTextFailed, kReceiveBufferBlockingFailed,
                          kReceiveTextBlockingFailed};
  for (int i = 0; i < 5; ++i) {
    const bool text = i % 2 == 1, quiet = i == 4;
    log.clear();
    Signal speak;
    ScriptedPeer peer(Script().wait_for(speak).send("220 this is no TLS at all\r\n").read_to_end());
    OpenSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    ASSERT_EQ(connect_to(socket, peer), 0);
    speak.set();
    ASSERT_TRUE(socket.wait_for_input(static_cast<int>(kPatience.count())));
    socket.blocking = i == 2 || i == 3;
    YBuffer bytes;
    YString characters;
    EXPECT_EQ(text ? socket.Receive(characters, 9, false) : socket.Receive(bytes, 9, quiet), -1000);
    EXPECT_EQ(log.numbers(), quiet ? std::vector<int>() : std::vector<int>{kNumbers[i]});
  }
}

TEST_F(Transfer, APeerThatReadsSlowlyGetsEverythingThoughTheSocketIsClosedAtOnce) {
  const std::string content = pattern_bytes(1 << 24);
  for (const TlsVersion tls : kLayers) {
    const Script slow = Script().skip(100).pause(milliseconds(30)).skip(content.size() - 100).expect_end();
    Talk patient(tls, Mode::blocking, slow);
    EXPECT_TRUE(patient.socket.Send(YString(content)) && patient.socket.bytes_sent() == content.size());
    patient.expect_arrived(content);

    log.clear();  // and a socket that gives up, and sends the rest later
    Signal read;
    const Script in_fits = Script().wait_for(read).skip(content.size()).expect_end();
    Talk talk(tls, Mode::polling, in_fits);
    {
      const SettingChange limit(settings::kIdleLimit, "100");
      EXPECT_FALSE(talk.socket.Send(YBuffer(content)));
    }
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSendBufferFailed));
    EXPECT_THAT(log.last(message::kSendBufferFailed).extra, testing::HasSubstr("within 100 ms"));
    EXPECT_TRUE(talk.socket.bytes_sent() > 0 && talk.socket.bytes_sent() < content.size());
    EXPECT_TRUE(tls == kPlain || !talk.socket.Send(YString("x"))) << "it would be taken for the half-sent record";
    read.set();
    EXPECT_TRUE(talk.socket.send_rest(YBuffer(content)));
    talk.expect_arrived(content);
  }
}

// SIGPIPE has its default action here: one that got through would end the test program.
TEST_F(Transfer, APeerThatResetsInTheMiddleOfASendIsAFailureAndNoSignal) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  const std::string content = pattern_bytes(1 << 23);
  in_every_way([&](TlsVersion tls, Mode mode) {
    using namespace message;
    log.clear();
    Talk talk(tls, mode, Script().skip(1000).reset());
    EXPECT_FALSE(talk.socket.Send(YBuffer(content)));
    EXPECT_TRUE(talk.socket.is_broken());
    EXPECT_FALSE(talk.socket.Send(YString(content)));  // EPIPE now
    const int text_failed = is_blocking(mode) ? kSendTextBlockingFailed : kSendTextFailed;
    EXPECT_THAT(log.numbers(),
                testing::ElementsAre(is_blocking(mode) ? kSendBufferBlockingFailed : kSendBufferFailed, text_failed));
    EXPECT_THAT(log.last(text_failed).extra, testing::Not(testing::IsEmpty()));
    talk.socket.Close();  // TLS says goodbye to nobody
    static_cast<void>(talk.peer.take_failures());
  });
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
  YBuffer bytes;
  EXPECT_EQ(socket.Receive(bytes, 4, false), 0);
}

TEST_F(Transfer, AnOrderlyEndWaitsForAStubbornPeerUpToItsLimitAndOnlyAfterAWrite) {
  for (const bool answers : {false, true}) {
    const SettingChange limit(settings::kTlsCloseLimit, answers ? std::to_string(2 * kPatience.count()) : "80");
    Signal go;
    Talk talk(TlsVersion::tls13, Mode::polling, Script().expect("ping").send(answers ? "pong" : "").wait_for(go));
    ASSERT_TRUE(talk.socket.Send(YString("ping")));
    EXPECT_TRUE(!answers || receive_exactly(talk.socket, 4) == "pong");
    const auto time = time_of([&] { talk.socket.Close(); });
    EXPECT_LT(time, milliseconds(5000));
    EXPECT_GE(time, milliseconds(answers ? 0 : 80));
    go.set();
    static_cast<void>(talk.peer.take_failures());
  }
}

// The counts of all reads of a content that came in pieces of many sizes.
std::vector<int> counts_of_reads(TlsVersion tls, Mode mode, bool ahead, const std::vector<int>& sizes) {
  std::string content, all;
  Script script;
  for (const unsigned size : {1U, 1500U, 16384U, 100U, 20000U, 3U}) {
    content += pattern_bytes(size, size);
    script.send(pattern_bytes(size, size));
  }
  Talk talk(tls, mode, script);
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
  in_every_way([](TlsVersion tls, Mode mode) {
    for (const std::vector<int>& sizes : {std::vector<int>{1024}, {1, 7, 100}, {16384}, {2000, 65536, 1}})
      EXPECT_EQ(counts_of_reads(tls, mode, true, sizes), counts_of_reads(tls, mode, false, sizes)) << sizes[0];
  });
}

}  // namespace
}  // namespace yinet::test
