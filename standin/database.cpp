#include "platform/database.h"

#include <sqlite3.h>

#include <bitset>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include "standin/log.h"
#include "standin/period_ledger.h"
#include "standin/registry.h"
#include "standin/standin.h"

namespace tarq::standin {
namespace {

constexpr std::string_view kTable = "tarq_savro_report_perf";
constexpr uint32_t kKeyForm = 0x00010008;
constexpr int kBusyTimeoutMs = 50;  ///< how long the worker waits at most for another process that holds the file

// The columns after the key, in order. Everything about columns is made from this list.
#define TARQ_PERF_FIELDS(X) \
  X(period_index)           \
  X(in_wux_msg_count)       \
  X(in_wux_msg_byte_count)  \
  X(in_wux_item_count)      \
  X(in_wux_item_byte_count) \
  X(out_msg_count)          \
  X(out_msg_byte_count)     \
  X(out_item_count)         \
  X(out_item_byte_count)    \
  X(start_time_s)           \
  X(start_time_ms)          \
  X(end_time_s)             \
  X(end_time_ms)

struct Column {
  const char* name;
  uint32_t ReportPerfRecord::*field;
};
#define TARQ_COLUMN(name) {#name, &ReportPerfRecord::name},
constexpr Column kColumns[] = {TARQ_COLUMN(reserved) TARQ_COLUMN(history_id) TARQ_PERF_FIELDS(TARQ_COLUMN)};
constexpr int kColumnCount = std::size(kColumns);
constexpr int kKeyColumns = 2;
static_assert(kColumnCount * sizeof(uint32_t) == sizeof(ReportPerfRecord));

/// `form` for each column from the `first` on, "$" replaced by its name and "#" by its number from 1, with commas
/// between.
std::string Columns(std::string_view form, int first = 0) {
  std::string text;
  for (int i = first; i < kColumnCount; ++i) {
    if (i > first) text += ", ";
    for (const char c : form)
      text += c == '$' ? kColumns[i].name : c == '#' ? std::to_string(i + 1) : std::string(1, c);
  }
  return text;
}

/// A text that is never destroyed: a task may still be using the database when the process ends.
const std::string& Kept(std::string text) { return *new std::string(std::move(text)); }

const std::string& kTableText = Kept(std::string(kTable));
const std::string& kWhereKey = Kept(" WHERE reserved = ?1 AND history_id = ?2");
const std::string& kCreate = Kept("CREATE TABLE IF NOT EXISTS " + kTableText + " (" + Columns("$ INTEGER NOT NULL") +
                                  ", PRIMARY KEY (reserved, history_id)) WITHOUT ROWID");
const std::string& kInsert = Kept("INSERT INTO " + kTableText + " VALUES (" + Columns("?#") + ")");
const std::string& kUpdate =
    Kept("UPDATE " + kTableText + " SET " + Columns("$ = coalesce(?#, $)", kKeyColumns) + kWhereKey);
const std::string& kSelect = Kept("SELECT " + Columns("$") + " FROM " + kTableText);
const std::string& kSelectRow = Kept(kSelect + kWhereKey);
const std::string& kSelectAll = Kept(kSelect + " ORDER BY reserved, history_id");
const std::string& kTruncate = Kept("DELETE FROM " + kTableText);
const std::string& kTableInfo = Kept("SELECT name, type, \"notnull\", pk FROM pragma_table_info('" + kTableText + "')");

/// What one object is for, and the fields set on it.
struct DatabaseObject {
  DatabaseOperation operation;
  ReportPerfRecord record{};
  std::bitset<kColumnCount> set;
};

struct Close {
  void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

/// A connection with its statements. Used under the store's mutex.
struct Connection {
  std::unique_ptr<sqlite3, Close> handle;
  Statement insert, update, selectRow, selectAll, truncate;

