#include "Classes/ActionMistakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Classes/HostCallbacks.h"
#include "fakes/FakeValues.h"

namespace qx {
namespace {

using testing::ElementsAreArray;

Value complete() {
  return Value::callback<HostUploadComplete>(
      [](std::optional<std::string>, std::int64_t, std::optional<Error>) {});
}

Dictionary upload() {
  return {{"scope", "avatar"}, {"complete", complete()}, {"data", Data("x")}, {"suffix", "txt"}};
}

Dictionary image(const char* bytes) {
  return {{"scope", "avatar"}, {"data", Data(bytes)}, {"itemId", "7"}, {"suffix", "png"}};
}

Dictionary with(Dictionary parameters, const std::string& key, Value value) {
  parameters[key] = std::move(value);
  return parameters;
}

Dictionary without(Dictionary parameters, const std::string& key) {
  parameters.erase(key);
  return parameters;
}

struct Row {
  std::string name;
  std::string action;
  Dictionary parameters;
  std::vector<std::string> sentences;
  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

class ActionMistakesTable : public testing::TestWithParam<Row> {};

TEST_P(ActionMistakesTable, EachMistakeIsOneSentence) {
  FakeImageHeaders imageHeaders;
  imageHeaders.add(Data("image"), {640, 480});
  const Row& row = GetParam();
  EXPECT_THAT(ActionMistakes::inParameters(row.action, row.parameters, imageHeaders),
              ElementsAreArray(row.sentences));
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, ActionMistakesTable,
    testing::Values(
        Row{"KeyMissing",
            "Action_Upload:",
            without(upload(), "suffix"),
            {"\"Action_Upload:\" misses \"suffix\", a text."}},
        Row{"TwoKeysMissing",
            "Action_BackgroundUpload:",
            {{"data", Data("x")}},
            {"\"Action_BackgroundUpload:\" misses \"scope\", a text.",
             "\"Action_BackgroundUpload:\" misses \"suffix\", a text."}},
        Row{"TextForBytes",
            "Action_Upload:",
            with(upload(), "data", "secret-bytes"),
            {"\"Action_Upload:\" wants \"data\" to be bytes (qx::Data)."}},
        Row{"NumberForBoolean",
            "Action_SetUp:",
            {{"needServerResize", 0}},
            {"\"Action_SetUp:\" wants \"needServerResize\" to be a boolean."}},
        Row{"OptionalOfAnotherType",
            "Action_Upload:",
            with(upload(), "itemId", 7),
            {"\"Action_Upload:\" wants \"itemId\" to be a text, and goes on without it."}},
        Row{"KeyMisspelt",
            "Action_Upload:",
            with(without(upload(), "suffix"), "sufix", "txt"),
            {"\"Action_Upload:\" misses \"suffix\", a text.",
             "\"Action_Upload:\" does not read \"sufix\"."}},
        Row{"CallbackOfAnotherSignature",
            "Action_Upload:",
            with(upload(), "complete", Value::callback<void(std::string)>([](std::string) {})),
            {"\"Action_Upload:\" wants \"complete\" to be a callback of the type "
             "qx::HostUploadComplete."}},
        Row{"CallbackThatIsEmpty",
            "Action_RegisterBackground:",
            {{"callback", Value::callback<HostBackgroundCallback>({})}},
            {"\"Action_RegisterBackground:\" wants \"callback\" to be a callback of the type "
             "qx::HostBackgroundCallback."}},
        Row{"CountMissing",
            "Action_SetMaxBackgroundConcurrent:",
            {},
            {"\"Action_SetMaxBackgroundConcurrent:\" misses \"count\", a 64-bit integer."}},
        Row{"SuffixWithADot",
            "Action_Upload:",
            with(upload(), "suffix", ".txt"),
            {"\"Action_Upload:\" wants \"suffix\" without the dot before it."}},
        Row{"BytesThatAreNoImage",
            "Action_BackgroundUploadImage:",
            image("words"),
            {"\"Action_BackgroundUploadImage:\" cannot read the bytes under \"data\" as an "
             "image."}},
        Row{"UrlWithoutAFileName",
            "Action_Download:",
            {{"url", "https://store.test"}, {"scope", "avatar"}},
            {"\"Action_Download:\" wants a URL that ends in a file name under \"url\"; it does not "
             "call \"complete\"."}}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Right, ActionMistakesTable,
    testing::Values(Row{"Upload", "Action_Upload:", upload(), {}},
                    Row{"UploadWithAllKeys",
                        "Action_Upload:",
                        with(with(with(with(with(with(upload(), "itemType", "t"), "itemId", "7"),
                                            "imageFrom", 1),
                                       "tags", Array{"a"}),
                                  "fields", Dictionary{}),
                             "disableToPQS", true),
                        {}},
                    Row{"SetUp",
                        "Action_SetUp:",
                        {{"needServerResize", false}, {"resumeStoredTasks", true}},
                        {}},
                    Row{"Image", "Action_BackgroundUploadImage:", image("image"), {}},
                    Row{"Download",
                        "Action_Download:",
                        {{"url", "https://store.test/a/b.jpg"}, {"scope", "avatar"}},
                        {}},
                    Row{"AnActionOfSomebodyElse", "Action_Other:", {{"key", 1}}, {}}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace qx
