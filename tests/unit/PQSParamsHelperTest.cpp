#include "Classes/PQSParamsHelper.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

class PQSParamsHelperTest : public testing::Test {
 protected:
  FakePlatform& platform = FakePlatform::kept();
  Library& library = keptLibrary(platform.seams());
};

// ---- To JSON

TEST_F(PQSParamsHelperTest, TagsBecomeCompactJsonWithEscapedSlashes) {
  EXPECT_EQ(PQSParamsHelper::tagsString(platform.json, {{"tags", Array{"a", "b/c"}}}),
            R"(["a","b\/c"])");
}

TEST_F(PQSParamsHelperTest, TagsKeepTheirOrder) {
  EXPECT_EQ(PQSParamsHelper::tagsString(platform.json, {{"tags", Array{"z", "a", "m"}}}),
            R"(["z","a","m"])");
}

TEST_F(PQSParamsHelperTest, EmptyTagsBecomeAnEmptyList) {
  EXPECT_EQ(PQSParamsHelper::tagsString(platform.json, {{"tags", Array{}}}), "[]");
}

TEST_F(PQSParamsHelperTest, TagsOfAnotherTypeYieldNothing) {
  EXPECT_FALSE(PQSParamsHelper::tagsString(platform.json, {}));
  EXPECT_FALSE(PQSParamsHelper::tagsString(platform.json, {{"tags", Value()}}));
  EXPECT_FALSE(PQSParamsHelper::tagsString(platform.json, {{"tags", "a"}}));
  EXPECT_FALSE(PQSParamsHelper::tagsString(platform.json, {{"tags", Array{"a", 1}}}));
  EXPECT_FALSE(PQSParamsHelper::tagsString(platform.json, {{"tags", Dictionary{{"a", "b"}}}}));
}

TEST_F(PQSParamsHelperTest, TagsThatCannotBeJsonYieldNothing) {
  EXPECT_FALSE(PQSParamsHelper::tagsString(platform.json, {{"tags", Array{"\xff"}}}));
}

TEST_F(PQSParamsHelperTest, FieldsBecomeJson) {
  EXPECT_EQ(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents,
                                          {{"fields", Dictionary{{"k", "a/b"}}}}),
            R"({"k":"a\/b"})");
  EXPECT_EQ(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents,
                                          {{"fields", Dictionary{}}}),
            "{}");
}

TEST_F(PQSParamsHelperTest, FieldsAreEncodedAsTheTrackerConvertsThem) {
  platform.trackingEvents.setAnyCodable([](const Dictionary& values) {
    EXPECT_EQ(values, (Dictionary{{"when", Date{5}}}));
    return Dictionary{{"when", "1970"}};
  });
  EXPECT_EQ(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents,
                                          {{"fields", Dictionary{{"when", Date{5}}}}}),
            R"({"when":"1970"})");
}

TEST_F(PQSParamsHelperTest, FieldsThatTheTrackerCannotConvertYieldNothing) {
  platform.trackingEvents.setAnyCodable(
      [](const Dictionary&) -> std::optional<Dictionary> { return std::nullopt; });
  EXPECT_FALSE(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents,
                                             {{"fields", Dictionary{{"k", "v"}}}}));
}

TEST_F(PQSParamsHelperTest, FieldsThatCannotBeJsonYieldNothing) {
  EXPECT_FALSE(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents,
                                             {{"fields", Dictionary{{"k", Data("bytes")}}}}));
}

TEST_F(PQSParamsHelperTest, FieldsOfAnotherTypeYieldNothing) {
  EXPECT_FALSE(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents, {}));
  EXPECT_FALSE(
      PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents, {{"fields", "{}"}}));
  EXPECT_FALSE(PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents,
                                             {{"fields", Array{"a"}}}));
}

// ---- And back

TEST_F(PQSParamsHelperTest, TagsComeBackFromTheirText) {
  EXPECT_EQ(PQSParamsHelper::tagsArray(platform.json, {{"tags", R"(["a","b\/c"])"}}),
            (std::vector<std::string>{"a", "b/c"}));
  EXPECT_EQ(PQSParamsHelper::tagsArray(platform.json, {{"tags", "[]"}}),
            std::vector<std::string>());
}

TEST_F(PQSParamsHelperTest, TagsThatAreNoListOfTextsYieldNothing) {
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"fields", R"(["a"])"}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", std::int64_t{5}}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", ""}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", "a"}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", "[1,2]"}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", R"(["a",1])"}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", R"({"a":"b"})"}}));
  EXPECT_FALSE(PQSParamsHelper::tagsArray(platform.json, {{"tags", R"(["a")"}}));
}

TEST_F(PQSParamsHelperTest, FieldsComeBackFromTheirText) {
  EXPECT_EQ(PQSParamsHelper::fieldsDictionary(platform.json, {{"fields", R"({"k":1,"l":["x"]})"}}),
            (Dictionary{{"k", std::int64_t{1}}, {"l", Array{"x"}}}));
  EXPECT_EQ(PQSParamsHelper::fieldsDictionary(platform.json, {{"fields", "{}"}}), Dictionary());
}

TEST_F(PQSParamsHelperTest, FieldsThatAreNoMapYieldNothing) {
  EXPECT_FALSE(PQSParamsHelper::fieldsDictionary(platform.json, {}));
  EXPECT_FALSE(PQSParamsHelper::fieldsDictionary(platform.json, {{"tags", "{}"}}));
  EXPECT_FALSE(PQSParamsHelper::fieldsDictionary(platform.json, {{"fields", std::int64_t{5}}}));
  EXPECT_FALSE(PQSParamsHelper::fieldsDictionary(platform.json, {{"fields", "[]"}}));
  EXPECT_FALSE(PQSParamsHelper::fieldsDictionary(platform.json, {{"fields", "{"}}));
}

}  // namespace
}  // namespace qx
