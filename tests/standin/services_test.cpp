// Database, framework, bounded functions.
#include <sqlite3.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/bounded.h"
#include "platform/database.h"
#include "support.h"

namespace tarq::standin {

const KeyDescriptor kDescriptor{0x00010008, {}};

struct Object {
  explicit Object(uint32_t operation) { db_create_tarq_savro_report_perf_obj(operation, 0, &handle); }
  ~Object() { EXPECT_EQ(db_release_tarq_savro_report_perf_object(handle), 0u); }
  void* handle = nullptr;
};

uint32_t Insert(const ReportPerfRecord& record) {
  const Object object(kDatabaseInsert);
  return db_set_tarq_savro_report_perf_all_fields(object.handle, &record, 60) | db_write_obj(object.handle);
}

struct Database : testing::Test {
  FailureLines failures;
  const std::string file = testing::TempDir() + "tarq-standin-" + std::to_string(getpid()) + ".db";
  ~Database() override { CloseDatabase(), std::filesystem::remove_all(file); }
  /// Column values, one after the other, as a connection of the test's own reads them.
  std::vector<std::string> Query(const char* sql) const {
    sqlite3* connection = nullptr;
    std::vector<std::string> values;
    const auto onRow = [](void* out, int count, char** row, char**) {
      auto& all = *static_cast<std::vector<std::string>*>(out);
      return all.insert(all.end(), row, row + count), 0;
    };
    EXPECT_EQ(sqlite3_open(file.c_str(), &connection) | sqlite3_exec(connection, sql, onRow, &values, nullptr),
              SQLITE_OK);
    return sqlite3_close(connection), values;
  }
};

TEST_F(Database, RowsReadTheSameThroughAnotherConnection) {
  ASSERT_EQ(OpenDatabase(file), "");
  const ReportPerfRecord five{0, 5, 100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 0xFFFFFFFF};
  const ReportPerfKey key{0, 5}, missing{0, 6};
  const Object read(kDatabaseRead), update(kDatabaseUpdate);
  EXPECT_NE(db_read_obj(read.handle, &kDescriptor, &key), 0u);
  EXPECT_EQ(Insert(five) | db_read_obj(read.handle, &kDescriptor, &key), 0u);
  EXPECT_EQ(std::memcmp(&ReadPeriodTable().at(0), &five, sizeof five), 0);
  EXPECT_NE(Insert(five), 0u);
  EXPECT_THAT(failures.Get(), ElementsAre(HasSubstr("[database] cannot insert a row")));
  EXPECT_EQ(db_set_tarq_savro_report_perf_period_index(update.handle, 4000000000u), 0u);
  EXPECT_EQ(db_update_obj(update.handle, &kDescriptor, &key), 0u);
  EXPECT_NE(db_update_obj(update.handle, &kDescriptor, &missing), 0u);
  EXPECT_NE(db_update_obj(read.handle, &kDescriptor, &key), 0u);
  EXPECT_THAT(Query("SELECT in_wux_item_count, out_item_byte_count, end_time_ms, period_index, history_id "
                    "FROM tarq_savro_report_perf"),
              ElementsAre("103", "108", "4294967295", "4000000000", "5"));
  EXPECT_NE(db_truncate_table("sqlite_master", 1), 0u);
  EXPECT_EQ(db_truncate_table("tarq_savro_report_perf", 1), 0u);
  EXPECT_THAT(Query("SELECT * FROM tarq_savro_report_perf"), SizeIs(0));
}

TEST_F(Database, UnusableFileIsNamedWithARemedy) {
  std::filesystem::create_directory(file);
  EXPECT_THAT(OpenDatabase(file), testing::AllOf(HasSubstr(file), HasSubstr("unable"), HasSubstr("name another file")));
  std::filesystem::remove(file);
  std::ofstream(file) << std::string(5000, 'x');
  EXPECT_THAT(OpenDatabase(file), HasSubstr("not a database"));
  std::filesystem::remove(file);
  Query("CREATE TABLE tarq_savro_report_perf (reserved INTEGER, history_id INTEGER)");
  EXPECT_THAT(OpenDatabase(file), HasSubstr("other columns"));
}

FrameworkTable& Table() {
  FrameworkTable* table = nullptr;
  EXPECT_TRUE(COMP_GetVTable(1000, 1001, &table) != 0 && COMP_GetVTable(1000, 1000, &table) == 0);
  return *table;
}

TEST(Framework, UploadsArriveInOrderUntilTooManyWait) {
  FailureLines failures;
  std::mutex gate;
  std::vector<std::string> got, accepted;
  SetSampleHandler([&](Sample&& sample) {
    std::lock_guard lock(gate);
    got.push_back(sample.data.substr(0, 6));
    if (sample.taskId == 1) throw std::runtime_error("broken");
  });
  auto* const sample =
      static_cast<SampleBuffer*>(std::memset(Table().BufAlloc(1, sizeof(SampleBuffer)), 0, sizeof(SampleBuffer)));
  EXPECT_THAT(GetFrameworkCounters().buffersInUse, ElementsAre(testing::Pair(sizeof(SampleBuffer), 1)));
  sample->recordCount = 7;
  sample->dataLen = kSampleDataCapacity;
  std::unique_lock closed(gate);
  do {
    accepted.push_back(std::to_string(100000 + sample->taskId++));
    std::memcpy(sample->data, accepted.back().data(), 6);
  } while (Table().SampleDataUpload(1, sample) == 0);
  accepted.pop_back();
  sample->dataLen = kSampleDataCapacity + 1;
  EXPECT_NE(Table().SampleDataUpload(1, sample), 0u);
  Table().BufFree(1, sample);
  closed.unlock();
  ASSERT_TRUE(WaitDelivered(20s));
  EXPECT_EQ(got, accepted);
  EXPECT_GT(got.size() * kSampleDataCapacity, kMaxPendingBytes * 9 / 10);
  StopDelivery();
  const auto all = GetFrameworkCounters();
  UploadCounters sum;
  for (const auto& [task, uploads] : all.byTask) {
    sum.delivered.Add(uploads.delivered), sum.dropped.Add(uploads.dropped), sum.refused.Add(uploads.refused);
    EXPECT_EQ(uploads.waiting, SampleCount());
  }
  EXPECT_EQ(all.uploaded.records, 7 * (got.size() + 2));
  EXPECT_THAT((std::vector{sum.delivered.records, sum.dropped.records, sum.refused.records}),
              ElementsAre(7 * (got.size() - 1), 7, 14));
  EXPECT_THAT(all.buffersInUse, SizeIs(0));
  EXPECT_THAT(failures.Get(), SizeIs(3)) << "one each: too many wait, too long, handler threw";
}

TEST(Bounded, FailsRatherThanOverrun) {
  char room[8] = "1234567";
  EXPECT_TRUE(memcpy_s(room, 2, "abc", 3) && memcpy_s(room, 8, room + 2, 3) && memset_s(room, 7, 'x', 8));
  EXPECT_STREQ(room, "1234567");
  EXPECT_EQ(memcpy_s(room, 8, room + 4, 4) | memcpy_s(room, 0, "abc", 0) | memset_s(room + 7, 1, 'x', 1), 0);
  EXPECT_EQ(sprintf_s(room, 8, "%d", 1234567), 7);
  for (const size_t capacity : {0u, 1u, 7u}) EXPECT_LT(sprintf_s(room, capacity, "%d", 1234567), 0);
}
}  // namespace tarq::standin
