#include "yinet/host/messages.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "yinet/host/settings.h"
#include "yinet/host/text.h"
#include "yinet/host/ytextmanager.h"

namespace yinet {
namespace {

class MessagesTest : public testing::Test {
 protected:
  void TearDown() override {
    set_message_catalogue(nullptr);
    set_message_language(std::nullopt);
    set_setting("System", "Sprache", std::nullopt);
  }
};

// The placeholders of a text, padded forms by their number.
std::set<char> placeholders(std::string_view text) {
  std::set<char> found;
  for (std::size_t i = 0; i + 2 < text.size(); ++i)
    if (text[i] == '$' && is_digit(text[i + 1]) && (text[i + 2] == '$' || text[i + 2] == ':'))
      found.insert(text[i + 1]);
  return found;
}

TEST_F(MessagesTest, EveryNumberHasARowAndEveryRowANumber) {
  std::vector<int> rows;
  for (const auto& message : all_messages()) rows.push_back(message.number);
  EXPECT_THAT(rows, testing::ElementsAreArray(message::kAllNumbers));
  EXPECT_EQ(std::adjacent_find(rows.begin(), rows.end(), std::greater_equal<>()), rows.end());
}

TEST_F(MessagesTest, EveryRowIsComplete) {
  for (const auto& message : all_messages()) {
    EXPECT_THAT(message.level, testing::AnyOf(0, 2, 5, 6, 8)) << message.number;
    EXPECT_FALSE(message.german.empty() || message.english.empty()) << message.number;
    EXPECT_EQ(message.cure.empty(), message.level == 0) << message.number;
    EXPECT_EQ(placeholders(message.german), placeholders(message.english)) << message.number;
    const std::set<char> used = placeholders(message.english);
    EXPECT_TRUE(used.empty() || *used.rbegin() - '0' == static_cast<int>(used.size()))
        << message.number << " has a gap";
    EXPECT_EQ(std::string(message.german), printable(message.german)) << message.number;
  }
}

TEST_F(MessagesTest, LanguageFollowsTheSettingUnlessSet) {
  set_setting("System", "Sprache", "DE");
  EXPECT_EQ(YTextManager.GetYText(message::kHttpConnectFailed, "h"), "Die HTTP-Verbindung zu h ist fehlgeschlagen.");
  set_message_language(Language::english);
  EXPECT_EQ(YTextManager.GetYText(message::kHttpConnectFailed, "h"), "The HTTP connection to h failed.");
}

TEST_F(MessagesTest, APluggedCatalogueComesFirstAndMayFail) {
  set_message_catalogue([](int number) -> std::optional<std::string> {
    if (number == message::kHttpSendFailed) throw std::runtime_error("no");
    if (number == message::kHttpConnectFailed) return "nix mit $1$";
    return std::nullopt;
  });
  EXPECT_EQ(YTextManager.GetYText(message::kHttpConnectFailed, "h"), "nix mit h");
  EXPECT_EQ(YTextManager.GetYText(message::kHttpSendFailed, "h"), "The HTTP request to h could not be sent.");
  EXPECT_THAT(YTextManager.GetYText(1, "a").str(), testing::StartsWith("Message 1 a"));
}

}  // namespace
}  // namespace yinet
