#include <CLI/CLI.hpp>

#include <arpa/inet.h>

#include <array>
#include <memory>
#include <string>

#include "command.h"
#include "terminal.h"
#include "yinet/dns/ynet_dns.h"
#include "yinet/host/messages.h"
#include "yinet/host/ylog.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet dns a www.example.com      prints one address
  yinet dns mx example.com         prints preference and name of each mail server, lowest first
  yinet --set DNS/Server=127.0.0.1:5353 dns a www.example.com

Exit status: 0 when something was found, 1 when not, 2 for a wrong call.)";

struct Question {
  std::string type;
  std::string name;
};

int print_address(const YString& name) {
  const in_addr address{YInetDNS.GetIPAdressForDomain(name)};
  if (address.s_addr == 0) return kFailed;
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &address, text.data(), text.size());
  print(std::string(text.data()) + "\n");
  return kSucceeded;
}

int print_mail_servers(const YString& name) {
  const YObjectArray servers = YInetDNS.GetMailServerForDomain(name);
  for (int i = 0; i < servers.Count(); ++i) {
    const YObject& server = *servers.ItemPtr(i);
    print(std::to_string(server.GetInteger("PRIO")) + " " + shown(server.GetString("SERVER")) + "\n");
  }
  return servers.Count() > 0 ? kSucceeded : kFailed;
}

// Says after each of the library's failures what can be done about it, such as what the status in its text means.
void print_with_cure(const LogRecord& record) {
  print_log(record);
  const MessageText* message = record.level > 0 ? find_message(record.number) : nullptr;
  if (message && !message->cure.empty()) remark(std::to_string(record.number) + ": " + std::string(message->cure));
}

int look_up(const Question& question) {
  set_log_sink(&print_with_cure);
  const YString name = to_ansi(question.name);
  return question.type == "a" ? print_address(name) : print_mail_servers(name);
}

}  // namespace

Command add_dns_command(CLI::App& program) {
  const auto question = std::make_shared<Question>();
  CLI::App* command = program.add_subcommand("dns", "Look up an address (a) or mail servers (mx)");
  command->footer(kExamples);
  command->add_option("TYPE", question->type, "What to look up")->required()->check(CLI::IsMember({"a", "mx"}));
  command->add_option("NAME", question->name, "Host or domain")->required()->type_name("");
  return {command, [question] { return look_up(*question); }};
}

}  // namespace yinet::cli
