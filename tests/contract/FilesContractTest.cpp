// The contract of a file manager, for the fake and the real one.
#include "platform/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "contract/TemporaryDirectory.h"
#include "fakes/MemoryFiles.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

struct InMemory {
  MemoryFiles files;
  std::string root = "/documents";
};

struct OnDisk {
  TemporaryDirectory directory;
  PosixFiles files{{directory.path()}};
  std::string root = directory.path();
};

template <typename T>
class FilesContract : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return underTest_.root + "/" + name; }
  Files& files() { return underTest_.files; }
  std::optional<Error> put(const std::string& name, std::vector<std::string_view> pieces,
                           WriteMode mode = WriteMode::plain,
                           Durability durability = Durability::cached) {
    return files().write(at(name), pieces, mode, durability);
  }
  std::string textOf(const std::string& name) {
    const auto data = files().read(at(name));
    return data ? std::string(data->text()) : "<" + data.error().description + ">";
  }

  T underTest_;
};

using Implementations = testing::Types<InMemory, OnDisk>;
TYPED_TEST_SUITE(FilesContract, Implementations);

TYPED_TEST(FilesContract, DocumentsDirectoryIsTheGivenOne) {
  EXPECT_THAT(this->files().documentDirectories(), ElementsAre(this->underTest_.root));
}

TYPED_TEST(FilesContract, WrittenPiecesReadBackAsOneFile) {
  for (const WriteMode mode : {WriteMode::plain, WriteMode::atomic}) {
    ASSERT_FALSE(this->put("a", {"one", "", "two", std::string_view("\0x", 2)}, mode));
    EXPECT_EQ(this->textOf("a"), std::string("onetwo\0x", 8));
  }
}

TYPED_TEST(FilesContract, ALaterWriteReplacesTheWholeContent) {
  for (const WriteMode mode : {WriteMode::plain, WriteMode::atomic}) {
    ASSERT_FALSE(this->put("a", {"a long first content"}, mode));
    ASSERT_FALSE(this->put("a", {"short"}, mode, Durability::synced));
    EXPECT_EQ(this->textOf("a"), "short");
  }
}

TYPED_TEST(FilesContract, NoPiecesMakeAnEmptyFile) {
  ASSERT_FALSE(this->put("a", {}));
  ASSERT_FALSE(this->put("b", {"", ""}, WriteMode::atomic));
  EXPECT_EQ(this->textOf("a"), "");
  EXPECT_EQ(this->textOf("b"), "");
}

TYPED_TEST(FilesContract, MoreThanTenThousandPiecesAreWrittenInOrder) {
  std::string expected;
  std::vector<std::string> owned;
  for (int i = 0; i < 10'500; ++i) owned.push_back(std::to_string(i) + ",");
  for (const std::string& piece : owned) expected += piece;
  ASSERT_FALSE(this->put("many", std::vector<std::string_view>(owned.begin(), owned.end()),
                         WriteMode::atomic));
  EXPECT_EQ(this->textOf("many"), expected);
}

TYPED_TEST(FilesContract, AWriteIntoAMissingDirectoryFailsWithEnoent) {
  for (const WriteMode mode : {WriteMode::plain, WriteMode::atomic}) {
    const auto error = this->put("missing/a", {"x"}, mode);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "Files");
    EXPECT_EQ(error->code, ENOENT);
    EXPECT_THAT(error->description, testing::HasSubstr("missing/a"));
  }
}

TYPED_TEST(FilesContract, AWriteOverADirectoryFailsAndLeavesIt) {
  ASSERT_FALSE(this->files().createDirectory(this->at("d")));
  EXPECT_TRUE(this->put("d", {"x"}));
  EXPECT_TRUE(this->put("d", {"x"}, WriteMode::atomic));
  EXPECT_EQ(this->files().kind(this->at("d")), PathKind::directory);
  const auto names = this->files().list(this->underTest_.root);
  ASSERT_TRUE(names);
  EXPECT_THAT(*names, UnorderedElementsAre("d"));
}

