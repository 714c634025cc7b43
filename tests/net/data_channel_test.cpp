// TLS on data channels: the handshake comes with the first transfer and resumes another connection's session.

#include <sys/socket.h>

#include "net/socket_test_kit.h"
#include "support/certificates.h"
#include "support/tls_context.h"

namespace yinet::test {
namespace {

class DataChannelTest : public SocketTest {};

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
      EXPECT_TRUE(reads_first ? receive_piece(socket).empty() : !socket.Send(YBuffer("data")));
    }
    EXPECT_NE(log.last(message::kStartTlsCertificateRejected).number, 0);
    socket.Close();
  }
}

TEST_F(DataChannelTest, TheHandshakeWaitsForTheFirstTransferAndResumesASession) {
  for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
    const Mode mode = version == TlsVersion::tls12 ? Mode::blocking : Mode::polling;
    const TlsContext context = TlsContext::server(Certificates::shared().good(), {.version = version});
    Signal asked;
    auto server =
        ScriptedPeer::for_every_connection(Script().wait_for(asked).start_tls(context).send("hello").read_to_end());
    OpenSocket control;
    ASSERT_EQ(connect_to(control, server, mode), 0);
    for (std::size_t i = 1; i <= 3; ++i) {
      OpenSocket data;
      data.SetDataChannel(true);
      data.resume_session_of(control);
      ASSERT_TRUE(data.InitSSLClientContext("", false, true));
      ASSERT_EQ(connect_to(data, server, mode), 0) << "though the server says nothing yet";
      if (i == 1) {
        asked.set();
        ASSERT_EQ(control.STARTTLS("", false, true, nullptr), 0);
        EXPECT_EQ(receive_exactly(control, 5), "hello");
      }
      EXPECT_EQ(receive_exactly(data, 5), "hello");
      EXPECT_EQ(server.tls(i).session_reused, i > 1) << "connection " << i;
      // One that breaks off must not spoil the session for the next.
      if (i == 2) ::shutdown(data.GetScoketDescriptor(), SHUT_RDWR);
    }
  }
}

}  // namespace
}  // namespace yinet::test
