#include "yinet/ftp/ftp_answers.h"

#include <array>
#include <charconv>
#include <limits>

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr int kHighestByte = 255;
constexpr int kHighestPort = 65535;
constexpr int kNumbersInAddress = 4;

// Decimal digits at the start of the text, a value above `most` cut down to it plus one. Empty without a digit.
std::optional<int> leading_number(std::string_view text, int most) {
  if (text.empty() || !is_digit(text.front())) return std::nullopt;
  int value = 0;
  for (const char c : text) {
    if (!is_digit(c)) break;
    value = value * 10 + (c - '0');
    if (value > most) return most + 1;
  }
  return value;
}

struct PortNumbers {
  std::string_view high;
  std::string_view low;
};

std::optional<PortNumbers> port_numbers(std::string_view answer) {
  const std::size_t last = answer.rfind(',');
  if (last == std::string_view::npos || last == 0) return std::nullopt;
  const std::size_t before = answer.rfind(',', last - 1);
  if (before == std::string_view::npos) return std::nullopt;
  return PortNumbers{answer.substr(before + 1, last - before - 1), answer.substr(last + 1)};
}

bool is_byte_number(std::string_view text) {
  const auto value = leading_number(text, kHighestByte);
  return value && *value <= kHighestByte;
}

}  // namespace

std::string_view passive_address_numbers(std::string_view answer) {
  const std::size_t open = answer.find('(');
  if (open == std::string_view::npos) return {};
  std::size_t fourth = std::string_view::npos;
  int commas = 0;
  for (std::size_t i = open; i < answer.size(); ++i) {
    if (answer[i] != ',') continue;
    ++commas;
    if (commas == kNumbersInAddress) fourth = i;
    // Answers with more than six numbers keep one more pair here; nothing connects to such an address.
    if (commas == kNumbersInAddress + 2) return answer.substr(open + 1, i - open - 1);
  }
  return fourth == std::string_view::npos ? std::string_view() : answer.substr(open + 1, fourth - open - 1);
}

std::string passive_address(std::string_view answer) {
  std::string address(passive_address_numbers(answer));
  for (char& c : address)
    if (c == ',') c = '.';
  return address;
}

int passive_port(std::string_view answer) {
  const auto numbers = port_numbers(answer);
  if (!numbers) return 0;
  const int high = leading_number(numbers->high, kHighestPort).value_or(0);
  const int low = leading_number(numbers->low, kHighestPort).value_or(0);
  return high * (kHighestByte + 1) + low;
}

std::string_view passive_port_text(std::string_view answer) {
  constexpr std::size_t kBehindPort = 4;  // ")." and the line end
  const auto numbers = port_numbers(answer);
  if (!numbers) return {};
  const auto begin = static_cast<std::size_t>(numbers->high.data() - answer.data());
  return begin + kBehindPort > answer.size() ? std::string_view()
                                             : answer.substr(begin, answer.size() - kBehindPort - begin);
}

std::optional<DataAddress> usable_passive_address(std::string_view answer) {
  DataAddress found;
  std::size_t count = 0;
  std::string_view rest = passive_address_numbers(answer);
  if (rest.empty()) return std::nullopt;
  while (true) {
    const std::size_t comma = rest.find(',');
    const std::string_view number = trimmed(rest.substr(0, comma));
    const auto value = leading_number(number, kHighestByte);
    if (!value || *value > kHighestByte || number.find_first_not_of("0123456789") != std::string_view::npos) {
      return std::nullopt;
    }
    // Written anew: address readers take leading zeros for octal numbers.
    found.host += (count++ == 0 ? "" : ".") + std::to_string(*value);
    if (count > kNumbersInAddress) return std::nullopt;
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  const auto numbers = port_numbers(answer);
  if (count != kNumbersInAddress || !numbers || !is_byte_number(numbers->high) || !is_byte_number(numbers->low)) {
    return std::nullopt;
  }
  found.port = passive_port(answer);
  if (found.port == 0) return std::nullopt;
  return found;
}

std::optional<DataAddress> usable_extended_address(std::string_view answer) {
  const std::size_t open = answer.find('(');
  if (open == std::string_view::npos || answer.size() < open + 5) return std::nullopt;
  std::string_view inside = answer.substr(open + 1);
  const char delimiter = inside.front();
  if (is_digit(delimiter) || inside[1] != delimiter || inside[2] != delimiter) return std::nullopt;
  inside.remove_prefix(3);
  const std::size_t end = inside.find(delimiter);
  const auto port = leading_number(inside, kHighestPort);
  if (end == std::string_view::npos || !port || *port == 0 || *port > kHighestPort) return std::nullopt;
  if (inside.substr(0, end).find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  return DataAddress{{}, *port};
}

std::int64_t size_in_answer(std::string_view answer, std::size_t position) {
  if (position >= answer.size()) return 0;
  const std::string_view text = trimmed_front(answer.substr(position));
  if (text.starts_with('-')) return -1;
  std::int64_t size = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
  return error == std::errc::result_out_of_range ? -1 : size;
}

HostAndPort split_host_and_port(std::string_view text) {
  if (text.starts_with('[')) {
    const std::size_t close = text.find(']');
    if (close != std::string_view::npos) {
      const std::string_view rest = text.substr(close + 1);
      const std::string_view port = rest.starts_with(':') ? rest.substr(1) : std::string_view();
      return {std::string(text.substr(1, close - 1)), leading_int32(port)};
    }
  }
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return {std::string(text), 0};
  return {std::string(text.substr(0, colon)), leading_int32(text.substr(colon + 1))};
}

}  // namespace yinet
