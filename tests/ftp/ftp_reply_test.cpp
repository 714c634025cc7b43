#include "yinet/ftp/ftp_reply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace yinet {
namespace {

using State = FtpReplyReader::State;
using Pieces = std::vector<std::string>;

struct Case {
  const char* what;
  Pieces pieces;
  Pieces usual;  // the replies of the usual form, taken whenever one is whole; what is left is taken at the end
  Pieces exact;
};

Pieces replies(const Pieces& pieces, bool exact) {
  FtpReplyReader reader(exact);
  Pieces taken;
  for (const std::string& piece : pieces) {
    reader.feed(piece);
    while (reader.state() == State::whole) taken.push_back(reader.take());
  }
  if (reader.kept() > 0) taken.push_back("rest: " + reader.take());
  EXPECT_EQ(reader.state(), State::empty);
  return taken;
}

const Case kCases[] = {
    {"one reply", {"220 ready\r\n"}, {"220 ready\r\n"}, {"220 ready\r\n"}},
    {"a bare code", {"220\r\n"}, {"220\r\n"}, {"220\r\n"}},
    {"only a line feed", {"220 a\n"}, {"220 a\n"}, {"220 a\n"}},
    {"cut inside its line", {"22", "0 rea", "dy\r", "\n"}, {"220 ready\r\n"}, {"220 ready\r\n"}},
    {"two in one piece", {"150 here\r\n226 done\r\n"}, {"150 here\r\n", "226 done\r\n"}, {"150 here\r\n", "226 done\r\n"}},
    {"one and the beginning of another", {"150 here\r\n226 do", "ne\r\n"}, {"150 here\r\n", "226 done\r\n"},
     {"150 here\r\n", "226 done\r\n"}},
    {"several lines in one piece", {"230-Hi\r\n 231 there\r\n230-x\r\n230 ok\r\n"},
     {"230-Hi\r\n 231 there\r\n230-x\r\n230 ok\r\n"}, {"230-Hi\r\n 231 there\r\n230-x\r\n230 ok\r\n"}},
    {"another code does not end it", {"230-Hi\r\n226 no\r\n230 ok\r\n"}, {"230-Hi\r\n226 no\r\n230 ok\r\n"},
     {"230-Hi\r\n226 no\r\n230 ok\r\n"}},
    {"several lines, then another reply", {"230-a\r\n230 b\r\n250 c\r\n"}, {"230-a\r\n230 b\r\n", "250 c\r\n"},
     {"230-a\r\n230 b\r\n", "250 c\r\n"}},
    {"a first line without its end joins the next piece", {"220-Welcome", "220 ready\r\n"},
     {"rest: 220-Welcome220 ready\r\n"}, {"rest: 220-Welcome220 ready\r\n"}},
    {"text without any code", {"hello\r\n"}, {"hello\r\n"}, {"rest: hello\r\n"}},
    {"text before a reply", {"hello\r\n220 ok\r\n"}, {"hello\r\n220 ok\r\n"}, {"hello\r\n220 ok\r\n"}},
    {"text behind a reply goes with it", {"220 ok\r\nhello\r\n\r\n"}, {"220 ok\r\nhello\r\n\r\n"},
     {"220 ok\r\n", "rest: hello\r\n\r\n"}},
    {"digits that are no code", {"22 ok\r\n"}, {"22 ok\r\n"}, {"rest: 22 ok\r\n"}},
};

TEST(FtpReplyReader, CutsRepliesAsTheyCome) {
  for (const Case& c : kCases) {
    EXPECT_EQ(replies(c.pieces, false), c.usual) << c.what;
    EXPECT_EQ(replies(c.pieces, true), c.exact) << c.what;
  }
}

TEST(FtpReplyReader, TheExactFormDoesNotDependOnThePieces) {
  for (const Case& c : kCases) {
    std::string wire;
    for (const std::string& piece : c.pieces) wire += piece;
    Pieces single;
    for (const char byte : wire) single.emplace_back(1, byte);
    EXPECT_EQ(replies(single, true), c.exact) << c.what;
    for (std::size_t cut = 1; cut < wire.size(); ++cut)
      EXPECT_EQ(replies({wire.substr(0, cut), wire.substr(cut)}, true), c.exact) << c.what << " cut at " << cut;
  }
}

TEST(FtpReplyReader, AMultiLineReplyWithoutItsLastLineIsUnfinished) {
  FtpReplyReader reader;
  reader.feed("220-Welcome\r\n");
  EXPECT_EQ(reader.state(), State::unfinished);
  reader.feed("220-more");
  EXPECT_EQ(reader.state(), State::partial);
  reader.feed("\r\n220 go\r\n");
  EXPECT_EQ(reader.state(), State::whole);
  EXPECT_EQ(reader.take(), "220-Welcome\r\n220-more\r\n220 go\r\n");

  reader.feed("220-never ends\r\n");
  EXPECT_EQ(reader.take(), "220-never ends\r\n") << "what there is";
  reader.feed("331 next\r\n");
  EXPECT_EQ(reader.state(), State::whole) << "the open reply is forgotten";
}

TEST(FtpReplyReader, CostPerByteStaysFlat) {
  const auto seconds = [](std::size_t size) {
    const auto start = std::chrono::steady_clock::now();
    FtpReplyReader reader;
    for (std::size_t i = 0; i < size; ++i) reader.feed("x");
    for (std::size_t i = 0; i < size / 8; ++i) reader.feed("\r\n226 ab");
    while (reader.kept() > 0) reader.take();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  seconds(100'000);
  EXPECT_LT(seconds(800'000), 40 * seconds(100'000) + 0.05);
}

}  // namespace
}  // namespace yinet
