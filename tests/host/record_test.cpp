#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "yinet/host/text.h"
#include "yinet/host/yjson.h"
#include "yinet/host/yobject.h"

namespace {

TEST(YObject, KeysIgnoreCaseAndKeepTheFirstSpelling) {
  YObject record;
  record.StoreText("Content-Length", "1");
  record.StoreText("EMPF\xC4NGER", "a");
  record.StoreText("CONTENT-LENGTH", "2");
  EXPECT_EQ(record.GetString("content-length"), "2");
  EXPECT_TRUE(record.Exist("empf\xE4nger"));
  EXPECT_EQ(record.GetStringKey(0), "Content-Length");
  EXPECT_EQ(record.GetStringKeyCount(), 2);
}

TEST(YObject, PointersOutliveWhatHappensToOtherEntries) {
  YObject record;
  auto* status = static_cast<YString*>(record.Set("pStatus", yinet::kTypeString, nullptr, 0));
  auto* answer = static_cast<YObject*>(record.Set("pErg", yinet::kTypeObject, nullptr, 0));
  for (int i = 0; i < 1000; ++i) record.Store<std::int32_t>("n" + std::to_string(i), i);
  for (int i = 0; i < 1000; i += 2) record.Delete("n" + std::to_string(i));
  EXPECT_EQ(record.GetStringKey(501), "n999");
  const YString text("neu");
  EXPECT_EQ(record.Set("PSTATUS", yinet::kTypeString, &text, 3), status);
  EXPECT_EQ(record.Set("pErg", yinet::kTypeObject, &record, 0), answer) << "a copy of itself as it was";
  YObject moved = std::move(record);
  EXPECT_EQ(moved.Find<YString>("pStatus"), status);
  EXPECT_EQ(*status, "neu");
  EXPECT_EQ(moved.GetFlags("pStatus"), 3);
}

TEST(YObject, ReadersConvertAndPointersDoNot) {
  YObject record;
  record.StoreText("text", " -12x");
  record.Store<std::int32_t>("zahl", 7);
  record.Store<bool>("ja", true);
  record.Store("puffer", YBuffer("99"));
  record.Store("objekt", YObject());
  const struct { const char* key; const char* text; int number; bool truth; } kRows[] = {
      {"text", " -12x", -12, true}, {"zahl", "7", 7, true}, {"ja", "1", 1, true},
      {"puffer", "99", 99, true},   {"objekt", "", 0, false}, {"fehlt", "", 0, false},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(record.GetString(row.key), row.text) << row.key;
    EXPECT_EQ(record.GetInteger(row.key), row.number) << row.key;
    EXPECT_EQ(record.GetBool(row.key), row.truth) << row.key;
  }
  EXPECT_EQ(record._GetValuePtr("zahl", yinet::kTypeString), nullptr);
  EXPECT_NE(record._GetValuePtr("zahl", yinet::kTypeAny), nullptr);
  EXPECT_EQ(record.Set("neu", 77, nullptr, 0), nullptr);
  EXPECT_FALSE(record.Exist("neu"));
}

TEST(YObject, IntegerKeysAndFlagsStandBesideTheNames) {
  YObject record;
  record.StoreText(1, "eins", 1);
  record.StoreText("1", "name");
  EXPECT_EQ(record.GetString(1), "eins");
  EXPECT_EQ(record.GetFlags(1), 1);
  EXPECT_EQ(record.GetFlags("1"), 0);
  EXPECT_EQ(record.GetStringKeyCount(), 1);
  EXPECT_EQ(record.GetFlags(), 1);
  record.SetFlags(0);
  EXPECT_EQ(YObject(record).GetFlags(), 0);
  EXPECT_TRUE(record.Exist(1) && record.Delete(1));
  EXPECT_FALSE(record.Exist(1) || record.Delete(1));
}

TEST(YObject, CopiesAreDeep) {
  YObject record;
  record.Ensure<YObjectArray>("liste").New()->StoreText("a", "1");
  YObject copy = record;
  copy.Find<YObjectArray>("liste")->ItemPtr(0)->StoreText("a", "2");
  EXPECT_EQ(record.Find<YObjectArray>("liste")->ItemPtr(0)->GetString("a"), "1");
}

// Additions, deletions and look-ups in a random order against a plain list.
TEST(YObject, BehavesLikeAListOfPairs) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    YObject record;
    std::vector<std::pair<std::string, int>> model;
    for (int step = 0; step < 300; ++step) {
      const std::string key = "K" + std::to_string(random() % 40);
      const auto found = std::find_if(model.begin(), model.end(), [&](const auto& entry) { return entry.first == key; });
      switch (random() % 4) {
        case 0:
        case 1:
          record.Store<std::int32_t>(found == model.end() ? key : yinet::to_lower(key), step);
          if (found == model.end()) model.emplace_back(key, step);
          else found->second = step;
          break;
        case 2:
          ASSERT_EQ(record.Delete(key), found != model.end());
          if (found != model.end()) model.erase(found);
          break;
        default: {
          ASSERT_EQ(record.GetStringKeyCount(), static_cast<int>(model.size()));
          if (model.empty()) break;
          const auto at = random() % model.size();
          ASSERT_EQ(record.GetStringKey(static_cast<int>(at)).str(), model[at].first);
          ASSERT_EQ(record.GetInteger(model[at].first), model[at].second);
        }
      }
    }
    const YObject copy = record;
    for (std::size_t i = 0; i < model.size(); ++i)
      ASSERT_EQ(copy.GetStringKey(static_cast<int>(i)).str(), model[i].first);
  }
}