TYPED_TEST(FilesContract, APathWithNulTouchesNoFile) {
  ASSERT_FALSE(this->put("a", {"kept"}));
  EXPECT_TRUE(this->put(std::string("a\0b", 3), {"x"}));
  EXPECT_TRUE(this->put(std::string("a\0b", 3), {"x"}, WriteMode::atomic));
  EXPECT_FALSE(this->files().read(this->at(std::string("a\0b", 3))));
  EXPECT_EQ(this->files().kind(this->at(std::string("a\0b", 3))), PathKind::absent);
  EXPECT_TRUE(this->files().remove(this->at(std::string("a\0b", 3))));
  EXPECT_EQ(this->textOf("a"), "kept");
}

TYPED_TEST(FilesContract, KindTellsFileDirectoryAndNothingApart) {
  ASSERT_FALSE(this->put("a", {"x"}));
  EXPECT_EQ(this->files().kind(this->at("a")), PathKind::file);
  EXPECT_EQ(this->files().kind(this->underTest_.root), PathKind::directory);
  EXPECT_EQ(this->files().kind(this->at("b")), PathKind::absent);
  EXPECT_EQ(this->files().kind(this->at("a/b")), PathKind::absent);
}

TYPED_TEST(FilesContract, DirectoriesAreMadeWithThoseAbove) {
  ASSERT_FALSE(this->files().createDirectory(this->at("x/y//z/")));
  EXPECT_EQ(this->files().kind(this->at("x/y/z")), PathKind::directory);
  EXPECT_FALSE(this->files().createDirectory(this->at("x/y/z"))) << "an existing one is success";
  ASSERT_FALSE(this->put("x/y/z/a", {"x"}));
}

TYPED_TEST(FilesContract, ADirectoryIsNotMadeOverOrBelowAFile) {
  ASSERT_FALSE(this->put("a", {"x"}));
  const auto over = this->files().createDirectory(this->at("a"));
  ASSERT_TRUE(over);
  EXPECT_EQ(over->code, EEXIST);
  const auto below = this->files().createDirectory(this->at("a/b"));
  ASSERT_TRUE(below);
  EXPECT_EQ(below->code, ENOTDIR);
  EXPECT_EQ(this->textOf("a"), "x");
}

