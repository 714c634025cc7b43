// TLS on data channels: the handshake comes with the first transfer and resumes another connection's session.

#include <sys/socket.h>

#include "net/socket_test_kit.h"
#include "support/certificates.h"
#include "support/tls_context.h"

namespace yinet::test {
namespace {

class DataChannelTest : public SocketTest {};

TEST_F(DataChannelTest, TheHandshakeWaitsForTheFirstTransfer) {
  for (const Mode mode : kBothModes) {
    for (const bool reads_first : {true, false}) {
      SCOPED_TRACE(name_of(mode) + (reads_first ? ", reading" : ", writing"));
      Signal asked;
      ScriptedPeer server([&](Connection& connection) {
        connection.wait_for(asked);
        connection.start_tls(TlsContext::server());
        if (reads_first) connection.send("data");
        else connection.expect("data");
        connection.close();
      });
      OpenSocket socket;
      socket.SetDataChannel(true);
      ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
      ASSERT_EQ(connect_to(socket, server, mode), 0) << "though the server says nothing yet";
      asked.set();
      if (reads_first) {
        EXPECT_EQ(receive_all(socket), "data");
      } else {
        EXPECT_TRUE(socket.Send(YBuffer("data")));
      }
      socket.Close();
      server.finish();
    }
  }
}

TEST_F(DataChannelTest, ARejectedCertificateStopsTheFirstByte) {
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  for (const bool reads_first : {true, false}) {
    ScriptedPeer server([&](Connection& connection) {
      connection.start_tls(TlsContext::server(Certificates::shared().self_signed()));
      EXPECT_EQ(connection.read_to_end(), "");
    });
    OpenSocket socket;
    socket.SetDataChannel(true);
    ASSERT_EQ(connect_to(socket, server), 0);
    ASSERT_EQ(socket.STARTTLS("", false, true, nullptr), 0);
    for (int i = 0; i < 2; ++i) {
      if (reads_first) {
        EXPECT_EQ(receive_piece(socket), "");
      } else {
        EXPECT_FALSE(socket.Send(YBuffer("data")));
      }
    }
    EXPECT_NE(log.last(message::kStartTlsCertificateRejected).number, 0);
    socket.Close();
  }
}

TEST_F(DataChannelTest, SessionsAreResumedAcrossContexts) {
  for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
    const TlsContext context = TlsContext::server(Certificates::shared().good(), {.version = version});
    auto server = ScriptedPeer::for_every_connection(Script().start_tls(context).send("hello").read_to_end());
    OpenSocket control;
    ASSERT_TRUE(control.InitSSLClientContext("", false, true));
    ASSERT_EQ(connect_to(control, server), 0);
    EXPECT_EQ(receive_exactly(control, 5), "hello");
    for (std::size_t i = 1; i <= 3; ++i) {
      OpenSocket data;
      data.SetDataChannel(true);
      data.resume_session_of(control);
      ASSERT_TRUE(data.InitSSLClientContext("", false, true));
      ASSERT_EQ(connect_to(data, server), 0);
      EXPECT_EQ(receive_exactly(data, 5), "hello");
      EXPECT_TRUE(server.tls(i).session_reused) << "connection " << i;
      // One that breaks off must not spoil the session for the next.
      if (i == 1) ::shutdown(data.GetScoketDescriptor(), SHUT_RDWR);
      data.Close();
    }
    control.Close();
  }
}

}  // namespace
}  // namespace yinet::test
