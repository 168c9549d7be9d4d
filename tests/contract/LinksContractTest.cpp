// The contract of a file manager for symbolic links below the documents directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "contract/TemporaryDirectory.h"
#include "fakes/MemoryFiles.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {
namespace {

using testing::HasSubstr;
using testing::UnorderedElementsAre;

/// A documents directory with a link "link" to a directory, and with "d/a", a link to a file. Both
/// targets hold "kept".
struct InMemory {
  InMemory() {
    files.put(root + "/victims/file", "kept");
    files.put(root + "/d/b", "beside");
    files.putLink(root + "/link");
    files.putLink(root + "/d/a");
  }
  std::optional<std::string> victim() { return files.text(root + "/victims/file"); }
  MemoryFiles files;
  std::string root = "/documents";
};

struct OnDisk {
  OnDisk() {
    put(root + "/victims/file", "kept");
    put(root + "/d/b", "beside");
    link("victims", root + "/link");
    link("../victims/file", root + "/d/a");
  }
  void put(const std::string& path, std::string_view text) {
    EXPECT_FALSE(files.createDirectory(path.substr(0, path.rfind('/'))));
    EXPECT_FALSE(files.write(path, {&text, 1}, WriteMode::plain, Durability::cached));
  }
  static void link(const std::string& target, const std::string& path) {
    EXPECT_EQ(::symlink(target.c_str(), path.c_str()), 0);
  }
  std::optional<std::string> victim() {
    const auto text = files.read(root + "/victims/file");
    return text ? std::optional<std::string>(text->text()) : std::nullopt;
  }
  TemporaryDirectory directory;
  PosixFiles files{{directory.path()}};
  std::string root = directory.path();
};

template <typename T>
class LinksContract : public testing::Test {
 protected:
  ~LinksContract() override { EXPECT_EQ(underTest_.victim(), "kept"); }
  std::string at(const std::string& name) const { return underTest_.root + "/" + name; }
  Files& files() { return underTest_.files; }
  std::optional<Error> put(const std::string& name, WriteMode mode, Durability durability) {
    const std::string_view text = "new";
    return files().write(at(name), {&text, 1}, mode, durability);
  }
  void expectRefused(const std::optional<Error>& error, const std::string& link) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "Files");
    EXPECT_EQ(error->code, ELOOP);
    EXPECT_THAT(error->description, HasSubstr(at(link) + " is a symbolic link"));
  }
  template <typename V>
  static std::optional<Error> errorOf(const Result<V>& result) {
    return result ? std::nullopt : std::optional<Error>(result.error());
  }

  T underTest_;
};

using Implementations = testing::Types<InMemory, OnDisk>;
TYPED_TEST_SUITE(LinksContract, Implementations);

TYPED_TEST(LinksContract, KindTellsOfALinkThereAndOnTheWay) {
  EXPECT_EQ(this->files().kind(this->at("link")), PathKind::link);
  EXPECT_EQ(this->files().kind(this->at("d/a")), PathKind::link);
  EXPECT_EQ(this->files().kind(this->at("link/file")), PathKind::link);
  EXPECT_EQ(this->files().kind(this->at("d")), PathKind::directory);
}

TYPED_TEST(LinksContract, NoFileIsWrittenOverOrThroughALink) {
  for (const WriteMode mode : {WriteMode::plain, WriteMode::atomic}) {
    for (const Durability durability : {Durability::cached, Durability::synced}) {
      this->expectRefused(this->put("d/a", mode, durability), "d/a");
      this->expectRefused(this->put("link", mode, durability), "link");
      this->expectRefused(this->put("link/file", mode, durability), "link");
      this->expectRefused(this->put("link/new", mode, durability), "link");
    }
  }
  EXPECT_EQ(this->files().kind(this->at("d/a")), PathKind::link) << "the link stays";
  EXPECT_THAT(*this->files().list(this->at("victims")), UnorderedElementsAre("file"));
  EXPECT_THAT(*this->files().list(this->at("d")), UnorderedElementsAre("a", "b"));
}

