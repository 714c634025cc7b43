#include <gtest/gtest.h>

#include "yinet/host/ybuffer.h"
#include "yinet/host/ystring.h"

namespace {

TEST(YString, RangesNameBothEndsAndClip) {
  const YString text("abcdef");
  const struct {
    int first, last;
    const char *copied, *left;
  } kRows[] = {{0, 0, "a", "bcdef"}, {4, -1, "ef", "abcd"},  {-3, 1, "ab", "cdef"},
               {6, 9, "", "abcdef"}, {5, 99, "f", "abcde"}, {3, 1, "", "abcdef"}};
  for (const auto& row : kRows) {
    EXPECT_EQ(text.Copy(row.first, row.last), row.copied) << row.first;
    YString rest = text;
    rest.Delete(row.first, row.last);
    EXPECT_EQ(rest, row.left) << row.first;
  }
}

TEST(YString, SearchesAndReplaces) {
  YString text("Gr\xFC\xDF" "e GR\xDC\xDF" "E");
  EXPECT_EQ(text.FindIC("gr\xDC", 1), 6);
  EXPECT_EQ(text.Find(""), -1);
  EXPECT_EQ(text.Find("G", 99), -1);
  EXPECT_EQ(YString("abc").Compare("ABD", 1, 2), 0);
  EXPECT_LT(YString("abc").Compare("ABD", 1, -1), 0);
  text = "aXaxa";
  EXPECT_EQ(text.Replace("x", "xx", true), 2);
  EXPECT_EQ(text, "axxaxxa");
  EXPECT_EQ(text.Replace("", "y"), 0);
  text = "\xE4";
  EXPECT_TRUE(text.ConvertCharset(0, 5));
  EXPECT_FALSE(text.ConvertCharset(0, 77));
  EXPECT_EQ(text, "\xC3\xA4");
}

TEST(YString, ItemListsFollowTheirDelimiters) {
  YString list;
  EXPECT_EQ(list.GetItemCount(), 0);
  for (const char* item : {"one", "", " three "}) list.AddItem(item);
  EXPECT_EQ(list, "one\x01\x01 three ");
  EXPECT_EQ(list.GetItem(2), " three ");
  EXPECT_EQ(list.GetItem(3), "");
  EXPECT_EQ(list.GetItem(-1), "");
  YString set(" a;b,\tc");
  set.ItemDelimiter(";,");
  set.ItemDeleteBlanks(true);
  EXPECT_EQ(set.Items(), (std::vector<std::string_view>{"a", "b", "c"}));
}

TEST(YBuffer, NewBytesAreZeroAndMovesStayInside) {
  YBuffer buffer("abc");
  buffer.SetSize(1);
  buffer.SetSize(4);
  EXPECT_EQ(buffer.view(), std::string_view("a\0\0\0", 4));
  buffer.SetSize(2, false);
  EXPECT_EQ(buffer.view(), std::string_view("\0\0", 2));
  buffer.SetSize(-1);
  EXPECT_EQ(buffer.Size(), 0);
  buffer = YBuffer("0123456789");
  for (int i = 0; i < 5; ++i) buffer.Add(buffer);
  EXPECT_EQ(buffer.toString(310), "0123456789");
  buffer.Move(2, 0, 4);
  EXPECT_EQ(buffer.toString(0, 6), "0101236");
  buffer.Move(318, 0, 99);
  EXPECT_EQ(buffer.toString(318, -1), "01");
  EXPECT_EQ(buffer.GetChar(-1), '\0');
  YBuffer taken;
  taken.Move(buffer);
  EXPECT_TRUE(buffer.Size() == 0 && taken.Size() == 320);
}

}  // namespace
