#include "import/History.h"

#include <fcntl.h>
#include <glib.h>
#include <sqlite3.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>
#include <utility>

#include "Utilities/FileDescriptor.h"
#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"

namespace tarvo::importing {
namespace {

using Kind = HistoryError::Kind;

constexpr int kVersion = 1;
constexpr std::chrono::milliseconds kMostPatience{5000};
/// Use is noted no finer than this.
constexpr std::time_t kFinestUse = 86'400;
/// Searches one after the other see the same state for so long: to begin takes longer than to look.
constexpr std::chrono::milliseconds kFreshness{50};
/// No object has such an id.
constexpr std::int64_t kBeyondIds = std::int64_t{1} << 40;

constexpr const char* kTables =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE objects("
    " id INTEGER PRIMARY KEY, name TEXT NOT NULL COLLATE NOCASE, size INTEGER NOT NULL,"
    " taken INTEGER, fingerprint TEXT NOT NULL, device TEXT NOT NULL, copies INTEGER NOT NULL,"
    " path TEXT NOT NULL, imported INTEGER NOT NULL, used INTEGER NOT NULL) STRICT;"
    "CREATE INDEX objects_by_key ON objects(name, size);"
    "CREATE INDEX objects_by_use ON objects(used);"
    "PRAGMA user_version = 1;"
    "COMMIT";
constexpr const char* kColumns =
    "name, size, taken, fingerprint, device, copies, path, imported, id";
constexpr const char* kSameKey =
    "name = ?1 AND size = ?2 AND"
    " (taken BETWEEN ?3 - ?4 AND ?3 + ?4 OR (taken IS NULL AND ?3 IS NULL))";

Kind kindOf(int status, int error) {
  switch (status & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_ERROR:
      return Kind::kDamaged;  // tables of somebody else's
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      return Kind::kReadOnly;
    case SQLITE_FULL:
      return Kind::kFull;
    case SQLITE_BUSY:
      return Kind::kBusy;
    case SQLITE_IOERR:
      return error == ENOSPC || error == EDQUOT ? Kind::kFull : Kind::kOther;
    default:
      return Kind::kOther;
  }
}

std::string wordsOf(Kind kind) {
  switch (kind) {
    case Kind::kDamaged:
      return "is damaged";
    case Kind::kNewer:
      return "was made by a later version of this program";
    case Kind::kReadOnly:
      return "cannot be written";
    case Kind::kFull:
      return "cannot be written: no room is left";
    case Kind::kBusy:
      return "is held by another program";
    case Kind::kOther:
      break;
  }
  return "cannot be used";
}

/// Held by one process at a time, so that one alone makes or mends what lies in the folder. Where
/// the file system knows no locks it does without.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    const auto end = std::chrono::steady_clock::now() + kMostPatience;
    while (::flock(folder_.get(), LOCK_EX | LOCK_NB) != 0) {
      isRefused_ = errno == EWOULDBLOCK;
      if (!isRefused_ || std::chrono::steady_clock::now() > end) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    isRefused_ = false;
  }
  bool isRefused() const { return isRefused_; }

 private:
  FileDescriptor folder_;
  bool isRefused_ = false;
};

/// Whether it is an object that remember() could have put there.
bool isWhole(const Remembered& object) {
  return !object.name.empty() && object.copies > 0 &&
         (object.fingerprint.empty() || object.fingerprint.size() == 32);
}

}  // namespace

void History::Closer::operator()(sqlite3* database) const {
  sqlite3_close(database);
}
void History::Closer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

/// One run of a statement, which it gives back at its end. Texts are lent for that long.
class History::Execution {
 public:
  template <typename... Values>
  Execution(const History& history, const Statement& statement, const Values&... values)
      : history_(history), statement_(statement.get()) {
    int place = 0;
    (bind(++place, values), ...);
  }
  Execution(const Execution&) = delete;
  Execution& operator=(const Execution&) = delete;
  ~Execution() { sqlite3_reset(statement_); }

  /// SQLITE_ROW, SQLITE_DONE, or an error.
  int step() { return sqlite3_step(statement_); }
  /// False at the end; raises what fails.
  bool next() {
    const int status = step();
    if (status != SQLITE_ROW && status != SQLITE_DONE)
      history_.fail(sqlite3_db_handle(statement_), status);
    return status == SQLITE_ROW;
  }

