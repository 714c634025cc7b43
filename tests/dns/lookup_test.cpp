// Answers byte by byte, and lookups through real sockets: a real DNS server, and one that does what real ones won't.

#include <gmock/gmock.h>

#include <chrono>
#include <list>

#include "dns/dns_servers.h"
#include "support/log_capture.h"
#include "support/requirements.h"
#include "support/resource_check.h"
#include "yinet/dns/dns_names.h"
#include "yinet/dns/dns_reply.h"
#include "yinet/yinet.h"

namespace yinet {
namespace {

using namespace testing;
using namespace yinet::test;
using namespace std::string_literals;

class Lookup : public Test {
 protected:
  static void use_servers(const std::string& servers) { set_setting("DNS", "Server", servers); }

  static std::string address_of(const YString& name) {
    const in_addr address{YInetDNS.GetIPAdressForDomain(name)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return address.s_addr ? inet_ntop(AF_INET, &address, text.data(), text.size()) : "";
  }
  static std::string mail_servers_of(const YString& name) {
    YString all;
    const YObjectArray servers = YInetDNS.GetMailServerForDomain(name);
    for (int i = 0; i < servers.Count(); ++i)
      all += servers.ItemPtr(i)->GetString("PRIO") + " " + servers.ItemPtr(i)->GetString("SERVER") + ",";
    return all.str();
  }
  // The status in the one message that a failed lookup raises.
  int failure_of(const YString& name) {
    log_.clear();
    EXPECT_EQ(address_of(name), "");
    const LogRecord record = log_.last(message::kDnsQueryFailed);
    EXPECT_TRUE(log_.numbers().size() == 1 && record.level == 6);
    return std::stoi(record.text.substr(record.text.rfind("(status ") + 8));
  }

  LogCapture log_;
};

DnsHandler answering(const std::string& address, unsigned code = 0) {
  return [=](const DnsQuery& query) { return dns_reply(query, {a_record(query.name, address)}, code); };
}

std::string silence(const DnsQuery&) { return {}; }

TEST(SearchList, IsForNamesWithFewDotsAndLeavesOutWhatIsTooLong) {
  const std::vector<std::string> domains = {"one.test", std::string(250, 'd'), "two.test"};
  EXPECT_THAT(names_to_ask("www", domains, 1), ElementsAre("www.one.test", "www.two.test", "www"));
  EXPECT_THAT(names_to_ask("www.x", domains, 2), ElementsAre("www.x.one.test", "www.x.two.test", "www.x"));
}

TEST(DnsReply, EveryTruncationIsAServerFailure) {
  const std::pair<RecordType, std::string> wholes[] = {
      {RecordType::a,
       dns_reply({7, "x.test", kDnsA}, {a_record("x.test", "192.0.2.1"), a_record("x.test", "192.0.2.9")})},
      {RecordType::mx,
       dns_reply({7, "x.test", kDnsMx}, {mx_record("x.test", 20, "a.test"), mx_record("x.test", 9, "b.test")})}};
  for (const auto& [type, whole] : wholes)
    for (std::size_t kept = 0; kept <= whole.size(); ++kept) {
      const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(kept));
      const auto status = kept < whole.size() ? LookupStatus::server_failure : LookupStatus::found;
      DnsRecords records;
      EXPECT_EQ(read_reply(type, {exact.data(), kept}, records), status) << kept;
    }
}

TEST_F(Lookup, ARealServerAnswers) {
  YINET_REQUIRE_PROGRAM("knotd");
  std::string zone =
      "www CNAME one\none CNAME two\ntwo A 192.0.2.1\ntwo A 192.0.2.9\ntext TXT \"t\"\nloop CNAME pool\n"
      "pool CNAME loop\nlost CNAME nowhere\n@ MX 20 slow\n@ MX 10 fast\nnone MX 0 .\n";
  for (int i = 100; i < 200; ++i) zone += "many A 192.0.2." + std::to_string(i) + "\n";
  const KnotServer knot({{"x.test", zone}, {"broken.test", std::nullopt}});
  use_servers(knot.address());
  EXPECT_EQ(address_of("many.x.test"), "192.0.2.199") << "too long for UDP";
  EXPECT_EQ(address_of("WWW.X.test."), "192.0.2.9");
  EXPECT_EQ(mail_servers_of("x.test") + mail_servers_of("none.x.test"), "10 fast.x.test,20 slow.x.test,0 ,");
  EXPECT_THAT(log_.numbers(), IsEmpty());
  const std::pair<const char*, int> failures[] = {{"nosuch.x.test", 9003},   {"lost.x.test", 9003},
                                                  {"text.x.test", 9501},     {"loop.x.test", 9501},
                                                  {"www.broken.test", 9002}, {"www.elsewhere.test", 9005}};
  for (const auto& [name, status] : failures) EXPECT_EQ(failure_of(name), status) << name;
  EXPECT_EQ(mail_servers_of("nosuch.x.test"), "");
  EXPECT_THAT(log_.last(message::kDnsQueryFailed).text, HasSubstr("nosuch.x.test"));
}

TEST_F(Lookup, AddressesAndImpossibleNamesAreNotAskedForAllOthersEveryTimeInUtf8) {
  ScriptedDnsServer server([](const DnsQuery& query) {
    if (query.type == kDnsA) return dns_reply(query, {a_record(query.name, "192.0.2.1")});
    const auto mx = [&](std::uint16_t preference, const char* name) { return mx_record(query.name, preference, name); };
    return dns_reply(query, {mx(20, "z"), mx(9, "c"), mx(20, "a")});
  });
  use_servers(server.target());
  for (const char* dotted : {"198.51.100.7", "255.255.255.255"}) EXPECT_EQ(address_of(dotted), dotted);
  EXPECT_EQ(address_of("LocalHost."), "127.0.0.1");
  const std::string label(63, 'a'), longest = label + "." + label + "." + label + "." + std::string(61, 'a');
  for (const std::string& name : {""s, "."s, "a..b"s, ".a"s, "a b"s, "a\r\nb"s, "a\\b"s, "a:53"s, "\x7F"s, " 1.2.3.4"s,
                                  "::1"s, "1.2.3.4\0"s, label + "a.test", longest + "a"})
    EXPECT_TRUE(failure_of(name) == 123 && !is_askable_name(name)) << name;
  EXPECT_THAT(server.queries(), IsEmpty());
  for (const std::string& name : {"_sip.x"s, "1.2.3"s, "1.2.3.4.5"s, "1.2.3.256"s, "01.2.3.4"s, "0x1.2.3.4"s, "12345"s,
                                  "m\xFCller.test"s, "m\xFCller.test"s})
    EXPECT_EQ(address_of(name), "192.0.2.1") << name;
  EXPECT_TRUE(server.queries().size() >= 9 && server.queries().back().name == "m\xC3\xBCller.test");
  EXPECT_TRUE(is_askable_name(longest + "."));
  EXPECT_EQ(mail_servers_of("x.test"), "9 c,20 z,20 a,") << "equal ones in the answer's order";
}

TEST_F(Lookup, SilenceAndLiesEndInAStatusUnlessTheNextServerKnows) {
  set_setting("DNS", "Zeitlimit", "600");
  set_setting("DNS", "Versuche", "3");
  const auto as_if = [](std::uint16_t wrong, const char* name) {
    return [=](DnsQuery query) { return query.id ^= wrong, query.name = name, answering("192.0.2.7")(query); };
  };
  const DnsHandler closed, knowing = answering("192.0.2.5"), refusing = answering("192.0.2.7", 5);
  // Servers, what comes out, and how often the last one is asked: who has answered is not asked again.
  const std::tuple<std::vector<DnsHandler>, std::string, std::size_t> rows[] = {
      {{closed, silence, refusing, answering("192.0.2.7", 2), knowing}, "192.0.2.5", 1},
      {{answering("192.0.2.7", 3), knowing}, "9003", 0},
      {{silence, refusing}, "9005", 1},
      {{closed}, "9002", 0},
      {{silence}, "1460", 3},
      {{as_if(1, "x.test")}, "1460", 3},
      {{as_if(0, "other.test")}, "1460", 3},
      {{[](const DnsQuery&) { return "cut"s; }}, "1460", 3},  // never taken for an answer
      // The rest would have to come over TCP, which is refused.
      {{[](const DnsQuery& query) { return dns_reply(query, {}, kDnsTruncated); }}, "9002", 1}};
  const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
  for (const auto& [handlers, outcome, queries] : rows) {
    std::list<ScriptedDnsServer> servers;
    std::string targets;
    for (const DnsHandler& handler : handlers)
      targets += (handler ? servers.emplace_back(handler).target() : refused) + ",";
    use_servers(targets);
    const ResourceCheck check;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome == "192.0.2.5" ? address_of("x.test") : std::to_string(failure_of("x.test")), outcome);
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(passed < milliseconds(4000) && (outcome != "1460" || passed > milliseconds(590)));
    EXPECT_EQ(servers.empty() ? 0 : servers.back().queries().size(), queries) << outcome;
  }
}

TEST_F(Lookup, SettingsThatMakeNoSenseNeitherAskStrangersNorTakeForEver) {
  for (const char* servers : {"127.0.0.1.5", "127.0.0.1:99999", "127.0.0.1:5x", "[::1", "[::1]5", "127.0.0.1,a"}) {
    use_servers(servers);
    EXPECT_EQ(address_of("x.test"), "") << servers;
    EXPECT_EQ(log_.numbers().back(), message::kDnsLibraryFailed) << servers;
  }
  const char* const most = "9223372036854775807";
  ScriptedDnsServer quiet(silence), knowing(answering("192.0.2.5"));
  for (const auto& [server, limit, tries] :
       {std::tuple(&quiet, "300", most), {&quiet, "3", "200000"}, {&knowing, most, "1"}}) {
    use_servers(" " + server->target() + " , ");
    set_setting("DNS", "Zeitlimit", limit);
    set_setting("DNS", "Versuche", tries);
    EXPECT_EQ(address_of("x.test"), server == &knowing ? "192.0.2.5" : "") << limit;
  }
  EXPECT_LE(quiet.queries().size(), 200U);
}

TEST_F(Lookup, ManyThreadsMayAskAtOnce) {
  ScriptedDnsServer server(
      [](const DnsQuery& query) { return answering("192.0.2." + query.name.substr(0, query.name.find('.')))(query); });
  use_servers(server.target());
  std::list<std::jthread> threads;
  for (int t = 1; t <= 8; ++t)
    threads.emplace_back([number = std::to_string(t)] {
      for (int i = 0; i < 25; ++i) EXPECT_EQ(address_of(number + ".test"), "192.0.2." + number);
    });
}

}  // namespace
}  // namespace yinet
