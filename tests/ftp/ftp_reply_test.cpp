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

// The replies, taken whenever one is whole; what is left at the end comes with its state.
Pieces replies(const Pieces& pieces, bool exact) {
  FtpReplyReader reader(exact);
  Pieces taken;
  for (const std::string& piece : pieces) {
    reader.feed(piece);
    while (reader.state() == State::whole) taken.push_back(reader.take());
  }
  const char* const rest = reader.state() == State::unfinished ? "unfinished: " : "partial: ";
  if (reader.kept() > 0) taken.push_back(rest + reader.take());
  EXPECT_EQ(reader.state(), State::empty);
  return taken;
}

const struct Case {
  Pieces pieces, usual, exact;
} kCases[] = {
    {{"220 a\n"}, {"220 a\n"}, {"220 a\n"}},
    {{"220\r\n"}, {"220\r\n"}, {"220\r\n"}},
    {{"22", "0 rea", "dy\r", "\n"}, {"220 ready\r\n"}, {"220 ready\r\n"}},
    {{"150 here\r\n226 do", "ne\r\n"}, {"150 here\r\n", "226 done\r\n"}, {"150 here\r\n", "226 done\r\n"}},
    {{"230-Hi\r\n 231 there\r\n226 no\r\n230-x\r\n230 ok\r\n250 c\r\n"},
     {"230-Hi\r\n 231 there\r\n226 no\r\n230-x\r\n230 ok\r\n", "250 c\r\n"},
     {"230-Hi\r\n 231 there\r\n226 no\r\n230-x\r\n230 ok\r\n", "250 c\r\n"}},
    {{"220-a\r\n", "220-b", "\r\n220 c\r\n"}, {"220-a\r\n220-b\r\n220 c\r\n"}, {"220-a\r\n220-b\r\n220 c\r\n"}},
    {{"220-Welcome", "220 ready\r\n"}, {"unfinished: 220-Welcome220 ready\r\n"}, {"unfinished: 220-Welcome220 ready\r\n"}},
    {{"220-a\r\n", "220-b"}, {"partial: 220-a\r\n220-b"}, {"partial: 220-a\r\n220-b"}},
    {{"hello\r\n"}, {"hello\r\n"}, {"unfinished: hello\r\n"}},
    {{"hello\r\n220 ok\r\n"}, {"hello\r\n220 ok\r\n"}, {"hello\r\n220 ok\r\n"}},
    {{"220 ok\r\nhello\r\n\r\n"}, {"220 ok\r\nhello\r\n\r\n"}, {"220 ok\r\n", "unfinished: hello\r\n\r\n"}},
    {{"22 ok\r\n"}, {"22 ok\r\n"}, {"unfinished: 22 ok\r\n"}},
};

TEST(FtpReplyReader, CutsRepliesAsTheyCome) {
  for (const Case& c : kCases) {
    EXPECT_EQ(replies(c.pieces, false), c.usual);
    EXPECT_EQ(replies(c.pieces, true), c.exact);
  }
}

TEST(FtpReplyReader, TheExactFormDoesNotDependOnThePieces) {
  for (const Case& c : kCases) {
    std::string wire;
    for (const std::string& piece : c.pieces) wire += piece;
    Pieces single;
    for (const char byte : wire) single.emplace_back(1, byte);
    EXPECT_EQ(replies(single, true), c.exact);
    for (std::size_t cut = 1; cut < wire.size(); ++cut)
      EXPECT_EQ(replies({wire.substr(0, cut), wire.substr(cut)}, true), c.exact) << " cut at " << cut;
  }
}

TEST(FtpReplyReader, AnOpenReplyThatWasTakenIsForgotten) {
  FtpReplyReader reader;
  reader.feed("220-never ends\r\n");
  EXPECT_EQ(reader.take(), "220-never ends\r\n") << "what there is";
  reader.feed("331 next\r\n");
  EXPECT_EQ(reader.state(), State::whole);
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
