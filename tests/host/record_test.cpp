#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "yinet/host/text.h"
#include "yinet/host/yjson.h"
#include "yinet/host/yobject.h"

namespace {

TEST(YObject, PointersOutliveWhatHappensToOtherEntries) {
  YObject record;
  auto* status = static_cast<YString*>(record.Set("pStatus", yinet::kTypeString, nullptr, 0));
  auto* answer = static_cast<YObject*>(record.Set("pErg", yinet::kTypeObject, nullptr, 0));
  for (int i = 0; i < 1000; ++i) record.Store<std::int32_t>("n" + std::to_string(i), i);
  for (int i = 0; i < 1000; i += 2) record.Delete("n" + std::to_string(i));
  const YString text("neu");
  EXPECT_EQ(record.Set("PSTATUS", yinet::kTypeString, &text, 3), status);
  EXPECT_EQ(record.Set("pErg", yinet::kTypeObject, &record, 0), answer) << "a copy of itself as it was";
  YObject moved = std::move(record);
  EXPECT_EQ(moved.Find<YString>("pStatus"), status);
  EXPECT_EQ(*status, "neu");
  EXPECT_EQ(moved.GetFlags("pStatus"), 3);
  moved.StoreText(1, "eins", 1);
  moved.StoreText("1", "name");
  EXPECT_EQ(moved.GetString(1), "eins") << "integer keys stand beside the names";
  EXPECT_EQ(moved.GetFlags("1"), 0);
  EXPECT_TRUE(moved.Delete(1));
  EXPECT_FALSE(moved.Exist(1) || moved.Delete(1));
}

TEST(YObject, ReadersConvertAndPointersDoNot) {
  YObject record;
  record.StoreText("text", "-12x");
  record.Store<std::int32_t>("zahl", 7);
  record.Store<bool>("ja", true);
  record.Store("puffer", YBuffer("99"));
  record.Store("objekt", YObject());
  const struct {
    const char *key, *text;
    int number;
    bool truth;
  } kRows[] = {{"text", "-12x", -12, true}, {"zahl", "7", 7, true},     {"ja", "1", 1, true},
               {"puffer", "99", 99, true},   {"objekt", "", 0, false}, {"fehlt", "", 0, false}};
  for (const auto& row : kRows) {
    EXPECT_EQ(record.GetString(row.key), row.text) << row.key;
    EXPECT_EQ(record.GetInteger(row.key), row.number) << row.key;
    EXPECT_EQ(record.GetBool(row.key), row.truth) << row.key;
  }
  EXPECT_EQ(record._GetValuePtr("zahl", yinet::kTypeString), nullptr);
  EXPECT_EQ(record.Set("neu", 77, nullptr, 0), nullptr);
}

// Additions, deletions and look-ups in a random order against a plain list.
TEST(YObject, BehavesLikeAListOfPairs) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    YObject record;
    std::vector<std::pair<std::string, int>> model;
    for (int step = 0; step < 300; ++step) {
      const std::string key = "\xC4" + std::to_string(random() % 40);
      const auto found = std::ranges::find(model, key, &std::pair<std::string, int>::first);
      if (random() % 4 == 0) {
        ASSERT_EQ(record.Delete(key), found != model.end());
        if (found != model.end()) model.erase(found);
      } else if (found == model.end()) {
        record.Store<std::int32_t>(key, step);
        model.emplace_back(key, step);
      } else {  // the first spelling stays
        record.Store<std::int32_t>(yinet::to_lower(key), step);
        found->second = step;
      }
    }
    const YObject copy = record;
    for (const YObject* one : {static_cast<const YObject*>(&record), &copy}) {
      ASSERT_EQ(one->GetStringKeyCount(), static_cast<int>(model.size()));
      for (std::size_t i = 0; i < model.size(); ++i) {
        ASSERT_EQ(one->GetStringKey(static_cast<int>(i)).str(), model[i].first);
        ASSERT_EQ(one->GetInteger(model[i].first), model[i].second);
      }
    }
  }
}

TEST(YJson, RecordsGoThereAndBack) {
  const std::string json =
      R"({"Z":"\u00e4\u20ac\u0001b\u0000","a":-5,"j":true,"leer":null,"b":{"$base64":"AP8="},)"
      R"("o":{"x":{"y":""}},"l":[{"n":1},{}]})";
  YObject record;
  ASSERT_FALSE(YJSON::Parse(json, record));
  EXPECT_EQ(record.GetString("Z").str(), std::string("\xE4\x80\x01" "b\0", 5));
  EXPECT_EQ(record.Find<YBuffer>("b")->view(), std::string_view("\0\xFF", 2));
  EXPECT_EQ(YJSON::Write(record),
            "{\"Z\":\"\xC3\xA4\xE2\x82\xAC\\u0001b\\u0000\",\"a\":-5,\"j\":true,\"leer\":null,"
            "\"b\":{\"$base64\":\"AP8=\"},\"o\":{\"x\":{\"y\":\"\"}},\"l\":[{\"n\":1},{}]}");
}

TEST(YJson, WhatHasNoPlaceInARecordIsText) {
  YObject record;
  yinet::JsonNotes notes;
  ASSERT_FALSE(YJSON::Parse(R"({"gross":3000000000,"bruch":1.50,"liste":["a",2],"x":{"fremd":"\u0416"}})", record, &notes));
  EXPECT_EQ(record.GetString("gross"), "3000000000");
  EXPECT_EQ(record.GetString("bruch"), "1.50");
  EXPECT_EQ(record.GetString("liste"), "a\x01" "2");
  EXPECT_EQ(record.Find<YObject>("x")->GetString("fremd"), "\xD0\x96");
  EXPECT_EQ(notes.kept_as_utf8, std::vector<std::string>{"x/fremd"});
}

TEST(YJson, RefusesWhatItCannotTakeAndLeavesTheRecordAlone) {
  const std::string deep = yinet::test::times(100000, "{\"a\":");
  for (const std::string_view json : {std::string_view("[]"), std::string_view(R"({"a":[1,{}]})"),
                                      std::string_view(R"({"a":[[1]]})"), std::string_view("{\"a\":\"\xE4\"}"),
                                      std::string_view(R"({"a":1} x)"), std::string_view(), std::string_view(deep)}) {
    YObject record;
    EXPECT_TRUE(YJSON::Parse(json, record)) << json.substr(0, 20);
    EXPECT_TRUE(record.IsEmpty());
  }
}

}  // namespace
