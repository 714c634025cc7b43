#include "support/child_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support/ports.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"

namespace yinet::test {
namespace {

// One that was killed but that nobody has waited for is not alive.
bool alive(pid_t pid) {
  if (::kill(pid, 0) != 0) return false;
  return run_command({"grep", "-q", "^State:.[ZX]", "/proc/" + std::to_string(pid) + "/status"}).exit_code == 1;
}

ChildOptions shell(const std::string& commands) {
  ChildOptions options;
  options.argv = {"sh", "-c", commands};
  return options;
}

TEST(ChildProcess, ACommandGivesItsOutputErrorsAndCode) {
  const CommandResult result = run_command({"sh", "-c", "cat; echo wrong >&2; exit 7"}, "as given\n");
  EXPECT_EQ(result.output, "as given\n");
  EXPECT_EQ(result.errors, "wrong\n");
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_FALSE(result.timed_out);
}

TEST(ChildProcess, ACommandThatTakesTooLongIsEnded) {
  const CommandResult result = run_command({"sleep", "600"}, "", milliseconds(50));
  EXPECT_TRUE(result.timed_out);
  EXPECT_EQ(result.exit_code, 128 + SIGTERM);
}

TEST(ChildProcess, FolderAndEnvironmentAreAsAskedFor) {
  const TempDir folder;
  ::setenv("YINET_TEST_HIDDEN", "seen", 1);
  ChildOptions options = shell("pwd; echo $GIVEN:$YINET_TEST_HIDDEN");
  options.working_directory = folder.path();
  options.environment["GIVEN"] = "given";
  options.unset = {"YINET_TEST_HIDDEN"};
  EXPECT_EQ(run_command(options).output, folder.path().string() + "\ngiven:\n");
}

TEST(ChildProcess, AMissingProgramIsSaidAtOnce) {
  EXPECT_THROW(run_command({"yinet-no-such-program"}), std::runtime_error);
  const TempDir folder;
  ChildOptions options = shell("true");
  options.working_directory = folder / "missing";
  EXPECT_THROW(run_command(options), std::runtime_error);
}

TEST(ChildProcess, StopReachesWhatTheChildHasStarted) {
  ChildProcess child(shell("sleep 600 & echo $!; wait"));
  ASSERT_TRUE(child.wait_for_output("\n"));
  const pid_t grandchild = std::atoi(child.output().c_str());
  ASSERT_TRUE(alive(grandchild));
  child.stop();
  EXPECT_FALSE(child.running());
  EXPECT_TRUE(eventually([&] { return !alive(grandchild); }));
}

TEST(ChildProcess, AStubbornChildIsKilled) {
  ChildProcess child(shell("trap '' TERM; echo ready; while :; do sleep 1; done"));
  ASSERT_TRUE(child.wait_for_output("ready"));
  EXPECT_EQ(child.stop(milliseconds(100)), 128 + SIGKILL);
}

TEST(ChildProcess, ItDiesWithTheTestProcess) {
  const TempDir folder;
  const pid_t test_process = ::fork();
  if (test_process == 0) {
    ::setenv("TMPDIR", folder.path().c_str(), 1);  // so that what it can't remove goes with our own
    auto* child = new ChildProcess(shell("echo $$; exec sleep 600"));
    if (!child->wait_for_output("\n")) ::_exit(1);
    write_file(folder / "pid", child->output());
    ::kill(::getpid(), SIGKILL);  // no destructor runs
  }
  int status = 0;
  ASSERT_EQ(::waitpid(test_process, &status, 0), test_process);
  ASSERT_TRUE(WIFSIGNALED(status));
  const pid_t child = std::atoi(read_file(folder / "pid").c_str());
  ASSERT_GT(child, 0);
  EXPECT_TRUE(eventually([&] { return !alive(child); }));
}

TEST(ChildProcess, WaitingForAPortEndsWhenTheChildDoes) {
  ChildProcess child(shell("exit 3"));
  EXPECT_FALSE(child.wait_for_port(refused_port()));
  EXPECT_EQ(child.wait(), 3);
}

TEST(ChildProcess, NoDescriptorIsHandedDown) {
  const int open_here = ::dup(2);  // not marked for closing, as other libraries leave theirs
  const std::string listed = run_command({"ls", "/proc/self/fd"}).output;
  ::close(open_here);
  EXPECT_EQ(listed, "0\n1\n2\n3\n");  // 3 is the listing itself
}

TEST(Ports, AreDistinctAndFree) {
  const ReservedPorts row(20);
  const ReservedPorts other;
  EXPECT_EQ(row.last() - row.first(), 19);
  EXPECT_TRUE(other.first() < row.first() || other.first() > row.last());
  EXPECT_FALSE(port_is_open(row[3]));
  const ScriptedPeer::Options at_a_given_port{.port = row[3], .all_must_come = false};
  const ScriptedPeer peer(Script().stay_silent(), at_a_given_port);
  EXPECT_TRUE(port_is_open(row[3]));
}

TEST(NetworkNamespace, HasItsOwnLoopbackAndResolver) {
  YINET_REQUIRE_NETWORK_NAMESPACES();
  const TempDir folder;
  const auto resolver = folder.write("resolv.conf", "nameserver 127.0.0.1\n");
  const CommandResult up =
      run_command(in_network_namespace({"sh", "-c", "cat /etc/resolv.conf; ip -o link"}, true, resolver));
  EXPECT_TRUE(up.output.starts_with("nameserver 127.0.0.1\n1: lo: <LOOPBACK,UP")) << up.output << up.errors;
  EXPECT_EQ(up.output.find("2: "), std::string::npos) << up.output;
  const CommandResult down = run_command(in_network_namespace({"ip", "-o", "link"}, false));
  EXPECT_NE(down.output.find("state DOWN"), std::string::npos) << down.output << down.errors;
}

}  // namespace
}  // namespace yinet::test
