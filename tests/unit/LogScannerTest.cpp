#include "Classes/LogScanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";

std::string entry(const std::string& name) {
  return "<key>" + name +
         "</key>\n<dict><key>base</key><dict><key>file_path</key><string>p</string></dict>"
         "<key>extra</key><dict><key>k</key><string>v</string></dict></dict>";
}

std::string log(const std::string& entries) {
  return kHead + "<dict>\n" + entries + "\n</dict>\n</plist>\n";
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), with);
}

TEST(LogScannerTest, BinaryListIsNoXmlWhateverItHolds) {
  EXPECT_FALSE(scanLog("bplist00" + log(entry("a"))).xml);
}

TEST(LogScannerTest, WholeLogYieldsItsEntriesInOrder) {
  const std::string text = log(entry("a") + "\n\t" + entry("b"));
  const ScannedLog scanned = scanLog(text);
  EXPECT_TRUE(scanned.xml);
  EXPECT_TRUE(scanned.whole);
  EXPECT_THAT(scanned.entries, ElementsAre(entry("a"), entry("b")));
  EXPECT_EQ(scanned.marks, 2U);
}

TEST(LogScannerTest, EmptyLogIsWholeInBothSpellings) {
  for (const std::string& text : {log(""), kHead + "<dict/></plist>"}) {
    const ScannedLog scanned = scanLog(text);
    EXPECT_TRUE(scanned.whole) << text;
    EXPECT_THAT(scanned.entries, IsEmpty());
    EXPECT_EQ(scanned.marks, 0U);
  }
}

TEST(LogScannerTest, TextOfAnotherKindIsNoXml) {
  for (const char* text : {"", "bplist00\xD0", "{\"a\": 1}", "nothing"}) {
    const ScannedLog scanned = scanLog(text);
    EXPECT_FALSE(scanned.xml) << text;
    EXPECT_FALSE(scanned.whole) << text;
    EXPECT_THAT(scanned.entries, IsEmpty());
  }
}

TEST(LogScannerTest, EveryKindOfScalarMayStandInASection) {
  const std::string scalars =
      "<key>a</key><dict><key>s</key><dict><key>1</key><string>x</string><key>2</key><string/>"
      "<key>3</key><integer>5</integer><key>4</key><real>2.5</real><key>5</key><true/>"
      "<key>6</key><false/><key>7</key><date>2026-11-21T00:00:00Z</date>"
      "<key>8</key><data>AA==</data></dict></dict>";
  const std::string text = log(scalars);
  EXPECT_TRUE(scanLog(text).whole);
  EXPECT_THAT(scanLog(text).entries, ElementsAre(scalars));
}

TEST(LogScannerTest, DamagedEntryLeavesItsNeighboursWhole) {
  const std::string text =
      log(entry("a") + replaced(entry("b"), "<string>", "<strinh>") + entry("c"));
  const ScannedLog scanned = scanLog(text);
  EXPECT_TRUE(scanned.xml);
  EXPECT_FALSE(scanned.whole);
  EXPECT_THAT(scanned.entries, ElementsAre(entry("a"), entry("c")));
  EXPECT_EQ(scanned.marks, 3U) << "the damaged one counts";
}

TEST(LogScannerTest, CutOffLogKeepsTheEntriesBeforeTheCut) {
  const std::string text = kHead + "<dict>" + entry("a") + entry("b").substr(0, 60);
  const ScannedLog scanned = scanLog(text);
  EXPECT_FALSE(scanned.whole);
  EXPECT_THAT(scanned.entries, ElementsAre(entry("a")));
}

TEST(LogScannerTest, MissingEndAndTrailingTextAreDamage) {
  const std::string whole = log(entry("a"));
  EXPECT_FALSE(scanLog(replaced(whole, "</plist>", "")).whole);
  EXPECT_FALSE(scanLog(whole + "x").whole);
  EXPECT_THAT(scanLog(whole + "x").entries, ElementsAre(testing::_));
}

TEST(LogScannerTest, EntriesOfAnotherShapeAreNotWhole) {
  for (const std::string& other :
       {std::string("<key>b</key><string>x</string>"),
        std::string("<key>b</key><dict><key>base</key><string>x</string></dict>"),
        std::string("<key>b</key><dict><key>base</key><dict><key>k</key><array/></dict></dict>"),
        std::string("<dict><key>base</key><dict><key>k</key><true/></dict></dict>")}) {
    const std::string text = log(entry("a") + other + entry("c"));
    const ScannedLog scanned = scanLog(text);
    EXPECT_FALSE(scanned.whole) << other;
    EXPECT_THAT(scanned.entries, ElementsAre(entry("a"), entry("c"))) << other;
  }
}

TEST(LogScannerTest, LogWithoutItsHeadStillYieldsItsEntries) {
  const std::string text = entry("a") + entry("b") + "</dict></plist>";
  const ScannedLog scanned = scanLog(text);
  EXPECT_TRUE(scanned.xml);
  EXPECT_FALSE(scanned.whole);
  EXPECT_THAT(scanned.entries, ElementsAre(entry("a"), entry("b")));
}

}  // namespace
}  // namespace qx