  std::int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }
  std::string text(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    if (bytes == nullptr) return {};
    return {static_cast<const char*>(bytes),
            static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
  }
  /// Of kColumns.
  Remembered object() const {
    Remembered object{.name = text(0),
                      .size = static_cast<std::uint64_t>(number(1)),
                      .fingerprint = text(3),
                      .device = text(4),
                      .copies = static_cast<std::uint32_t>(number(5)),
                      .path = text(6),
                      .imported = number(7)};
    if (sqlite3_column_type(statement_, 2) != SQLITE_NULL) object.taken.emplace(number(2));
    return object;
  }
  std::int64_t id() const { return number(8); }

 private:
  void bind(int place, std::int64_t value) { sqlite3_bind_int64(statement_, place, value); }
  void bind(int place, std::string_view text) {
    // Without an address it would be NULL.
    const char* bytes = text.empty() ? "" : text.data();
    sqlite3_bind_text64(statement_, place, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  void bind(int place, const std::optional<CalendarTime>& time) {
    if (time) {
      bind(place, time->seconds());
    } else {
      sqlite3_bind_null(statement_, place);
    }
  }

  const History& history_;
  sqlite3_stmt* statement_;
};

/// Undone unless it is committed.
class History::Transaction {
 public:
  explicit Transaction(const History& history) : history_(history) {
    // One that began by reading could not go on to write behind another process's back.
    history_.execute("BEGIN IMMEDIATE");
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() {
    if (!isCommitted_)
      sqlite3_exec(history_.database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  void commit() {
    history_.execute("COMMIT");
    isCommitted_ = true;
  }

 private:
  const History& history_;
  bool isCommitted_ = false;
};

std::string History::defaultPath() {
  return userStateFolder() + "/tarvo/imports.sqlite";
}

History::History(std::string path, std::size_t most) : path_(std::move(path)), most_(most) {
  const std::string folder = std::filesystem::path(path_).parent_path();
  if (g_mkdir_with_parents(folder.c_str(), S_IRWXU) != 0)
    fail(errno == ENOSPC || errno == EDQUOT ? Kind::kFull : Kind::kReadOnly, errorText(errno));
  const FolderLock lock(folder);
  if (lock.isRefused()) fail(Kind::kBusy);
  try {
    open();
    return;
  } catch (const HistoryError& error) {
    if (error.kind() != Kind::kDamaged) throw;
  }
  for (Statement* statement : {&find_, &update_, &insert_, &use_, &trim_})
    statement->reset();
  database_.reset();
  const std::string damaged = putAside();
  open();
  note_ = "the history of imports was damaged: " + std::to_string(salvage(damaged)) +
          " of its entries were saved, and it is kept as " + damaged;
}

History::~History() {
  if (used_.empty()) return;
  try {
    endReading();
    Transaction transaction(*this);
    noteUse(std::time(nullptr));
    transaction.commit();
  } catch (const HistoryError&) {
    // They are taken for somewhat older than they are.
  }
}

void History::fail(sqlite3* database, int status) const {
  const Kind kind = kindOf(status, database != nullptr ? sqlite3_system_errno(database) : 0);
  fail(kind, kind == Kind::kOther ? sqlite3_errstr(status) : "");
}

void History::fail(Kind kind, const std::string& why) const {
  throw HistoryError(kind, "the history of imports, " + path_ + ", " + wordsOf(kind) +
                               (why.empty() ? "" : ": ") + why);
}

History::Database History::connect(const std::string& path) const {
  sqlite3* opened = nullptr;
  const int status =
      sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  Database database(opened);
  if (status != SQLITE_OK) fail(opened, status);
  sqlite3_extended_result_codes(opened, 1);
  sqlite3_busy_timeout(opened, static_cast<int>(kMostPatience.count()));
  // Until it is known to be ours and whole, it stays as it is.
  sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  return database;
}

History::Statement History::prepare(sqlite3* database, const std::string& text) const {
  sqlite3_stmt* prepared = nullptr;
  const int status =
      sqlite3_prepare_v3(database, text.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  if (status != SQLITE_OK) fail(database, status);
  return Statement(prepared);
}

void History::execute(const std::string& text) const {
  const int status = sqlite3_exec(database_.get(), text.c_str(), nullptr, nullptr, nullptr);
  if (status != SQLITE_OK) fail(database_.get(), status);
}

std::string History::answer(const std::string& text) const {
  const Statement question = prepare(database_.get(), text);
  Execution execution(*this, question);
  return execution.next() ? execution.text(0) : std::string();
}

void History::open() {
  // Never opened here where it is there: closing it would take the locks from another History of
  // this process.
  const FileDescriptor made(
      ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  database_ = connect(path_);
  if (sqlite3_db_readonly(database_.get(), "main") == 1) fail(Kind::kReadOnly);
  const std::string version = answer("PRAGMA user_version");
  if (version != "0" && version != std::to_string(kVersion)) fail(Kind::kNewer);
  // Some damage is found by no other statement.
  if (answer("PRAGMA quick_check(1)") != "ok") fail(Kind::kDamaged);
  answer("PRAGMA journal_mode = WAL");
  execute("PRAGMA synchronous = NORMAL");
  if (version == "0") execute(kTables);
  prepareAll();
  sqlite3_db_config(database_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

void History::prepareAll() {
  const auto prepared = [this](const std::string& text) { return prepare(database_.get(), text); };
  find_ = prepared(std::string("SELECT ") + kColumns + ", used FROM objects WHERE " + kSameKey);
  update_ = prepared(std::string("UPDATE objects SET device = ?6, copies = max(copies, ?7),"
                                 " path = ?8, imported = ?9, used = ?10"
                                 " WHERE fingerprint = ?5 AND ") +
                     kSameKey);
  insert_ = prepared("INSERT INTO objects VALUES(NULL, ?1, ?2, ?3, ?5, ?6, ?7, ?8, ?9, ?10)");
  use_ = prepared("UPDATE objects SET used = ?1 WHERE id = ?2");
  trim_ = prepared(
      "DELETE FROM objects WHERE id IN (SELECT id FROM objects ORDER BY used, id"
      " LIMIT max(0, (SELECT count(*) FROM objects) - ?1))");
}

std::string History::putAside() {
  std::string damaged = path_ + ".damaged";
  for (unsigned number = 2; std::filesystem::exists(std::filesystem::symlink_status(damaged));
       ++number)
    damaged = path_ + ".damaged-" + std::to_string(number);
  // It goes last: what belongs to it would be taken for the next one's.
  for (const char* ending : {"-wal", "-shm", ""}) {
    if (::rename((path_ + ending).c_str(), (damaged + ending).c_str()) != 0 && errno != ENOENT)
      fail(Kind::kReadOnly, errorText(errno));
  }
  return damaged;
}

std::size_t History::salvage(const std::string& damaged) {
  const Database old = connect(damaged);
  Statement rows;
  try {
    rows = prepare(old.get(),
                   std::string("SELECT ") + kColumns + " FROM objects WHERE id > ?1 ORDER BY id");
  } catch (const HistoryError&) {
    return 0;
  }
  Transaction transaction(*this);
  const std::time_t now = std::time(nullptr);
  // Behind a page that cannot be read it goes on with larger and larger steps until one can.
  std::int64_t stride = 1;
  for (std::int64_t id = 0; id < kBeyondIds; id += stride) {
    Execution execution(*this, rows, id);
    int status = SQLITE_ROW;
    stride *= 2;
    while ((status = execution.step()) == SQLITE_ROW && execution.id() > id) {
      id = execution.id();
      stride = 1;
      if (const Remembered object = execution.object(); isWhole(object)) put(object, now);
    }
    if (status == SQLITE_DONE) break;
  }
  Execution(*this, trim_, static_cast<std::int64_t>(most_)).next();
  transaction.commit();
  return size();
}

void History::put(const Remembered& object, std::time_t now) {
  for (const Statement* statement : {&update_, &insert_}) {
    Execution(*this, *statement, object.name, static_cast<std::int64_t>(object.size), object.taken,
              kTimeTolerance, object.fingerprint, object.device, std::int64_t{object.copies},
              object.path, std::int64_t{object.imported}, std::int64_t{now})
        .next();
    if (sqlite3_changes(database_.get()) > 0) return;
  }
}

void History::noteUse(std::time_t now) {
  for (const std::int64_t id : std::exchange(used_, {}))
    Execution(*this, use_, std::int64_t{now}, id).next();
}

void History::beginReading() {
  const auto now = std::chrono::steady_clock::now();
  if (readingSince_ && now - *readingSince_ < kFreshness) return;
  endReading();
  execute("BEGIN");
  readingSince_ = now;
}

void History::endReading() {
  if (std::exchange(readingSince_, std::nullopt)) execute("COMMIT");
}

std::vector<Remembered> History::find(std::string_view name, std::uint64_t size,
                                      std::optional<CalendarTime> taken) {
  beginReading();
  std::vector<Remembered> found;
  const std::time_t now = std::time(nullptr);
  Execution execution(*this, find_, name, static_cast<std::int64_t>(size), taken, kTimeTolerance);
  while (execution.next()) {
    found.push_back(execution.object());
    if (execution.number(9) < now - kFinestUse) used_.push_back(execution.id());
  }
  return found;
}

void History::remember(std::span<const Remembered> objects) {
  endReading();
  Transaction transaction(*this);
  const std::time_t now = std::time(nullptr);
  noteUse(now);
  for (const Remembered& object : objects)
    put(object, now);
  Execution(*this, trim_, static_cast<std::int64_t>(most_)).next();
  transaction.commit();
}

std::size_t History::size() {
  endReading();
  return std::stoull(answer("SELECT count(*) FROM objects"));
}

}  // namespace tarvo::importing
