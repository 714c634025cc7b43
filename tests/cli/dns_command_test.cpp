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
TEST(DnsCommand, UsesSearchListAndHostsFileOfTheSystem) {
  YINET_REQUIRE_PROGRAM("knotd");
  YINET_REQUIRE_NETWORK_NAMESPACES();
  const TempDir folder;
  const std::string path = folder.path().string();
  folder.write("first.test.zone", "@ SOA ns m 1 1 1 1 1\n@ NS ns\nonly A 192.0.2.1\n");
  folder.write("second.test.zone", "@ SOA ns m 1 1 1 1 1\n@ NS ns\nhost A 192.0.2.2\nonly A 192.0.2.3\n");
  folder.write("knot.conf", "server:\n  listen: 127.0.0.1@53\n  rundir: " + path + "\ndatabase:\n  storage: " + path +
                                "\ntemplate:\n  - id: default\n    storage: " + path +
                                "\n    file: \"%s.zone\"\n    zonefile-sync: -1\n    journal-content: none\n"
                                "zone:\n  - domain: first.test\n  - domain: second.test\n");
  folder.write("resolv.conf", "search first.test second.test\nnameserver 127.0.0.1\n");
  folder.write("hosts", "::1 listed\n192.0.2.50 Listed alias.of.listed\n192.0.2.51 listed\n");
  // Zones are loaded one by one, some of them after the server says that it has started.
  const std::string script =
      "cd " + path +
      "; mount --bind hosts /etc/hosts || exit 3; : >log; knotd -c knot.conf >log 2>&1 & server=$!; for i in $(seq 200); "
      "do [ $(grep -c 'loaded, serial' log) -ge 2 ] && break; sleep 0.02; done; for name in host only LISTED "
      "alias.of.listed. host.; do " YINET_PROGRAM " dns a $name; code=$?; done; kill $server; wait; exit $code";
  const CommandResult result = run_command(in_network_namespace({"sh", "-c", script}, folder / "resolv.conf"));
  EXPECT_EQ(result.output, "192.0.2.2\n192.0.2.1\n192.0.2.50\n192.0.2.50\n");
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.errors, HasSubstr("9005"));  // the server knows nothing of the root
}

}  // namespace
}  // namespace yinet::test