TYPED_TEST(FilesContract, ListNamesFilesAndDirectoriesOfOneLevel) {
  ASSERT_FALSE(this->put("a", {"x"}));
  ASSERT_FALSE(this->put(".hidden", {"x"}));
  ASSERT_FALSE(this->files().createDirectory(this->at("d/e")));
  const auto names = this->files().list(this->underTest_.root);
  ASSERT_TRUE(names);
  EXPECT_THAT(*names, UnorderedElementsAre("a", ".hidden", "d"));
  const auto inner = this->files().list(this->at("d/e"));
  ASSERT_TRUE(inner);
  EXPECT_THAT(*inner, IsEmpty());
  const auto missing = this->files().list(this->at("missing"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().code, ENOENT);
}

TYPED_TEST(FilesContract, ReadingWhatIsNoFileFails) {
  const auto missing = this->files().read(this->at("missing"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().code, ENOENT);
  EXPECT_EQ(missing.error().domain, "Files");
  const auto directory = this->files().read(this->underTest_.root);
  ASSERT_FALSE(directory);
  EXPECT_EQ(directory.error().code, EISDIR);
}

TYPED_TEST(FilesContract, WhatWasReadStaysWhenTheFileChanges) {
  ASSERT_FALSE(this->put("a", {"before"}));
  const auto data = this->files().read(this->at("a"));
  ASSERT_TRUE(data);
  ASSERT_FALSE(this->put("a", {"after!"}));
  EXPECT_EQ(data->text(), "before");
}

TYPED_TEST(FilesContract, RenameReplacesWhatIsThere) {
  ASSERT_FALSE(this->put("a", {"new"}));
  ASSERT_FALSE(this->put("b", {"old"}));
  ASSERT_FALSE(this->files().rename(this->at("a"), this->at("b")));
  EXPECT_EQ(this->textOf("b"), "new");
  EXPECT_EQ(this->files().kind(this->at("a")), PathKind::absent);
  const auto again = this->files().rename(this->at("a"), this->at("b"));
  ASSERT_TRUE(again);
  EXPECT_EQ(again->code, ENOENT);
}

TYPED_TEST(FilesContract, RemoveTakesAFileAndNothingElse) {
  ASSERT_FALSE(this->put("a", {"x"}));
  ASSERT_FALSE(this->files().remove(this->at("a")));
  EXPECT_EQ(this->files().kind(this->at("a")), PathKind::absent);
  const auto again = this->files().remove(this->at("a"));
  ASSERT_TRUE(again);
  EXPECT_EQ(again->code, ENOENT);
  ASSERT_FALSE(this->files().createDirectory(this->at("d")));
  const auto directory = this->files().remove(this->at("d"));
  ASSERT_TRUE(directory);
  EXPECT_EQ(directory->code, EISDIR);
}

TYPED_TEST(FilesContract, FactsAreOfARegularFile) {
  ASSERT_FALSE(this->put("a", {"four"}));
  const auto facts = this->files().facts(this->at("a"));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->size, 4U);
  const auto missing = this->files().facts(this->at("missing"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().code, ENOENT);
  const auto directory = this->files().facts(this->underTest_.root);
  ASSERT_FALSE(directory);
  EXPECT_EQ(directory.error().code, EISDIR);
}

TYPED_TEST(FilesContract, LockOfADirectoryExcludesAnotherUntilItIsGivenBack) {
  ASSERT_FALSE(this->files().createDirectory(this->at("d")));
  auto first = this->files().lock(this->at("d"));
  ASSERT_TRUE(first);
  const auto second = this->files().lock(this->at("d"));
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error().code, EWOULDBLOCK);
  ASSERT_FALSE(this->put("d/a", {"x"})) << "the lock keeps nobody from writing";
  (*first).reset();
  EXPECT_TRUE(this->files().lock(this->at("d")));
  const auto names = this->files().list(this->at("d"));
  ASSERT_TRUE(names);
  EXPECT_THAT(*names, ElementsAre("a")) << "a lock leaves no file";
}

TYPED_TEST(FilesContract, OnlyADirectoryThatIsThereCanBeLocked) {
  const auto missing = this->files().lock(this->at("missing"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().code, ENOENT);
  ASSERT_FALSE(this->put("a", {"x"}));
  const auto file = this->files().lock(this->at("a"));
  ASSERT_FALSE(file);
  EXPECT_EQ(file.error().code, ENOTDIR);
}

TEST(PosixFilesTest, FactsTellWhenAFileWasWritten) {
  OnDisk disk;
  const double before = static_cast<double>(std::time(nullptr));
  const std::string_view text = "x";
  ASSERT_FALSE(
      disk.files.write(disk.root + "/a", {&text, 1}, WriteMode::plain, Durability::cached));
  const auto facts = disk.files.facts(disk.root + "/a");
  ASSERT_TRUE(facts);
  // A file system may round to whole seconds.
  EXPECT_GE(facts->modified, before - 1);
  EXPECT_LE(facts->modified, before + 60);
}

TEST(PosixFilesTest, LockedDirectoryIsLockedForAnotherProcess) {
  OnDisk disk;
  ASSERT_FALSE(disk.files.createDirectory(disk.root + "/d"));
  const auto lock = disk.files.lock(disk.root + "/d");
  ASSERT_TRUE(lock);
  // An independent program asks for the same lock.
  EXPECT_NE(std::system(("flock --nonblock " + disk.root + "/d true").c_str()), 0);
}

}  // namespace
}  // namespace qx