TEST(YObjectArray, SortsByNumberOrTextAndKeepsEqualsInOrder) {
  YObjectArray array;
  for (const char* prio : {"20", "10", "9", "10"}) {
    YObject* item = array.New();
    item->StoreText("PRIO", prio);
    item->Store<std::int32_t>("nr", array.Count());
  }
  const auto order = [&] {
    std::string result;
    for (int i = 0; i < array.Count(); ++i) result += array.ItemPtr(i)->GetString("nr").str();
    return result;
  };
  array.Sort("PRIO", true);
  EXPECT_EQ(order(), "3241");
  array.Sort("PRIO", false, false);
  EXPECT_EQ(order(), "3124");
  array.New();
  EXPECT_EQ(array.ContentCount(), 4);
  EXPECT_EQ(array.ItemPtr(5), nullptr);
}

TEST(YJson, RecordsGoThereAndBack) {
  const std::string json =
      R"({"Z":"\u00e4\u20ac\u0001b\u0000","a":-5,"j":true,"leer":null,"b":{"$base64":"AP8="},)"
      R"("o":{"x":{"y":""}},"l":[{"n":1},{}]})";
  YObject record;
  ASSERT_FALSE(YJSON::Parse(json, record));
  EXPECT_EQ(record.GetString("Z").str(), std::string("\xE4\x80\x01" "b\0", 5));
  EXPECT_EQ(record.Find<YBuffer>("b")->view(), std::string_view("\0\xFF", 2));
  EXPECT_EQ(record.GetType("leer"), yinet::kTypeAny);
  EXPECT_EQ(YJSON::Write(record),
            "{\"Z\":\"\xC3\xA4\xE2\x82\xAC\\u0001b\\u0000\",\"a\":-5,\"j\":true,\"leer\":null,"
            "\"b\":{\"$base64\":\"AP8=\"},\"o\":{\"x\":{\"y\":\"\"}},\"l\":[{\"n\":1},{}]}");
  EXPECT_EQ(YJSON::Write(YObject(), 2), "{}");
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
  const std::string deep = std::string(300, '[');
  for (const std::string& json : {std::string("{"), std::string("[]"), std::string("\"a\""), std::string("{\"a\":[1,{}]}"),
                                  std::string("{\"a\":[[1]]}"), std::string("{\"a\":\"\xE4\"}"),
                                  "{\"a\":" + deep, std::string("{\"a\":1} x"), std::string()}) {
    YObject record;
    const auto error = YJSON::Parse(json, record);
    ASSERT_TRUE(error) << json;
    EXPECT_FALSE(error->reason.empty());
    EXPECT_TRUE(record.IsEmpty());
  }
  std::string objects;
  for (int i = 0; i < 100000; ++i) objects += "{\"a\":";
  YObject record;
  EXPECT_TRUE(YJSON::Parse(objects, record));
}

}  // namespace