  Statement Prepare(const std::string& sql) const {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v3(handle.get(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    return Statement(statement);
  }
  bool Execute(const std::string& sql) const {
    return sqlite3_exec(handle.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  bool PrepareAll() {
    insert = Prepare(kInsert);
    update = Prepare(kUpdate);
    selectRow = Prepare(kSelectRow);
    selectAll = Prepare(kSelectAll);
    truncate = Prepare(kTruncate);
    return insert && update && selectRow && selectAll && truncate;
  }
};

/// Runs a statement once; `onRow` is called for each row. Returns SQLite's result, `SQLITE_DONE` for success.
template <class OnRow>
int Step(sqlite3_stmt* statement, OnRow onRow) {
  int result;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) onRow();
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  return result;
}
int Step(sqlite3_stmt* statement) {
  return Step(statement, [] {});
}

void BindKey(sqlite3_stmt* statement, const ReportPerfKey& key) {
  sqlite3_bind_int64(statement, 1, key.reserved);
  sqlite3_bind_int64(statement, 2, key.history_id);
}

ReportPerfRecord RowOf(sqlite3_stmt* statement) {
  ReportPerfRecord record{};
  for (int i = 0; i < kColumnCount; ++i) {
    record.*kColumns[i].field = static_cast<uint32_t>(sqlite3_column_int64(statement, i));
  }
  return record;
}

/// True when the table has our columns, in order, with our key.
bool HasOurColumns(const Connection& connection) {
  const Statement info = connection.Prepare(kTableInfo);
  int seen = 0;
  bool same = true;
  const auto text = [&](int column) {
    const auto* const value = reinterpret_cast<const char*>(sqlite3_column_text(info.get(), column));
    return std::string_view(value == nullptr ? "" : value);
  };
  Step(info.get(), [&] {
    const int keyPlace = seen < kKeyColumns ? seen + 1 : 0;
    same = same && seen < kColumnCount && text(0) == kColumns[seen].name && text(1) == "INTEGER" &&
           sqlite3_column_int(info.get(), 2) == 1 && sqlite3_column_int(info.get(), 3) == keyPlace;
    ++seen;
  });
  return same && seen == kColumnCount;
}

/// Opens `file`, memory when empty, into `connection`. Returns what went wrong, or nothing.
std::string OpenConnection(const std::string& file, Connection& connection) {
  sqlite3* handle = nullptr;
  const std::string name = file.empty() ? ":memory:" : file;
  const int result = sqlite3_open_v2(name.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  connection.handle.reset(handle);
  if (result != SQLITE_OK) return handle == nullptr ? sqlite3_errstr(result) : sqlite3_errmsg(handle);
  sqlite3_busy_timeout(handle, kBusyTimeoutMs);
  if (sqlite3_db_readonly(handle, "main") == 1) return "it is not writable";
  if (!connection.Execute(kCreate)) return sqlite3_errmsg(handle);
  if (!HasOurColumns(connection)) return "its table " + kTableText + " has other columns";
  // Write-ahead logging without a flush per write, so that the worker does not wait for the disk.
  const bool ready = connection.Execute("PRAGMA journal_mode = WAL") &&
                     connection.Execute("PRAGMA synchronous = NORMAL") && connection.PrepareAll();
  return ready ? "" : sqlite3_errmsg(handle);
}

/// The process's database: in memory until a file is opened.
struct Store {
  std::mutex mutex;
  Connection connection;
  bool closed = false;
  DatabaseCounters counters;
  std::map<uint32_t, ReportPerfRecord> lastRows;  ///< slot -> the row that was handed over last
};

/// Never destroyed: a task may still be running when the process ends.
Store& TheStore() {
  static auto* const store = new Store;
  return *store;
}

/// Counts the records that `row`, about to be saved, accounts for beyond its slot's last row.
void CountRecords(const ReportPerfRecord& row) {
  Store& store = TheStore();
  std::lock_guard lock(store.mutex);
  ReportPerfRecord& last = store.lastRows[row.history_id];
  const bool goesOn = row.period_index == last.period_index && row.start_time_s == last.start_time_s &&
                      row.start_time_ms == last.start_time_ms && row.in_wux_item_count >= last.in_wux_item_count;
  if (!goesOn) last = {};
  store.counters.recordsIn += row.in_wux_item_count - last.in_wux_item_count;
  store.counters.recordsOut += row.out_item_count - last.out_item_count;
  last = row;
  PeriodLedger::Get().AddRow(row.history_id);
}

enum class Outcome { kDone, kNoRow, kFailed };

/// True when the connection's file is not where it was opened: what is written goes to no file anybody can open.
bool HasMoved(const Connection& connection) {
  int moved = 0;
  sqlite3_file_control(connection.handle.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

/// Runs `operation(connection, counters)` on the open database and returns the seam's result. `what` is for the log
/// line.
template <class Operation>
uint32_t Operate(const char* what, Operation operation) {
  Store& store = TheStore();
  std::unique_lock lock(store.mutex);
  if (store.closed) return 1;
  std::string error;
  if (store.connection.handle == nullptr) error = OpenConnection("", store.connection);
  if (!error.empty()) store.connection = {};
  if (error.empty() && HasMoved(store.connection)) error = "its file was moved or deleted";
  const Outcome outcome = error.empty() ? operation(store.connection, store.counters) : Outcome::kFailed;
  if (outcome != Outcome::kFailed) return outcome == Outcome::kDone ? 0 : 1;
  ++store.counters.failures;
  if (error.empty()) error = sqlite3_errmsg(store.connection.handle.get());
  lock.unlock();
  Log(kLogFailure, "[database] cannot %s: %s", what, error.c_str());
  return 1;
}

std::shared_ptr<DatabaseObject> FindObject(const void* object) { return Objects<DatabaseObject>().Find(IdOf(object)); }

/// The object when it is for `operation` and the key is described rightly; else null.
std::shared_ptr<DatabaseObject> FindKeyed(void* object, DatabaseOperation operation, const KeyDescriptor* descriptor,
                                          const ReportPerfKey* key) {
  auto found = FindObject(object);
  const bool usable = found != nullptr && found->operation == operation && descriptor != nullptr && key != nullptr &&
                      descriptor->form == kKeyForm;
  return usable ? std::move(found) : nullptr;
}

uint32_t SetField(void* object, uint32_t ReportPerfRecord::*field, uint32_t value) {
  const auto found = FindObject(object);
  if (found == nullptr || found->operation == kDatabaseRead) return 1;
  found->record.*field = value;
  for (int i = 0; i < kColumnCount; ++i) found->set[i] = found->set[i] || kColumns[i].field == field;
  return 0;
}

void BindFields(sqlite3_stmt* statement, const DatabaseObject& object, int first) {
  for (int i = first; i < kColumnCount; ++i) {
    if (object.set[i]) sqlite3_bind_int64(statement, i + 1, object.record.*kColumns[i].field);
  }
}

}  // namespace

std::string OpenDatabase(const std::string& file) {
  Connection connection;
  const std::string error = OpenConnection(file, connection);
  if (!error.empty()) {
    return "cannot use " + (file.empty() ? "memory" : "'" + file + "'") + " as the database: " + error +
           "; name another file, or move this one away to have a new one made";
  }
  Store& store = TheStore();
  std::lock_guard lock(store.mutex);
  store.connection = std::move(connection);
  store.closed = false;
  return "";
}

void CloseDatabase() {
  Store& store = TheStore();
  std::lock_guard lock(store.mutex);
  store.connection = {};
  store.closed = true;
}

std::vector<ReportPerfRecord> ReadPeriodTable() {
  std::vector<ReportPerfRecord> rows;
  Operate("read the table", [&](Connection& connection, DatabaseCounters&) {
    sqlite3_stmt* const statement = connection.selectAll.get();
    const int result = Step(statement, [&] { rows.push_back(RowOf(statement)); });
    return result == SQLITE_DONE ? Outcome::kDone : Outcome::kFailed;
  });
  return rows;
}

DatabaseCounters GetDatabaseCounters() {
  Store& store = TheStore();
  std::lock_guard lock(store.mutex);
  DatabaseCounters counters = store.counters;
  counters.recordsForgotten = PeriodLedger::Get().forgotten();
  counters.recordsInNoRow = PeriodLedger::Get().inNoRow();
  return counters;
}

}  // namespace tarq::standin

namespace tarq {

using namespace standin;

uint32_t db_create_tarq_savro_report_perf_obj(uint32_t operation, uint32_t /*flags*/, void** object) {
  if (object == nullptr) return 1;
  if (operation != kDatabaseInsert && operation != kDatabaseUpdate && operation != kDatabaseRead) return 1;
  const auto made = std::make_shared<DatabaseObject>(DatabaseObject{static_cast<DatabaseOperation>(operation), {}, {}});
  *object = HandleOf(Objects<DatabaseObject>().Add(made));
  return 0;
}

uint32_t db_release_tarq_savro_report_perf_object(void* object) {
  return Objects<DatabaseObject>().Take(IdOf(object)) != nullptr ? 0 : 1;
}

uint32_t db_read_obj(void* object, const KeyDescriptor* descriptor, const ReportPerfKey* key) {
  const auto found = FindKeyed(object, kDatabaseRead, descriptor, key);
  if (found == nullptr) return 1;
  return Operate("read a row", [&](Connection& connection, DatabaseCounters&) {
    sqlite3_stmt* const statement = connection.selectRow.get();
    bool any = false;
    BindKey(statement, *key);
    const int result = Step(statement, [&] {
      found->record = RowOf(statement);
      any = true;
    });
    return result != SQLITE_DONE ? Outcome::kFailed : any ? Outcome::kDone : Outcome::kNoRow;
  });
}

uint32_t db_update_obj(void* object, const KeyDescriptor* descriptor, const ReportPerfKey* key) {
  const auto found = FindKeyed(object, kDatabaseUpdate, descriptor, key);
  if (found == nullptr) return 1;
  found->record.history_id = key->history_id;
  CountRecords(found->record);
  return Operate("update a row", [&](Connection& connection, DatabaseCounters& counters) {
    sqlite3_stmt* const statement = connection.update.get();
    BindKey(statement, *key);
    BindFields(statement, *found, kKeyColumns);
    if (Step(statement) != SQLITE_DONE) return Outcome::kFailed;
    if (sqlite3_changes(connection.handle.get()) == 0) return Outcome::kNoRow;
    ++counters.updates;
    return Outcome::kDone;
  });
}

uint32_t db_write_obj(void* object) {
  const auto found = FindObject(object);
  if (found == nullptr || found->operation != kDatabaseInsert) return 1;
  CountRecords(found->record);
  return Operate("insert a row", [&](Connection& connection, DatabaseCounters& counters) {
    BindFields(connection.insert.get(), *found, 0);
    if (Step(connection.insert.get()) != SQLITE_DONE) return Outcome::kFailed;
    ++counters.inserts;
    return Outcome::kDone;
  });
}

uint32_t db_set_tarq_savro_report_perf_all_fields(void* object, const ReportPerfRecord* record, uint32_t length) {
  const auto found = FindObject(object);
  if (found == nullptr || found->operation == kDatabaseRead) return 1;
  if (record == nullptr || length != sizeof *record) return 1;
  found->record = *record;
  found->set.set();
  return 0;
}

#define TARQ_SETTER(name)                                                       \
  uint32_t db_set_tarq_savro_report_perf_##name(void* object, uint32_t value) { \
    return SetField(object, &ReportPerfRecord::name, value);                    \
  }
TARQ_PERF_FIELDS(TARQ_SETTER)

uint32_t db_truncate_table(const char* table, uint32_t /*flags*/) {
  if (table == nullptr || table != kTable) return 1;
  return Operate("empty the table", [](Connection& connection, DatabaseCounters& counters) {
    if (Step(connection.truncate.get()) != SQLITE_DONE) return Outcome::kFailed;
    ++counters.truncates;
    return Outcome::kDone;
  });
}

}  // namespace tarq
