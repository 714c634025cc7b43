#include "yinet/mime/mail_parser.h"

#include <gmock/gmock.h>

#include <chrono>

namespace {

TEST(MailParser, DisplayName) {
  struct Case {
    const char *address, *name;
  };
  const Case cases[] = {
      {"\"Meier, Eva\" <eva@example.org>", "Meier, Eva"},
      {"  Eva Meier\t<eva@example.org>", "Eva Meier"},
      {"eva@example.org", ""},
      {"<eva@example.org>", ""},
      {"", ""},
      {"\" Eva \" <e@x>", "Eva"},
      {"\"\"Eva\"\" <e@x>", "\"Eva\""},  // one pair only
      {"\"Eva <e@x>", "\"Eva"},
      {"\" <e@x>", "\""},                // a single quote is no pair
      {"\"\" <e@x>", ""},
      {"Eva <a> <b>", "Eva"},
  };
  for (const Case& c : cases) EXPECT_EQ(MailParser.ExtractDisplayName(c.address), c.name) << c.address;
}

TEST(MailParser, MailAddresses) {
  struct Case {
    const char *list, *separator, *addresses;
  };
  const Case cases[] = {
      {"Eva <e@x.de>,\"Max\" <m@x.de>", ";", "e@x.de;m@x.de"},
      {"e@x.de, m@x.de", ";", "e@x.de; m@x.de"},
      {"\"Meier, Eva\" <e@x.de>", ";", "\"Meier;e@x.de"},
      {"Eva <e@x.de", "|", "Eva <e@x.de"},
      {"> <e@x.de>", "|", "e@x.de"},
      {"<>", ";", ""},
      {"a,,b,", " - ", "a -  - b - "},
      {"a,b", "", "ab"},
      {"", ";", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(MailParser.ExtractMailAddress(c.list, c.separator), c.addresses) << c.list;
}

std::vector<std::string> fields_of(std::string_view header) {
  const YObject record = MailParser.ParseMailHeader(header);
  std::vector<std::string> fields;
  for (int i = 0; i < record.GetStringKeyCount(); ++i)
    fields.push_back(record.GetStringKey(i).str() + "=" + record.FindAt<YString>(i)->str());
  return fields;
}

TEST(MailParser, HeaderFields) {
  struct Case {
    const char* header;
    std::vector<std::string> fields;
  };
  const Case cases[] = {
      {"", {}},
      {"Subject: Hallo", {"Subject=Hallo"}},
      {"Subject: Hallo\r\n\tWelt\r\n", {"Subject=Hallo\tWelt"}},
      {"Subject:  two blanks \r\n  more: text", {"Subject= two blanks   more: text"}},
      {"A: 1\r\nB:2\r\nC: 3", {"A=1B:2", "C=3"}},
      {"Received: one\r\nTo: x\r\nReceived: two\r\nreceived: three",
       {"Received=one\r\ntwo\r\nthree", "To=x"}},
      {"no field yet\r\n folded: x\r\nA: 1", {"A=1"}},
      {"A: b: c", {"A=b: c"}},
      {"A: 1\r\n\r\nbody: text", {"A=1", "body=text"}},
      {": nameless\r\nlost\r\nA: 1", {"A=1"}},
      {"A: \r\nB: x", {"A=", "B=x"}},
      {"A: one\x01two: three", {"A=one\x01two: three"}},
      {"A: one\nB: two\rC: x", {"A=one\nB: two\rC: x"}},  // only CRLF ends a line
  };
  for (const Case& c : cases) EXPECT_THAT(fields_of(c.header), testing::ElementsAreArray(c.fields)) << c.header;
}

TEST(MailParser, CostStaysFlat) {
  std::string same_name;
  for (int i = 0; i < 200'000; ++i) same_name += "Received: by somebody\r\n";
  std::string folded = "Subject: x";
  while (folded.size() < (5U << 20)) folded += "\r\n more";
  for (const std::string& header : {same_name, folded}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(MailParser.ParseMailHeader(header).GetStringKeyCount(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  }
}

}  // namespace
