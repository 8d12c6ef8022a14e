#include <gmock/gmock.h>

#include "frame/framework_binding.h"
#include "perf/report_perf.h"
#include "perf/report_perf_table.h"
#include "support/platform_double.h"

namespace tarq::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PerfTest : public ModuleTest {
 protected:
  void SetUp() override {
    SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(5, 1, 1);  // before there is a ring: nothing
    SAVRO_TARQ_UpdateReportPerfToDb();
    ASSERT_EQ(SAVRO_TARQ_InitTlmFrmVtbl(), 0u);
    ASSERT_EQ(SAVRO_TARQ_InitReportPerf(), 0u);
  }
};

TEST_F(PerfTest, CountsPerPeriodInARingThatTakesUpOlderPeriodsToo) {
  SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(0, 1, 192);
  SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(67, 2, 384);
  SAVRO_TARQ_UpdateReportPerfOutItemCnt(67, 2, 600);
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.rows.size(), 2u);
  const ReportPerfRecord fresh = platform.rows[0];
  EXPECT_EQ(fresh.start_time_s + fresh.start_time_ms, 0u) << "period 0 is there from the reset on";
  EXPECT_EQ(fresh.end_time_s, 1'700'000'000u);
  EXPECT_EQ(fresh.end_time_ms, 123u);
  const ReportPerfRecord expected{0, 3, 67, 0, 0, 2, 384, 0, 0, 2, 600, 1'700'000'000, 123, 1'700'000'000, 123};
  EXPECT_EQ(memcmp(&platform.rows[3], &expected, sizeof(expected)), 0);

  const size_t calls = platform.Calls({"db_"}).size();
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.Calls({"db_"}).size(), calls) << "unchanged slots are not saved again";

  platform.now = {1'700'000'009, 999'999};
  SAVRO_TARQ_UpdateReportPerfOutItemCnt(67, 1, 300);
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.rows[3].out_item_byte_count, 900u) << "totals grow";
  EXPECT_EQ(platform.rows[3].end_time_ms, 999u);
  SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(3, 1, 136);
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.rows[3].period_index, 3u);
  EXPECT_EQ(platform.rows[3].in_wux_item_count, 1u);
  EXPECT_EQ(platform.rows[3].out_item_count, 0u) << "the newer period's counts are gone";
  EXPECT_EQ(platform.rows[3].start_time_s, 1'700'000'009u);
  SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(3, 0xFFFFFFFF, 0);
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.rows[3].in_wux_item_count, 0u) << "counts wrap";
  SAVRO_TARQ_DestoryReportPerf();
  SAVRO_TARQ_DestoryReportPerf();
  EXPECT_THAT(platform.buffers, IsEmpty());
}

TEST_F(PerfTest, AFailedClockKeepsTheTimes) {
  platform.Fail("gettimeofday", 2);
  SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(64, 1, 1);
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.rows[0].start_time_s + platform.rows[0].end_time_s, 0u);
  EXPECT_THAT(platform.Texts(kLogFailure), ElementsAre("[NTVTARQ_STATS_GetTimestamps] Get collect timestamp failed",
                                                       "[NTVTARQ_STATS_GetTimestamps] Get collect timestamp failed"));
}

struct DatabaseFault {
  const char* call;
  bool rowExists;
  std::vector<std::string> log;  ///< before the two lines that every failure ends with
};
void PrintTo(const DatabaseFault& fault, std::ostream* out) { *out << fault.call; }
class FailedSave : public PerfTest, public testing::WithParamInterface<DatabaseFault> {};

TEST_P(FailedSave, IsLoggedReleasedAndNotRetried) {
  const ReportPerfRecord record{0, 5, 5, 0, 0, 1, 2, 0, 0, 3, 4, 5, 6, 7, 8};
  ASSERT_TRUE(!GetParam().rowExists || SAVRO_TARQ_AddReportPerfEntryDbData(&record) == 0);
  platform.log.clear();
  platform.Fail(GetParam().call);
  SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(69, 1, 1);
  const size_t setters = platform.Calls({"db_set:"}).size();
  SAVRO_TARQ_UpdateReportPerfToDb();
  std::vector<std::string> expected = GetParam().log;
  expected.push_back(
      "[TARQ_AddReportPerfEntryDbData] Write db tarq_savro_report_perf failed ret: 1, history_id: 5, period_index: 69.");
  expected.push_back(
      "[NTVTARQ_UpdateReportPerfToDb] Update report perf to db failed ret: 1, index: 5, periodIndex: 69.");
  EXPECT_EQ(platform.Texts(kLogFailure), expected);
  EXPECT_EQ(platform.rows[5].in_wux_item_count, GetParam().rowExists ? record.in_wux_item_count : 0u);
  if (std::string(GetParam().call).starts_with("db_set:")) {
    EXPECT_EQ(platform.Calls({"db_set:"}).size() - setters, 13u);
  }
  const size_t calls = platform.calls.size();
  SAVRO_TARQ_UpdateReportPerfToDb();
  EXPECT_EQ(platform.calls.size(), calls) << "the slot counts as saved";
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FailedSave,
    testing::Values(
        DatabaseFault{
            "db_create0", false, {"[TARQ_WriteReportPerfEntryDb] Create tarq_savro_report_perf failed ret: 61."}},
        DatabaseFault{"db_set_all",
                      false,
                      {"[TARQ_WriteReportPerfEntryDb] Set tarq_savro_report_perf all field failed ret: 65."}},
        DatabaseFault{
            "db_write", false, {"[TARQ_WriteReportPerfEntryDb] Write tarq_savro_report_perf failed ret: 64."}},
        DatabaseFault{
            "db_create3", true, {"[TARQ_WriteReportPerfEntryDb] Write tarq_savro_report_perf failed ret: 64."}},
        DatabaseFault{"db_create1", true, {"[UpdateDbData] Create tarq_savro_report_perf obj failed, ret: 61."}},
        DatabaseFault{"db_set:period_index", true, {"[UpdateDbData] set tarq_savro_report_perf field failed, ret: 2."}},
        DatabaseFault{"db_set:end_time_ms", true, {"[UpdateDbData] set tarq_savro_report_perf field failed, ret: 2."}},
        DatabaseFault{"db_update", true, {"[UpdateDbData] Update tarq_savro_report_perf failed, ret: 63."}}),
    [](const auto& test) { return std::to_string(test.index); });

TEST_F(PerfTest, SavesAreAnnouncedAndAFailedTruncateIsLogged) {
  const ReportPerfRecord record{0, 5, 69, 0, 0, 1, 2, 0, 0, 3, 4, 5, 6, 7, 8};
  for (int i = 0; i < 2; ++i) EXPECT_EQ(SAVRO_TARQ_AddReportPerfEntryDbData(&record), 0u);
  EXPECT_EQ(memcmp(&platform.rows[5], &record, sizeof(record)), 0) << "all fields arrive by the update too";
  EXPECT_THAT(
      platform.Texts(kLogMilestone),
      testing::Each(
          "[TARQ_AddReportPerfEntryDbData] Write db tarq_savro_report_perf success, ret: 0, history_id: 5, period_index: 69."));
  platform.Fail("db_truncate");
  SAVRO_TARQ_ClearReportPerfData();
  EXPECT_THAT(platform.Texts(kLogFailure),
              ElementsAre("[TARQ_TruncateReportPerfEntryDbData] Truncate db data failed."));
}

}  // namespace
}  // namespace tarq::test
