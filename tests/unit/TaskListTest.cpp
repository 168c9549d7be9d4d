#include "Classes/TaskList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qx {
namespace {

struct Case {
  std::string name;
  TaskFacts facts;
  Standstill expected;
};

void PrintTo(const Case& one, std::ostream* out) {
  *out << one.name;
}

class StandstillTable : public testing::TestWithParam<Case> {};

TEST_P(StandstillTable, NamesTheReasonThatHasToGoFirst) {
  const Standstill found = standstillOf(GetParam().facts);
  EXPECT_EQ(found.why, GetParam().expected.why);
  EXPECT_EQ(found.reason, GetParam().expected.reason);
}

/// At first every possible reason holds. Each row removes the first of them.
TaskFacts everything() {
  return {.stage = TaskStage::queued,
          .held = true,
          .paused = true,
          .reachable = false,
          .bytesMissing = true,
          .stray = true,
          .refusal = "wrong token",
          .before = 3,
          .running = 6,
          .limit = 6,
          .nextTry = 100,
          .now = 61.5};
}

std::vector<Case> cases() {
  std::vector<Case> all;
  TaskFacts facts = everything();
  facts.stage = TaskStage::running;
  all.push_back({"RunningMoves", facts, {"", ""}});
  facts.stage = TaskStage::queued;
  all.push_back({"Stray", facts, {"stray", "its entry names a file outside the user's directory"}});
  facts.stray = false;
  all.push_back({"MissingBytes", facts, {"bytes", "its data file is missing"}});
  facts.bytesMissing = false;
  all.push_back({"Cancelled", facts, {"cancelled", "is cancelled"}});
  facts.held = false;
  all.push_back({"Paused", facts, {"paused", "is paused"}});
  facts.paused = false;
  all.push_back({"NoNetwork", facts, {"network", "waits for the network"}});
  facts.reachable = true;
  all.push_back({"Refused", facts, {"credentials", "waits for credentials: wrong token"}});
  facts.refusal.reset();
  all.push_back(
      {"NoSlot", facts, {"slot", "waits for a slot: 6 of 6 are in use, 3 uploads wait before it"}});
  facts.stage = TaskStage::stored;
  all.push_back({"NextTry", facts, {"retry", "waits for its next attempt in 39 s"}});
  facts.now = 130;
  all.push_back({"NextTryIsDue", facts, {"retry", "waits for its next attempt in 0 s"}});
  facts.nextTry.reset();
  all.push_back({"NextTryUnknown", facts, {"retry", "waits for its next attempt"}});
  return all;
}

INSTANTIATE_TEST_SUITE_P(Facts, StandstillTable, testing::ValuesIn(cases()),
                         [](const auto& row) { return row.param.name; });

TEST(TaskListTest, EntrySaysWhatIsKnownAndLeavesOutWhatIsNot) {
  const DataTask task("a.jpg", "avatar", Data("bytes"),
                      {{"tag", "photo 7"}, {"width", std::int64_t{640}}});
  const Dictionary entry =
      listed(task, {.kind = UploadKind::direct, .size = 5, .facts = {.stage = TaskStage::running}});
  EXPECT_EQ(entry, (Dictionary{{"name", "a.jpg"},
                               {"kind", "direct"},
                               {"scope", "avatar"},
                               {"tag", "photo 7"},
                               {"extra", Dictionary{{"tag", "photo 7"}, {"width", "640"}}},
                               {"size", 5},
                               {"stored", false},
                               {"attempts", 0},
                               {"state", "running"},
                               {"why", ""},
                               {"reason", ""}}));
}

TEST(TaskListTest, StoredEntryTellsItsAgeAndItsNextTry) {
  const DataTask task("a.jpg", "avatar", Data("bytes"), {});
  const Dictionary entry = listed(
      task,
      {.stored = true, .accepted = 1000, .attempts = 2, .facts = {.nextTry = 1060, .now = 1040}});
  EXPECT_EQ(readDouble(entry, "accepted"), 1000);
  EXPECT_EQ(readDouble(entry, "age"), 40);
  EXPECT_EQ(readDouble(entry, "nextTry"), 1060);
  EXPECT_EQ(readInt(entry, "attempts"), 2);
  EXPECT_EQ(readText(entry, "state"), "stored");
  EXPECT_FALSE(entry.contains("size"));
  EXPECT_FALSE(entry.contains("tag"));
}

}  // namespace
}  // namespace qx