TYPED_TEST(LinksContract, NothingIsReadOrListedThroughALink) {
  this->expectRefused(this->errorOf(this->files().read(this->at("d/a"))), "d/a");
  this->expectRefused(this->errorOf(this->files().read(this->at("link/file"))), "link");
  this->expectRefused(this->errorOf(this->files().list(this->at("link"))), "link");
  this->expectRefused(this->errorOf(this->files().list(this->at("link/x"))), "link");
}

TYPED_TEST(LinksContract, NothingIsLockedOrExaminedThroughALink) {
  this->expectRefused(this->errorOf(this->files().facts(this->at("d/a"))), "d/a");
  this->expectRefused(this->errorOf(this->files().facts(this->at("link/file"))), "link");
  this->expectRefused(this->errorOf(this->files().lock(this->at("link"))), "link");
  this->expectRefused(this->errorOf(this->files().lock(this->at("link/x"))), "link");
}

TYPED_TEST(LinksContract, NoDirectoryIsMadeOverOrThroughALink) {
  this->expectRefused(this->files().createDirectory(this->at("link")), "link");
  this->expectRefused(this->files().createDirectory(this->at("link/x/y")), "link");
  EXPECT_THAT(*this->files().list(this->at("victims")), UnorderedElementsAre("file"));
}

TYPED_TEST(LinksContract, NothingIsMovedOrRemovedThroughALink) {
  this->expectRefused(this->files().remove(this->at("link/file")), "link");
  this->expectRefused(this->files().rename(this->at("link/file"), this->at("d/x")), "link");
  this->expectRefused(this->files().rename(this->at("d/b"), this->at("link/x")), "link");
  EXPECT_EQ(this->files().read(this->at("d/b"))->text(), "beside");
}

TYPED_TEST(LinksContract, RemoveAndRenameTakeALinkForWhatItIs) {
  ASSERT_FALSE(this->files().remove(this->at("d/a")));
  EXPECT_EQ(this->files().kind(this->at("d/a")), PathKind::absent);
  ASSERT_FALSE(this->files().rename(this->at("link"), this->at("d/moved")));
  EXPECT_EQ(this->files().kind(this->at("d/moved")), PathKind::link);
  ASSERT_FALSE(this->files().rename(this->at("d/b"), this->at("d/moved")));
  EXPECT_EQ(this->files().read(this->at("d/moved"))->text(), "beside");
}

TEST(LinkedDocumentsTest, DocumentsDirectoryMayBeReachedThroughLinks) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory.path() + "/real/documents");
  std::filesystem::create_symlink("real", directory.path() + "/above");
  std::filesystem::create_symlink("documents", directory.path() + "/real/alias");
  for (const char* documents : {"/above/documents", "/real/alias", "/above/alias/"}) {
    const std::string root = directory.path() + documents;
    PosixFiles files({root});
    const std::string_view text = "bytes";
    EXPECT_EQ(files.kind(root), PathKind::directory);
    ASSERT_FALSE(files.createDirectory(root + "/x/y"));
    ASSERT_FALSE(files.write(root + "/x/y/a", {&text, 1}, WriteMode::atomic, Durability::synced));
    EXPECT_EQ(files.read(root + "/x/y/a")->text(), "bytes");
    EXPECT_TRUE(std::filesystem::exists(directory.path() + "/real/documents/x/y/a"));
    std::filesystem::remove_all(directory.path() + "/real/documents/x");
  }
}

TEST(LinkedDocumentsTest, DocumentsDirectoryIsMadeThroughLinks) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory.path() + "/real");
  std::filesystem::create_symlink("real", directory.path() + "/above");
  const std::string root = directory.path() + "/above/new/documents";
  ASSERT_FALSE(PosixFiles({root}).createDirectory(root + "/aws-0011/u1"));
  EXPECT_TRUE(std::filesystem::is_directory(directory.path() + "/real/new/documents/aws-0011/u1"));
}

}  // namespace
}  // namespace qx
