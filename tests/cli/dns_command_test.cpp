// "yinet dns" against servers, and against the files of a system that a name space makes up.

#include <gmock/gmock.h>

#include "cli/program.h"
#include "support/dns_server.h"
#include "support/requirements.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

using testing::HasSubstr;

CommandResult ask(const std::string& server, const std::string& type, const std::string& name) {
  return run_program({"dns", type, name, "--set", "DNS/Server=" + server});
}

TEST(DnsCommand, PrintsWhatAServerKnows) {
  YINET_REQUIRE_PROGRAM("knotd");
  const KnotServer knot({DnsZone{"x.test", "www A 192.0.2.1\nwww A 192.0.2.9\n@ MX 20 slow\n@ MX 10 fast\n"}});
  EXPECT_EQ(ask(knot.target(), "a", "www.x.test").output, "192.0.2.9\n");
  EXPECT_EQ(ask(knot.target(), "mx", "x.test").output, "10 fast.x.test\n20 slow.x.test\n");
  for (const char* type : {"a", "mx"}) {
    const CommandResult missing = ask(knot.target(), type, "nosuch.x.test");
    EXPECT_EQ(missing.exit_code, 1);
    EXPECT_EQ(missing.output, "");
    EXPECT_THAT(missing.errors, HasSubstr("9003"));
  }
}

// A name server on port 53 with a resolver configuration and a hosts file around it.
class SystemConfiguration : public testing::Test {
 protected:
  void SetUp() override {
    YINET_REQUIRE_PROGRAM("knotd");
    YINET_REQUIRE_NETWORK_NAMESPACES();
    const std::string folder = folder_.path().string();
    folder_.write("first.test.zone", "@ SOA ns m 1 1 1 1 1\n@ NS ns\nonly A 192.0.2.1\n");
    folder_.write("second.test.zone",
                  "@ SOA ns m 1 1 1 1 1\n@ NS ns\nhost A 192.0.2.2\nonly A 192.0.2.3\n@ MX 5 host\n");
    folder_.write("knot.conf", "server:\n  listen: 127.0.0.1@53\n  rundir: " + folder + "\ndatabase:\n  storage: " +
                                   folder + "\ntemplate:\n  - id: default\n    storage: " + folder +
                                   "\n    file: \"%s.zone\"\n    zonefile-sync: -1\n    journal-content: none\n"
                                   "zone:\n  - domain: first.test\n  - domain: second.test\n");
    folder_.write("resolv.conf", "search first.test second.test\nnameserver 127.0.0.1\n");
    folder_.write("hosts", "::1 listed\n192.0.2.50 Listed alias.of.listed\n192.0.2.51 listed\n");
  }

  // One call of the program in there.
  [[nodiscard]] CommandResult ask_inside(const std::string& type, const std::string& name) const {
    const std::string folder = folder_.path().string();
    // Zones are loaded one by one, some of them after the server says that it has started.
    const std::string script = "mount --bind " + folder + "/hosts /etc/hosts || exit 3; : >" + folder +
                               "/log; knotd -c " + folder + "/knot.conf >" + folder +
                               "/log 2>&1 & server=$!; for i in $(seq 200); do [ $(grep -c 'loaded, serial' " + folder +
                               "/log) -ge 2 ] && break; sleep 0.02; done; " YINET_PROGRAM " dns " + type + " " + name +
                               "; code=$?; kill $server; wait; exit $code";
    return run_command(in_network_namespace({"sh", "-c", script}, folder_ / "resolv.conf"));
  }

  TempDir folder_;
};

TEST_F(SystemConfiguration, SingleLabelsUseTheSearchList) {
  EXPECT_EQ(ask_inside("a", "host").output, "192.0.2.2\n");
  EXPECT_EQ(ask_inside("a", "only").output, "192.0.2.1\n");
  EXPECT_EQ(ask_inside("mx", "second.test").output, "5 host.second.test\n");
  const CommandResult complete = ask_inside("a", "host.");
  EXPECT_EQ(complete.exit_code, 1);
  EXPECT_THAT(complete.errors, HasSubstr("9005"));  // the server knows nothing of the root
}

TEST_F(SystemConfiguration, TheHostsFileComesBeforeTheServers) {
  EXPECT_EQ(ask_inside("a", "LISTED").output, "192.0.2.50\n");
  EXPECT_EQ(ask_inside("a", "alias.of.listed.").output, "192.0.2.50\n");
}

}  // namespace
}  // namespace yinet::test
