// Folders that somebody else has filled: walked, opened and copied without leaving them.
#include "platform/files/FolderTree.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <map>
#include <set>

#include "platform/files/FileCopy.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using Kind = FolderWalk::Kind;

/// What a walk gives, and what it fails at.
struct Walked {
  std::map<std::string, Kind> entries;
  std::map<std::string, int> failures;
};

Walked walked(const std::string& path,
              const std::function<void(const std::string&)>& onEntry = {}) {
  Walked result;
  const FolderTree tree(path);
  FolderWalk walk(tree, [&](const auto& at, int error) { result.failures[at] = error; });
  while (const auto* entry = walk.next()) {
    EXPECT_TRUE(result.entries.emplace(entry->path, entry->kind).second) << entry->path;
    if (onEntry) onEntry(entry->path);
  }
  return result;
}

TEST(FolderWalk, GivesEachEntryOnceAndStaysInTheTree) {
  const TemporaryFolder folder;
  const TemporaryFolder elsewhere;
  elsewhere.write("secret.jpg", "");
  const std::string odd = "new\nline";
  const std::string bytes = "\xFF\xFE.jpg";
  for (const auto& name :
       {odd + "/a.jpg", bytes, std::string(".hidden/.x"), std::string("f.JPG/b")})
    folder.write(name, "x");
  fs::create_directory_symlink(elsewhere.path(), folder.path("out"));
  fs::create_directory_symlink(folder.path(), folder.path("f.JPG/loop"));
  fs::create_symlink(elsewhere.path("secret.jpg"), folder.path("link.jpg"));
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  const auto result = walked(folder.path());
  const std::map<std::string, Kind> expected = {
      {odd, Kind::kFolder},       {odd + "/a.jpg", Kind::kFile}, {bytes, Kind::kFile},
      {".hidden", Kind::kFolder}, {".hidden/.x", Kind::kFile},   {"f.JPG", Kind::kFolder},
      {"f.JPG/b", Kind::kFile},   {"f.JPG/loop", Kind::kOther},  {"out", Kind::kOther},
      {"link.jpg", Kind::kOther}, {"pipe", Kind::kOther}};
  EXPECT_EQ(result.entries, expected);
  EXPECT_THAT(result.failures, IsEmpty());
}

TEST(FolderWalk, PassesOverWhatGoesOrTurnsIntoALinkMeanwhile) {
  const TemporaryFolder folder;
  const TemporaryFolder elsewhere;
  elsewhere.write("secret.jpg", "");
  for (const char* name : {"a/x", "b/x", "c/x"})
    folder.write(name, "");
  const auto result = walked(folder.path(), [&](const std::string& path) {
    fs::remove_all(folder.path(path));
    if (path == "b") fs::create_directory_symlink(elsewhere.path(), folder.path(path));
  });
  EXPECT_EQ(result.entries.size(), 3U);
  EXPECT_THAT(result.failures, IsEmpty());
}

TEST(FolderWalk, SaysWhatLiesTooDeepOrCannotBeRead) {
  const TemporaryFolder folder;
  std::string deepest;
  for (std::size_t level = 0; level <= FolderWalk::kMostLevels; ++level)
    deepest += deepest.empty() ? "d" : "/d";
  folder.write(deepest + "/unseen.jpg", "");
  const auto result = walked(folder.path());
  EXPECT_EQ(result.entries.size(), FolderWalk::kMostLevels + 1);
  EXPECT_THAT(result.failures, ElementsAre(Pair(deepest, ELOOP)));
  EXPECT_THAT(walked(folder.path("none")).failures, ElementsAre(Pair("", ENOENT)));
}

TEST(FolderTree, OpensAndRemovesNothingBehindALinkOrOutside) {
  const TemporaryFolder folder;
  const TemporaryFolder elsewhere;
  elsewhere.write("secret.jpg", "");
  folder.write("a/b.jpg", "content");
  fs::create_directory_symlink(elsewhere.path(), folder.path("out"));
  fs::create_symlink(elsewhere.path("secret.jpg"), folder.path("a/link.jpg"));
  const FolderTree tree(folder.path());
  const std::pair<std::string, int> rows[] = {{"a/b.jpg", 0},
                                              {"", EINVAL},
                                              {"..", EINVAL},
                                              {"a/../a/b.jpg", EINVAL},
                                              {"a//b.jpg", EINVAL},
                                              {"/a/b.jpg", EINVAL},
                                              {"out/secret.jpg", ENOTDIR},
                                              {"a/link.jpg", ELOOP},
                                              {"a", EISDIR},
                                              {"a/b.jpg/c", ENOTDIR},
                                              {"none", ENOENT}};
  for (const auto& [path, expected] : rows) {
    int error = 0;
    EXPECT_EQ(tree.openFile(path, error).isOpen(), expected == 0) << path;
    EXPECT_EQ(expected == 0 ? 0 : error, expected) << path;
  }
  EXPECT_EQ(tree.removeFile("out/secret.jpg"), ENOTDIR);
  EXPECT_EQ(tree.removeFile("a/link.jpg"), 0);
  EXPECT_EQ(tree.removeFile("a"), EISDIR);
  EXPECT_TRUE(elsewhere.exists("secret.jpg"));
  EXPECT_TRUE(tree.holds(folder.path("a")));
  EXPECT_FALSE(tree.holds(elsewhere.path()));
}

/// A copy of `content`, of which `size` bytes are announced.
struct Copied {
  FileCopy::Outcome outcome;
  std::string content;
};
Copied copied(const TemporaryFolder& from, const TemporaryFolder& to, const std::string& content,
              std::uint64_t size, const ProgressCallback& progress = {}) {
  const FileDescriptor source(::open(from.write("source", content).c_str(), O_RDONLY));
  const FileDescriptor target(::open(to.write("copy", "").c_str(), O_RDWR));
  auto outcome = FileCopy().run(source.get(), target.get(), size, progress);
  return {outcome, to.read("copy")};
}

std::string contentOf(std::size_t size) {
  std::string content(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    content[i] = static_cast<char>(i * 7919 >> 7);
  return content;
}

TEST(FileCopy, CopiesByteForByteUntilTheSourceTheRoomOrTheUserEndsIt) {
  const TemporaryFolder folder;
  for (const std::size_t size : {0U, 131073U, 3145729U}) {
    const auto content = contentOf(size);
    std::uint64_t told = 0;
    const auto copy = copied(folder, folder, content, size, [&](std::uint32_t bytes) {
      told += bytes;
      return false;
    });
    EXPECT_EQ(copy.outcome.error, 0);
    EXPECT_EQ(told, size);
    EXPECT_TRUE(copy.content == content) << size;
  }
  EXPECT_EQ(copied(folder, folder, "short", 6).outcome.error, ENODATA);
  EXPECT_EQ(copied(folder, folder, "longer", 4).content, "long");
  EXPECT_TRUE(copied(folder, folder, contentOf(3U << 20U), 3U << 20U, [](std::uint32_t) {
                return true;
              }).outcome.wasCancelled);
}

}  // namespace
}  // namespace tarvo::test
