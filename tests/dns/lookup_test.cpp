// Lookups through real sockets: a real DNS server, and one that does what real ones won't.

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <thread>

#include "support/dns_server.h"
#include "support/log_capture.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/resource_check.h"
#include "yinet/dns/ynet_dns.h"
#include "yinet/host/messages.h"
#include "yinet/host/setting_table.h"

namespace yinet {
namespace {

using namespace testing;
using namespace yinet::test;
using namespace std::string_literals;

class Lookup : public Test {
 protected:
  ~Lookup() override {
    for (const Setting* setting : {&settings::kDnsServers, &settings::kDnsTimeout, &settings::kDnsTries})
      set_setting(setting->section, setting->name, std::nullopt);
  }

  static void set(const Setting& setting, std::string value) { set_setting(setting.section, setting.name, value); }
  static void use_servers(const std::string& servers) { set(settings::kDnsServers, servers); }

  static std::string address_of(const YString& name) {
    const in_addr address{YInetDNS.GetIPAdressForDomain(name)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return address.s_addr ? inet_ntop(AF_INET, &address, text.data(), text.size()) : "";
  }
  static std::vector<std::string> mail_servers_of(const YString& name) {
    std::vector<std::string> lines;
    const YObjectArray servers = YInetDNS.GetMailServerForDomain(name);
    for (int i = 0; i < servers.Count(); ++i)
      lines.push_back(std::to_string(*servers.ItemPtr(i)->Find<std::int32_t>("PRIO")) + " " +
                      servers.ItemPtr(i)->Find<YString>("SERVER")->str());
    return lines;
  }
  // The status in the one message that a failed lookup raises.
  std::string failure_of(const YString& name) {
    log_.clear();
    EXPECT_EQ(address_of(name), "");
    EXPECT_THAT(log_.numbers(), ElementsAre(message::kDnsQueryFailed));
    const LogRecord record = log_.last(message::kDnsQueryFailed);
    EXPECT_EQ(record.level, 6);
    const std::string status = record.text.substr(record.text.rfind("status "));
    return status.substr(7, status.find(')') - 7);
  }

  LogCapture log_;
};

DnsHandler answering(const std::string& address) {
  return [address](const DnsQuery& query) { return DnsMessage::reply_to(query).a(query.name, address).bytes(); };
}

DnsHandler answering_code(unsigned code) {
  return [code](const DnsQuery& query) { return DnsMessage::reply_to(query).code(code).bytes(); };
}

std::string silence(const DnsQuery&) { return {}; }

TEST_F(Lookup, ARealServerAnswers) {
  YINET_REQUIRE_PROGRAM("knotd");
  std::string many_addresses;
  for (int i = 100; i < 200; ++i) many_addresses += "many A 192.0.2." + std::to_string(i) + "\n";
  const KnotServer knot({{"x.test",
                          "www CNAME one\none CNAME two\ntwo A 192.0.2.1\ntwo A 192.0.2.9\ntext TXT \"t\"\n"
                          "loop CNAME pool\npool CNAME loop\nlost CNAME nowhere\n@ MX 20 slow\n@ MX 10 fast\n"
                          "none MX 0 .\n" +
                              many_addresses},
                         {"broken.test", std::nullopt}});
  use_servers(knot.target());
  EXPECT_EQ(address_of("many.x.test"), "192.0.2.199") << "too long for UDP";
  EXPECT_EQ(address_of("www.x.test"), "192.0.2.9");
  EXPECT_EQ(address_of("WWW.X.test."), "192.0.2.9");
  EXPECT_THAT(mail_servers_of("x.test"), ElementsAre("10 fast.x.test", "20 slow.x.test"));
  EXPECT_THAT(mail_servers_of("none.x.test"), ElementsAre("0 "));
  EXPECT_THAT(log_.numbers(), IsEmpty());

  const std::pair<const char*, const char*> failures[] = {{"nosuch.x.test", "9003"},   {"lost.x.test", "9003"},
                                                          {"text.x.test", "9501"},     {"loop.x.test", "9501"},
                                                          {"www.broken.test", "9002"}, {"www.elsewhere.test", "9005"}};
  for (const auto& [name, status] : failures) EXPECT_EQ(failure_of(name), status) << name;
  log_.clear();
  EXPECT_THAT(mail_servers_of("nosuch.x.test"), IsEmpty());
  EXPECT_THAT(log_.last(message::kDnsQueryFailed).text, HasSubstr("nosuch.x.test"));
}

TEST_F(Lookup, EqualPreferencesKeepTheOrderOfTheAnswer) {
  ScriptedDnsServer server([](const DnsQuery& query) {
    return DnsMessage::reply_to(query).mx(query.name, 20, "z").mx(query.name, 9, "c").mx(query.name, 20, "a").bytes();
  });
  use_servers(server.target());
  EXPECT_THAT(mail_servers_of("x.test"), ElementsAre("9 c", "20 z", "20 a"));
}

TEST_F(Lookup, EveryLookupAsksForTheNameInUtf8AndSomeAskNobody) {
  ScriptedDnsServer server(answering("192.0.2.1"));
  use_servers(server.target());
  EXPECT_EQ(address_of("198.51.100.7"), "198.51.100.7");
  EXPECT_EQ(address_of("LocalHost."), "127.0.0.1");
  for (const std::string& name : {""s, "a\r\nb"s, "1.2.3.4\0"s}) EXPECT_EQ(failure_of(YString(name)), "123") << name;
  EXPECT_THAT(server.queries(), IsEmpty());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(address_of("m\xFCller.test"), "192.0.2.1");
  ASSERT_EQ(server.queries().size(), 2U);
  EXPECT_EQ(server.queries()[1].name, "m\xC3\xBCller.test");
  use_servers("nobody knows");
  log_.clear();
  EXPECT_EQ(address_of("x.test"), "");
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kDnsLibraryFailed));
}

TEST_F(Lookup, ASilentServerIsRepeatedWithinTheLimit) {
  ScriptedDnsServer server(silence);
  const ResourceCheck check;
  use_servers(server.target());
  set(settings::kDnsTimeout, "400");
  set(settings::kDnsTries, "3");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(failure_of("x.test"), "1460");
  const auto passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed, std::chrono::milliseconds(390));
  EXPECT_LT(passed, std::chrono::milliseconds(4000));
  EXPECT_EQ(server.queries().size(), 3U);
}

