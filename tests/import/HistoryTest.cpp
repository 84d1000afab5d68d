#include "import/History.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <span>

#include "Utilities/FileDescriptor.h"
#include "import/Fingerprint.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using importing::CalendarTime;
using importing::History;
using importing::HistoryError;
using importing::Remembered;
using testing::HasSubstr;

const CalendarTime kTaken(1'718'452'800);

Remembered picture(const std::string& name, char fingerprint = 'a') {
  return {.name = name,
          .size = 1000,
          .taken = kTaken,
          .fingerprint = std::string(32, fingerprint),
          .device = "S1",
          .path = "/p/" + name,
          .imported = 5};
}

class HistoryTest : public testing::Test {
 protected:
  /// Many, so that they fill some pages.
  void fill(int count = 2000) {
    History history(path_);
    std::vector<Remembered> all;
    all.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
      all.push_back(picture("P" + std::to_string(i) + ".JPG"));
    history.remember(all);
  }
  static std::size_t found(History& history, const std::string& name,
                           std::optional<CalendarTime> taken = kTaken) {
    return history.find(name, 1000, taken).size();
  }
  HistoryError::Kind refusal() {
    try {
      History history(path_);
    } catch (const HistoryError& error) {
      EXPECT_THAT(error.what(), HasSubstr(path_));
      return error.kind();
    }
    ADD_FAILURE() << "it was opened";
    return HistoryError::Kind::kOther;
  }
  void run(const char* statement) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statement, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.path("state/tarvo/imports.sqlite");
};

TEST_F(HistoryTest, AnObjectIsKnownByNameSizeAndDateWithinTheTolerance) {
  History history(path_);
  Remembered undated = picture("n.jpg");
  undated.taken.reset();
  history.remember(std::vector{picture("A.JPG"), undated, picture("\xC4.JPG")});
  const struct {
    const char* name;
    std::uint64_t size;
    std::optional<std::int64_t> later;
    std::size_t count;
  } rows[] = {
      {"A.JPG", 1000, 0, 1},    {"a.jpg", 1000, 2, 1},    {"A.jpg", 1000, -2, 1},
      {"A.JPG", 1000, 3, 0},    {"A.JPG", 1000, -3, 0},   {"A.JPG", 1001, 0, 0},
      {"A.JP", 1000, 0, 0},     {"A.JPG", 1000, {}, 0},   {"N.JPG", 1000, {}, 1},
      {"N.JPG", 1000, 0, 0},    {"\xC4.jpg", 1000, 0, 1}, {"", 1000, 0, 0},
      {"\xE4.JPG", 1000, 0, 0},
  };
  for (const auto& row : rows) {
    std::optional<CalendarTime> taken;
    if (row.later) taken.emplace(kTaken.seconds() + *row.later);
    EXPECT_EQ(history.find(row.name, row.size, taken).size(), row.count)
        << row.name << row.size << row.later.value_or(99);
  }
}

TEST_F(HistoryTest, WhatIsRememberedComesBackWholeAndTheSameContentGivesWay) {
  Remembered first = picture("A.JPG");
  first.copies = 3;
  Remembered again = picture("a.jpg");
  again.taken.emplace(kTaken.seconds() + 2);
  again.path = "/elsewhere";
  again.imported = 9;
  {
    History history(path_);
    history.remember(std::vector{first, picture("A.JPG", 'b')});
    history.remember(std::vector{again});
  }
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  History history(path_);
  EXPECT_EQ(history.note(), "");
  EXPECT_EQ(history.size(), 2U);
  const auto all = history.find("A.JPG", 1000, kTaken);
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].path, "/elsewhere");
  EXPECT_EQ(all[0].name, "A.JPG");
  EXPECT_EQ(all[0].copies, 3U);
  EXPECT_EQ(all[0].imported, 9);
  EXPECT_EQ(all[0].device, "S1");
  EXPECT_EQ(all[0].taken, kTaken);
  EXPECT_EQ(all[1].fingerprint, std::string(32, 'b'));
}

TEST_F(HistoryTest, OfTooManyTheOneThatWasNotUsedForLongestGoes) {
  fill(3);
  run("UPDATE objects SET used = 7 - id");
  History(path_).find("p2.jpg", 1000, kTaken);
  History history(path_, 3);
  history.remember(std::vector{picture("NEW.JPG")});
  EXPECT_EQ(history.size(), 3U);
  EXPECT_EQ(found(history, "P1.JPG"), 0U);
  EXPECT_EQ(found(history, "P2.JPG"), 1U);
}

