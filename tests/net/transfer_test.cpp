// Sending and receiving, plain and over TLS, with peers that are slow, silent, gone or rude.

#include <openssl/bio.h>
#include <poll.h>

#include <csignal>
#include <thread>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/ports.h"

namespace yinet::test {
namespace {

enum class Layer { plain, tls12, tls13 };
constexpr Layer kAllLayers[] = {Layer::plain, Layer::tls12, Layer::tls13};

std::string name_of(Layer layer) {
  return layer == Layer::plain ? "plain" : layer == Layer::tls12 ? "TLS 1.2" : "TLS 1.3";
}

// The peer's side of a layer, as the beginning of a script.
Script begin(Layer layer) {
  if (layer == Layer::plain) return {};
  TlsServerOptions options;
  options.version = layer == Layer::tls12 ? TlsVersion::tls12 : TlsVersion::tls13;
  return Script().start_tls(TlsContext::server(Certificates::shared().good(), options));
}

void set_up(SecureSocket& socket, Layer layer) {
  if (layer != Layer::plain) {
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
  }
}

class Transfer : public SocketTest {};

TEST_F(Transfer, WithoutAConnectionThereIsNothingToDo) {
  OpenSocket socket;
  YBuffer bytes;
  YString text("old");
  EXPECT_FALSE(socket.Send(YBuffer("x")));
  EXPECT_FALSE(socket.Send(YString("x")));
  EXPECT_EQ(socket.Receive(bytes, 8, false), 0);
  EXPECT_EQ(socket.Receive(text, 8, false), 0);
  EXPECT_EQ(bytes.view(), std::string(8, '\0'));
  EXPECT_EQ(text.str(), std::string(8, '\0'));
  EXPECT_EQ(socket.Receive(bytes, -5, false), 0);
  EXPECT_FALSE(socket.GetBinaryFromReceive(bytes, 2));
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, ReceiveLeavesExactlyTheSizeAskedForWithZerosBehind) {
  for (const Layer layer : kAllLayers) {
    for (const Mode mode : kBothModes) {
      SCOPED_TRACE(name_of(layer) + ", " + yinet::test::name_of(mode));
      ScriptedPeer peer(begin(layer).send("0123456789").expect("go").send("abc").read_to_end());
      SecureSocket socket;
      set_up(socket, layer);
      ASSERT_EQ(connect_to(socket, peer, mode), 0);
      YBuffer bytes(std::string(5000, 'o'));
      int count = 0;
      while ((count = socket.Receive(bytes, 4096, false)) == 0) socket.wait_for_input(1000);
      EXPECT_EQ(count, 10);
      EXPECT_EQ(bytes.view(), "0123456789" + std::string(4086, '\0'));
      ASSERT_TRUE(socket.Send(YString("go")));
      YString text("old content");
      while ((count = socket.Receive(text, 2, false)) == 0) socket.wait_for_input(1000);
      EXPECT_EQ(count, 2);
      EXPECT_EQ(text, "ab");
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, NonBlockingReceiveReturnsAtOnceWithNothing) {
  for (const Layer layer : kAllLayers) {
    ScriptedPeer peer(begin(layer).read_to_end());
    SecureSocket socket;
    set_up(socket, layer);
    ASSERT_EQ(connect_to(socket, peer), 0);
    YBuffer bytes;
    do {
      EXPECT_EQ(socket.Receive(bytes, 16, false), 0);
    } while (socket.wait_for_input(1));  // session tickets may still be coming, but nothing for the caller
  }
}

TEST_F(Transfer, AnEndOfThePeerIsNoEntryHoweverItComes) {
  struct Case {
    const char* how;
    void (*end)(Script&);
  };
  const Case cases[] = {{"in order", [](Script& script) { script.close(); }},
                        {"without close_notify", [](Script& script) { script.close_without_notify(); }},
                        {"reset", [](Script& script) { script.reset(); }}};
  for (const Layer layer : kAllLayers) {
    for (const Mode mode : kBothModes) {
      for (const Case& one : cases) {
        SCOPED_TRACE(name_of(layer) + ", " + yinet::test::name_of(mode) + ", " + one.how);
        Script script = begin(layer).send("last").expect("ok");
        one.end(script);
        ScriptedPeer peer(script);
        SecureSocket socket;
        set_up(socket, layer);
        ASSERT_EQ(connect_to(socket, peer, mode), 0);
        EXPECT_EQ(receive_exactly(socket, 4), "last");
        EXPECT_TRUE(socket.Send(YString("ok")));
        YBuffer bytes;
        YString text;
        int count = 0;
        while ((count = socket.Receive(bytes, 16, false)) == 0) socket.wait_for_input(1000);
        EXPECT_EQ(count, -1000);
        EXPECT_EQ(socket.Receive(text, 16, false), -1000);
        EXPECT_EQ(bytes.view(), std::string(16, '\0'));
      }
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

// A connection whose handshake the peer never answered, which counts as done without verification; what the peer says
// then is no TLS, and OpenSSL has an error for it.
TEST_F(Transfer, AFailedReadIsOneEntryUnlessQuiet) {
  const SettingChange attempts(settings::kTlsAttempts, "1");
  struct Case {
    bool blocking, text, quiet;
    int number;
  };
  const Case cases[] = {{false, false, false, message::kReceiveBufferFailed},
                        {false, true, false, message::kReceiveTextFailed},
                        {false, false, true, 0},
                        {true, false, false, message::kReceiveBufferBlockingFailed},
                        {true, true, false, message::kReceiveTextBlockingFailed},
                        {true, true, true, 0}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.number);
    log.clear();
    Signal go;
    ScriptedPeer peer(Script().wait_for(go).send("220 this is no TLS at all\r\n").read_to_end());
    OpenSocket socket;
    set_up(socket, Layer::tls13);
    ASSERT_EQ(connect_to(socket, peer), 0);
    EXPECT_TRUE(socket.tlsActive);
    go.set();
    ASSERT_TRUE(socket.wait_for_input(static_cast<int>(kPatience.count())));
    YBuffer bytes;
    YString text;
    const int result =
        one.blocking
            ? (one.text ? socket.ReceiveBlocking(text, 9, one.quiet) : socket.ReceiveBlocking(bytes, 9, one.quiet))
            : (one.text ? socket.Receive(text, 9, one.quiet) : socket.Receive(bytes, 9, one.quiet));
    EXPECT_EQ(result, -1000);
    if (one.number == 0)
      EXPECT_THAT(log.numbers(), testing::IsEmpty());
    else
      EXPECT_THAT(log.numbers(), testing::ElementsAre(one.number));
    EXPECT_THAT(log.last(one.number).extra, testing::AnyOf("", testing::HasSubstr("wrong version number")));
  }
}

// --- Large contents -----------------------------------------------------------------------------------------------------

constexpr std::size_t kMegabyte = 1 << 20;

// A peer that reads in fits and starts through a small window.
ScriptedPeer::Options small_window() {
  ScriptedPeer::Options options;
  options.receive_buffer = 64 * 1024;
  return options;
}

TEST_F(Transfer, ALargeSendArrivesWholeAndOnce) {
  const std::string content = pattern_bytes(64 * kMegabyte);
  for (const Layer layer : {Layer::plain, Layer::tls13}) {
    for (const Mode mode : kBothModes) {
      SCOPED_TRACE(name_of(layer) + ", " + yinet::test::name_of(mode));
      ScriptedPeer peer(
          begin(layer).skip(100).pause(milliseconds(50)).skip(3 * kMegabyte).pause(milliseconds(50)).read_to_end(),
          small_window());
      SecureSocket socket;
      set_up(socket, layer);
      ASSERT_EQ(connect_to(socket, peer, mode), 0);
      EXPECT_TRUE(is_blocking(mode) ? socket.Send(YString(content)) : socket.Send(YBuffer(content)));
      EXPECT_EQ(socket.bytes_sent(), content.size());
      socket.Close();
      peer.finish();
      EXPECT_TRUE(peer.received() == content) << peer.received_count() << " bytes arrived";
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Transfer, AStandstillEndsTheSendAndTheRestCanFollow) {
  const std::string content = pattern_bytes(16 * kMegabyte);
  for (const Layer layer : kAllLayers) {
    SCOPED_TRACE(name_of(layer));
    log.clear();
    Signal go;
    ScriptedPeer peer(begin(layer).wait_for(go).read_to_end(), small_window());
    SecureSocket socket;
    set_up(socket, layer);
    ASSERT_EQ(connect_to(socket, peer), 0);
    {
      const SettingChange limit(settings::kIdleLimit, "100");
      EXPECT_FALSE(socket.Send(YBuffer(content)));
    }
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSendBufferFailed));
    EXPECT_THAT(log.last(message::kSendBufferFailed).extra, testing::HasSubstr("within 100 ms"));
    EXPECT_GT(socket.bytes_sent(), 0U);
    EXPECT_LT(socket.bytes_sent(), content.size());
    if (layer != Layer::plain) {
      EXPECT_FALSE(socket.Send(YString("other"))) << "would be taken for the rest of the record that stands half-sent";
      EXPECT_EQ(log.numbers().back(), message::kSendTextFailed);
    }
    go.set();
    EXPECT_TRUE(socket.send_rest(YBuffer(content)));
    socket.Close();
    peer.finish();
    EXPECT_TRUE(peer.received() == content) << peer.received_count() << " bytes arrived";
  }
}

// SIGPIPE has its default action here: one that got through would end the test program.
TEST_F(Transfer, APeerThatResetsInTheMiddleOfASendIsAFailureAndNoSignal) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  const std::string content = pattern_bytes(8 * kMegabyte);
  for (const Layer layer : kAllLayers) {
    for (const Mode mode : kBothModes) {
      SCOPED_TRACE(name_of(layer) + ", " + yinet::test::name_of(mode));
      log.clear();
      ScriptedPeer peer(begin(layer).skip(1000).reset());
      {
        SecureSocket socket;
        set_up(socket, layer);
        ASSERT_EQ(connect_to(socket, peer, mode), 0);
        EXPECT_FALSE(socket.Send(YBuffer(content)));
        EXPECT_FALSE(socket.Send(YBuffer(content)));  // EPIPE now
        EXPECT_FALSE(socket.Send(YString(content)));
        const int buffer_failed = is_blocking(mode) ? message::kSendBufferBlockingFailed : message::kSendBufferFailed;
        const int text_failed = is_blocking(mode) ? message::kSendTextBlockingFailed : message::kSendTextFailed;
        EXPECT_THAT(log.numbers(), testing::ElementsAre(buffer_failed, buffer_failed, text_failed));
        EXPECT_THAT(log.last(text_failed).extra, testing::Not(testing::IsEmpty()));
        EXPECT_EQ(log.last(text_failed).level, 2);
      }
      static_cast<void>(peer.take_failures());
    }
  }
}

TEST_F(Transfer, EmptyContentIsNotSent) {
  ScriptedPeer peer(Script().expect_end());
  SecureSocket socket;
  ASSERT_EQ(connect_to(socket, peer), 0);
  EXPECT_FALSE(socket.Send(YString()));
  EXPECT_FALSE(socket.Send(YBuffer()));
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
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
  for (const Layer layer : {Layer::tls12, Layer::tls13}) {
    for (const Mode mode : kBothModes) {
      SCOPED_TRACE(name_of(layer) + ", " + yinet::test::name_of(mode));
      ScriptedPeer peer(begin(layer).pause(milliseconds(20)).skip(content.size()).expect_end(), small_window());
      {
        SecureSocket socket;
        set_up(socket, layer);
        ASSERT_EQ(connect_to(socket, peer, mode), 0);
        EXPECT_TRUE(socket.Send(YBuffer(content)));
      }
      peer.finish();
      EXPECT_TRUE(peer.received() == content) << peer.received_count() << " bytes arrived";
      EXPECT_EQ(peer.client_ending(), Ending::closed);
    }
  }
}

TEST_F(Transfer, AnOrderlyEndWaitsForAPeerThatStaysAtMostItsLimit) {
  Signal go;
  const auto script = [&] { return Script().start_tls().expect("bye").wait_for(go); };
  const SettingChange limit(settings::kTlsCloseLimit, "80");
  ScriptedPeer peer(script());
  SecureSocket socket;
  set_up(socket, Layer::tls13);
  ASSERT_EQ(connect_to(socket, peer), 0);
  ASSERT_TRUE(socket.Send(YString("bye")));
  const auto time = time_of([&] { socket.Close(); });
  EXPECT_GE(time, milliseconds(80));
  EXPECT_LT(time, kPatience);
  go.set();
}

TEST_F(Transfer, AfterAReadNothingIsWaitedFor) {
  const SettingChange limit(settings::kTlsCloseLimit, std::to_string(4 * kPatience.count()));
  Signal go;
  ScriptedPeer peer(Script().start_tls().expect("ping").send("pong").wait_for(go));
  SecureSocket socket;
  set_up(socket, Layer::tls13);
  ASSERT_EQ(connect_to(socket, peer), 0);
  ASSERT_TRUE(socket.Send(YString("ping")));
  EXPECT_EQ(receive_exactly(socket, 4), "pong");
  EXPECT_LT(time_of([&] { socket.Close(); }), kPatience);
  go.set();
}

// --- Pieces of fixed size -----------------------------------------------------------------------------------------------

TEST_F(Transfer, BinaryRepliesEndWithOneReadOfTheWholeCount) {
  for (const Mode mode : kBothModes) {
    SCOPED_TRACE(yinet::test::name_of(mode));
    Signal half_read;
    ScriptedPeer peer(Script().send("a").wait_for(half_read).send("bcde").read_to_end());
    OpenSocket socket;
    ASSERT_EQ(connect_to(socket, peer, mode), 0);
    YBuffer target("-");
    std::thread second([&] {
      std::this_thread::sleep_for(milliseconds(30));  // only decides which of two good ways the test takes
      half_read.set();
    });
    EXPECT_TRUE(socket.GetBinaryFromReceive(target, 2));
    second.join();
    EXPECT_EQ(target.view(), std::string_view("-a\0bc", 5));
    EXPECT_TRUE(socket.GetBinaryFromReceive(target, 2));
    EXPECT_EQ(target.view(), std::string_view("-a\0bcde", 7));
  }
}

TEST_F(Transfer, BinaryRepliesEndWithTheConnectionAndWithSilence) {
  const SettingChange limit(settings::kIdleLimit, "60");
  for (const bool closes : {true, false}) {
    ScriptedPeer peer(closes ? Script().send("a").close() : Script().send("a").read_to_end());
    OpenSocket socket;
    ASSERT_EQ(connect_to(socket, peer), 0);
    YBuffer target;
    EXPECT_FALSE(socket.GetBinaryFromReceive(target, 2));
    EXPECT_EQ(target.view(), std::string_view("a\0", 2));
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

// --- Read-ahead ---------------------------------------------------------------------------------------------------------

std::vector<int> counts_of_reads(Layer layer, Mode mode, bool ahead, const std::vector<int>& sizes) {
  const std::vector<std::size_t> writes = {1, 1500, 16384, 100, 20000, 3};
  std::string content;
  Script script = begin(layer);
  for (const std::size_t size : writes) {
    const std::string piece = pattern_bytes(size, static_cast<unsigned>(size));
    content += piece;
    script.send(piece);
  }
  ScriptedPeer peer(script.half_close().read_to_end());
  SecureSocket socket;
  set_up(socket, layer);
  const bool inside_tls = ahead && layer != Layer::plain;
  if (inside_tls) socket.read_ahead(true);
  EXPECT_EQ(connect_to(socket, peer, mode), 0);
  const int descriptor = socket.GetScoketDescriptor();
  socket.read_ahead(ahead);
  // Everything must be there before the first read, or the counts would be the network's.
  pollfd all_arrived{descriptor, POLLRDHUP, 0};
  EXPECT_EQ(poll(&all_arrived, 1, static_cast<int>(kPatience.count())), 1);
  std::vector<int> counts;
  std::string all;
  YBuffer target;
  for (std::size_t i = 0;; ++i) {
    const int count = socket.Receive(target, sizes[i % sizes.size()], false);
    counts.push_back(count);
    if (count <= 0) break;
    all += target.view().substr(0, static_cast<std::size_t>(count));
  }
  EXPECT_TRUE(all == content);
  return counts;
}

TEST_F(Transfer, ReadAheadCannotBeSeen) {
  const SettingChange capacity(settings::kReadAhead, "3000");  // small, so that it is filled many times
  for (const Layer layer : kAllLayers) {
    for (const Mode mode : kBothModes) {
      for (const std::vector<int>& sizes : {std::vector<int>{1024}, {1, 7, 100}, {16384}, {2000, 65536, 1}}) {
        SCOPED_TRACE(name_of(layer) + ", " + yinet::test::name_of(mode) + ", " + std::to_string(sizes[0]));
        EXPECT_EQ(counts_of_reads(layer, mode, true, sizes), counts_of_reads(layer, mode, false, sizes));
      }
    }
  }
}

}  // namespace
}  // namespace yinet::test