TEST_F(Lookup, LiesEndInAStatus) {
  set(settings::kDnsTimeout, "600");
  const auto cut = [](std::size_t kept) {
    return [kept](const DnsQuery& query) { return answering("192.0.2.7")(query).substr(0, kept); };
  };
  const auto as_if = [](int id, const char* name) {
    return [id, name](const DnsQuery& query) {
      return answering("192.0.2.7")({.id = static_cast<std::uint16_t>(query.id + id), .name = name, .type = 1});
    };
  };
  const std::pair<DnsHandler, std::string> lies[] = {
      {as_if(1, "x.test"), "1460"},
      {as_if(0, "other.test"), "1460"},
      {cut(5), "1460"},  // not even a whole header: never taken for an answer
      {cut(40), "9002"},
      {[](const DnsQuery& query) { return DnsMessage::reply_to(query).cname(query.name, "elsewhere.test").bytes(); },
       "9501"},
      // The rest would have to come over TCP, which is refused.
      {[](const DnsQuery& query) { return DnsMessage::reply_to(query).truncated().bytes(); }, "9002"}};
  for (const auto& [handler, status] : lies) {
    ScriptedDnsServer server(handler);
    use_servers(server.target());
    EXPECT_EQ(failure_of("x.test"), status);
  }
}

TEST_F(Lookup, TheNextServerIsAskedUntilOneKnows) {
  ScriptedDnsServer silent(silence), refusing(answering_code(5)), failing(answering_code(2)),
      denying(answering_code(3)), knowing(answering("192.0.2.5"));
  set(settings::kDnsTimeout, "2000");
  const std::string closed = "127.0.0.1:" + std::to_string(refused_port());
  use_servers(closed + "," + silent.target() + "," + refusing.target() + "," + failing.target() + "," +
              knowing.target());
  EXPECT_EQ(address_of("x.test"), "192.0.2.5");
  EXPECT_THAT(log_.numbers(), IsEmpty());
  use_servers(denying.target() + "," + knowing.target());  // that there is no such name is knowledge, too
  EXPECT_EQ(failure_of("x.test"), "9003");
  set(settings::kDnsTimeout, "600");
  use_servers(silent.target() + "," + refusing.target());
  EXPECT_EQ(failure_of("x.test"), "9005");
  EXPECT_EQ(refusing.queries().size(), 2U);  // one for each lookup: who has answered is not asked again
  use_servers(closed);
  EXPECT_EQ(failure_of("x.test"), "9002");
}

TEST_F(Lookup, ManyThreadsMayAskAtOnce) {
  ScriptedDnsServer server(
      [](const DnsQuery& query) { return answering("192.0.2." + query.name.substr(0, query.name.find('.')))(query); });
  use_servers(server.target());
  std::vector<std::jthread> threads;
  for (int t = 1; t <= 8; ++t)
    threads.emplace_back([t] {
      const std::string number = std::to_string(t);
      for (int i = 0; i < 25; ++i) EXPECT_EQ(address_of(YString(number + ".test")), "192.0.2." + number);
    });
  for (std::jthread& thread : threads) thread.join();
}

}  // namespace
}  // namespace yinet