TEST_F(HistoryTest, TwoProcessesWriteAtOnceAndNothingIsLost) {
  constexpr int kEach = 150;
  const auto writeAll = [&](const std::string& prefix) {
    History history(path_);
    for (int i = 0; i < kEach; ++i)
      history.remember(std::vector{picture(prefix + std::to_string(i))});
  };
  const ::pid_t child = ::fork();
  if (child == 0) {
    try {
      writeAll("child");
    } catch (...) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  writeAll("parent");
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(History(path_).size(), 2U * kEach);
}

TEST_F(HistoryTest, ADamagedOneIsPutAsideAndWhatCanBeReadOfItIsKept) {
  fill();
  const auto size = std::filesystem::file_size(path_);
  const struct {
    const char* what;
    std::size_t place, length;
    std::size_t least;
  } rows[] = {
      {"a page of zeroes", size / 4 / 4096 * 4096, 4096, 1700},
      {"some pages of zeroes", size / 3 / 4096 * 4096, 12'288, 1000},
      {"another file", 0, 4096, 0},
  };
  const std::string whole = folder_.read("state/tarvo/imports.sqlite");
  std::size_t kept = 0;
  for (const auto& row : rows) {
    std::string bytes = whole;
    bytes.replace(row.place, row.length, row.length, '\0');
    folder_.write("state/tarvo/imports.sqlite", bytes);
    History history(path_);
    const std::string damaged = path_ + ".damaged" + (++kept > 1 ? "-" + std::to_string(kept) : "");
    EXPECT_EQ(history.note(),
              "the history of imports was damaged: " + std::to_string(history.size()) +
                  " of its entries were saved, and it is kept as " + damaged);
    EXPECT_GE(history.size(), row.least) << row.what;
    EXPECT_EQ(folder_.read(damaged.substr(folder_.path().size() + 1)), bytes) << row.what;
    history.remember(std::vector{picture("NEW.JPG")});
    EXPECT_EQ(History(path_).note(), "");
  }
}

TEST_F(HistoryTest, OneThatIsShortOrEmptyOrHasOtherTablesIsMended) {
  fill(20);
  std::filesystem::resize_file(path_, 5000);
  EXPECT_NE(History(path_).note(), "");
  std::filesystem::resize_file(path_, 0);
  EXPECT_EQ(History(path_).size(), 0U);
  run("DROP TABLE objects");
  EXPECT_NE(History(path_).note(), "");
  EXPECT_EQ(History(path_).size(), 0U);
}

TEST_F(HistoryTest, WhatCannotBeUsedIsLeftAsItIsAndSaidInWords) {
  fill(20);
  run("PRAGMA user_version = 2");
  const std::string before = folder_.read("state/tarvo/imports.sqlite");
  EXPECT_EQ(refusal(), HistoryError::Kind::kNewer);
  EXPECT_EQ(folder_.read("state/tarvo/imports.sqlite"), before);
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  EXPECT_EQ(refusal(), HistoryError::Kind::kReadOnly);
}

TEST(FingerprintTest, TheWholeContentCountsWhereverTheFileStands) {
  const TemporaryFolder folder;
  const auto of = [&](const std::string& content) {
    const FileDescriptor file(::open(folder.write("f", content).c_str(), O_RDONLY | O_CLOEXEC));
    ::lseek(file.get(), 1, SEEK_SET);
    return importing::fingerprintOf(file.get());
  };
  EXPECT_EQ(of(""), "99aa06d3014798d86001c324468d497f") << "as xxh128sum has it";
  std::string large((1UL << 20) + 1, 'x');
  const auto one = of(large);
  large.back() = 'y';
  EXPECT_NE(of(large), one);
  EXPECT_EQ(importing::fingerprintOf(-1), std::nullopt);

  // While it comes: the rest of a cut download is not the whole.
  const auto bytes = std::as_bytes(std::span(large));
  importing::Fingerprint whole, rest;
  whole.add(0, bytes.first(5));
  EXPECT_EQ(whole.of(large.size()), std::nullopt);
  for (auto* const each : {&whole, &rest})
    each->add(5, bytes.subspan(5));
  EXPECT_EQ(whole.of(large.size()), of(large));
  EXPECT_EQ(rest.of(large.size() - 5), std::nullopt);
}

}  // namespace
}  // namespace tarvo::test
