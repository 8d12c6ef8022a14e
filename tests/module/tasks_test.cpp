#include <gmock/gmock.h>

#include "runtime/collection_timer.h"
#include "support/kinds.h"
#include "tasks/task_upload.h"

namespace tarq::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<uint32_t> TaskIds(const KindCase& kind) {
  std::vector<uint32_t> ids;
  for (ListHead* link = kind.head->next; link != kind.head; link = link->next) {
    EXPECT_EQ(link->previous->next, link);
    ids.push_back(TaskOf(link)->info.taskId);
  }
  return ids;
}

EACH_KIND_SUITE(TasksOfEachKind);

TEST_P(TasksOfEachKind, TasksAreListedNewestFirstUpdatedInPlaceAndDeletedByKey) {
  const KindCase& kind = GetParam();
  for (uint32_t id : {1u, 2u, 3u}) Add(kind, 7, id, Description(kCodeTypeGpb));
  EXPECT_THAT(platform.Texts(kLogMilestone), testing::Contains("[NTVTARQ_AdddTlmTask] Add telemetry task[3] success."));
  EXPECT_THAT(platform.Texts(kLogNote), ElementsAre("[NTVTARQ_GetTlmTaskInfo] Telemetry task list is empty."));
  platform.Tick(2);
  Add(kind, 6, 2, Description(kCodeTypeGpb));
  EXPECT_EQ(SAVRO_TARQ_GetTlmTaskInfo(kind.msgId, 6, 2)->lastReportEndSecond, 2u);
  Delete(kind, 6, 2);
  Add(kind, 7, 2, Description(kCodeTypeJson, 500, 0x5A));
  EXPECT_THAT(TaskIds(kind), ElementsAre(3, 2, 1));
  const TlmTaskInfo* info = SAVRO_TARQ_GetTlmTaskInfo(kind.msgId, 7, 2);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->lastReportEndSecond, 0u) << "an update keeps the time of the addition";
  EXPECT_EQ(info->description.codeType, 1u);
  EXPECT_EQ(info->description.opaque[3455], 0x5A);
  for (const KindCase& other : kKinds) EXPECT_EQ(SAVRO_TARQ_TASK_HasTlmTask(other.msgId), other.msgId == kind.msgId);

  platform.log.clear();
  platform.rows[1] = {};
  Delete(kind, 8, 2);
  EXPECT_THAT(TaskIds(kind), ElementsAre(3, 2, 1));
  Delete(kind, 7, 2);
  Delete(kind, 7, 3);
  EXPECT_THAT(TaskIds(kind), ElementsAre(1));
  EXPECT_EQ(platform.rows.size(), 1u);
  Delete(kind, 7, 1);
  EXPECT_TRUE(platform.rows.empty()) << "a kind's last task takes the period table's rows along";
  Delete(kind, 7, 1);
  EXPECT_THAT(platform.Texts(kLogMilestone),
              ElementsAre("[NTVTARQ_TASK_DelTlmTaskFromList] Delete telemetry task[2] success.",
                          "[NTVTARQ_TASK_DelTlmTaskFromList] Delete telemetry task[3] success.",
                          "[NTVTARQ_TASK_DelTlmTaskFromList] Delete telemetry task[1] success."));
  EXPECT_THAT(platform.Texts(kLogNote), ElementsAre("[NTVTARQ_TASK_DelTlmTaskFromList] Telemetry task list is empty."));
  EXPECT_EQ(platform.buffers.size(), 1u);
}

TEST_P(TasksOfEachKind, EncodeTypeSumsUpTheTasks) {
  const KindCase& kind = GetParam();
  const struct {
    std::vector<uint32_t> codeTypes;
    uint32_t expected;
  } kCases[] = {{{}, 0}, {{0}, 0}, {{1}, 1}, {{1, 1}, 1}, {{1, 0}, 2}, {{0, 5}, 0}, {{5, 1}, 2}};
  for (const auto& c : kCases) {
    for (uint32_t i = 0; i < c.codeTypes.size(); ++i) Add(kind, 1, i, Description(c.codeTypes[i]));
    EXPECT_EQ(SAVRO_TARQ_TASK_GetEncodeType(kind.msgId), c.expected);
    for (uint32_t i = 0; i < c.codeTypes.size(); ++i) Delete(kind, 1, i);
  }
  EXPECT_STREQ(SAVRO_TARQ_TASK_GetJsonHeader(kind.msgId), kind.jsonHeader);
  EXPECT_EQ(SAVRO_TARQ_TASK_GetJsonHeader(kind.msgId + 1), nullptr);
  EXPECT_EQ(SAVRO_TARQ_TASK_GetTaskHead(kind.msgId + 1), nullptr);
  EXPECT_EQ(SAVRO_TARQ_GetTlmTaskInfo(kind.msgId + 1, 1, 1), nullptr);
  const TaskEventPayload stranger{kind.msgId + 1, 1, 1, 0, {}};
  EXPECT_EQ(SAVRO_TARQ_TASK_AddTlmTaskToList(&stranger, sizeof(stranger)), 1u);
  EXPECT_EQ(SAVRO_TARQ_TASK_DelTlmTaskFromList(&stranger, sizeof(stranger)), 1u);
  EXPECT_EQ(SAVRO_TARQ_TASK_DelTlmTaskFromList(&stranger, 7), 1u);
  EXPECT_EQ(platform.Texts(kLogFailure).back(), "[NTVTARQ_TASK_DelTlmTaskFromList] Msg is NULL, msgLen: 7");
  EXPECT_EQ(SAVRO_TARQ_TASK_HasTlmTask(kind.msgId + 1) + SAVRO_TARQ_TASK_GetEncodeType(kind.msgId + 1), 0u);
}

TEST_P(TasksOfEachKind, CallbacksThatCannotQueueLoseOnlyTheirRequest) {
  const KindCase& kind = GetParam();
  const TaskDescription gpb = Description(kCodeTypeGpb);
  EXPECT_EQ(kind.add(7, 1, nullptr), 1u);
  platform.Fail("BufAlloc");
  EXPECT_EQ(kind.add(7, 1, &gpb), 1u);
  platform.Fail("BufAlloc");
  EXPECT_EQ(kind.del(7, 1), 1u);
  platform.Fail("WUX_QUE_AsyWrite", 2);
  EXPECT_EQ(kind.add(7, 1, &gpb) + kind.del(7, 1), 0u);
  EXPECT_TRUE(platform.buffers.empty());
  EXPECT_THAT(
      platform.Texts(kLogFailure),
      ElementsAre("[NTVTARQ_AddTlmTask] Alloc memory failed.., taskId: 1.",
                  "[NTVTARQ_AddTlmTask] Alloc memory failed.., taskId: 1.",
                  "[NTVTARQ_DelTlmTask] Alloc memory failed..", "[TARQ_EVENT_Push] Write queue fail. eleCnt: 0.",
                  "[NTVTARQ_AddTlmTask] push task to event queue failed, ret: 1, taskId: 1.",
                  "[TARQ_EVENT_Push] Write queue fail. eleCnt: 0.",
                  "[NTVTARQ_DelTlmTask] push task to event queue failed, ret: 1."));
  for (uint32_t id = 0; id < 1025; ++id) EXPECT_EQ(kind.add(7, id, &gpb), 0u);
  platform.RunWorker();
  EXPECT_EQ(TaskIds(kind).size(), 1024u) << "the 1025th request met a full queue";
}

TEST_F(StartedTest, TheFirstTaskStartsAccountingAndTimerAndAFailureIsTriedAgain) {
  const KindCase& flow = kKinds[1];
  platform.Fail("BufAlloc", 1, 2);  // the period ring, after the event
  Add(flow, 7, 1, Description(kCodeTypeGpb));
  platform.Fail("WUX_TIMER_Create");
  Add(flow, 7, 1, Description(kCodeTypeGpb));
  EXPECT_THAT(TaskIds(flow), IsEmpty());
  EXPECT_TRUE(platform.buffers.empty()) << "the ring went with the timer that could not be had";
  platform.Fail("BufAlloc", 1, 3);  // the task record
  Add(flow, 7, 1, Description(kCodeTypeGpb));
  EXPECT_THAT(TaskIds(flow), IsEmpty());
  Add(flow, 7, 1, Description(kCodeTypeGpb));
  Add(flow, 7, 2, Description(kCodeTypeGpb));
  EXPECT_THAT(TaskIds(flow), ElementsAre(2, 1));
  EXPECT_THAT(platform.Calls({"WUX_TIMER_Create"}), testing::SizeIs(2)) << "one timer in all, after one failure";
  EXPECT_THAT(platform.Texts(kLogFailure),
              testing::Contains("[NTVTARQ_AdddTlmTask] Add telemetry task[1] failed, alloc memery failed."));
}

TEST_F(StartedTest, ActiveReportEndComesOncePerInterval) {
  const KindCase& flow = kKinds[1];
  const std::string record = Records(flow, 1);
  Add(flow, 7, 1, Description(kCodeTypeGpb, 10'000));
  Add(flow, 7, 2, Description(kCodeTypeGpb, 999));
  std::string flags;
  for (int i = 0; i < 8; ++i) {
    platform.Deliver({Message(kFlowMsgId, record)});
    platform.uploads.clear();
    platform.Tick(3);
    ASSERT_EQ(platform.uploads.size(), 2u);
    EXPECT_EQ(platform.uploads[0].isActiveReportEnd, 1u) << "an interval below a second ends with every upload";
    flags += std::to_string(platform.uploads[1].isActiveReportEnd);
  }
  EXPECT_EQ(flags, "00010001") << "seconds 3 to 24";
  TlmTaskInfo task{1, 1, 0xFFFFFFF0, Description(kCodeTypeGpb, 39'000)};  // at second 24: 15 + 24 elapsed
  EXPECT_EQ(SAVRO_TARQ_TASK_IsActiveReportEnd(&task), 1u);
  EXPECT_EQ(task.lastReportEndSecond, 24u);
  task = {1, 1, 0xFFFFFFF0, Description(kCodeTypeGpb, 40'000)};
  EXPECT_EQ(SAVRO_TARQ_TASK_IsActiveReportEnd(&task), 0u);
  EXPECT_EQ(task.lastReportEndSecond, 0xFFFFFFF0u);
}

TEST_P(TasksOfEachKind, FramingPutsHeaderAndClosingAroundJsonAndLeavesGpbAlone) {
  const KindCase& kind = GetParam();
  auto sample = std::make_unique<SampleBuffer>();
  auto upload = std::make_unique<SampleBuffer>();
  memcpy(sample->data, "{\"a\":1},{\"b\":2},", 16);
  sample->dataLen = 16;
  sample->recordCount = 2;
  sample->collectTimestamp = 99;
  memset(sample->reserved1, 0x11, 8), memset(sample->reserved2, 0x22, 8);
  EXPECT_EQ(SAVRO_TARQ_TASK_FormatStatsData(kind.msgId, kCodeTypeJson, sample.get(), upload.get()), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(upload->data), upload->dataLen),
            std::string(kind.jsonHeader) + "{\"a\":1},{\"b\":2}]}}}");
  EXPECT_EQ(upload->recordCount, 2u);
  EXPECT_EQ(upload->collectTimestamp, 99u);
  EXPECT_EQ(upload->reserved1[7] + upload->reserved2[7], 0x33) << "carried along";
  EXPECT_EQ(SAVRO_TARQ_TASK_FormatStatsData(kind.msgId, kCodeTypeGpb, sample.get(), upload.get()), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(upload->data), upload->dataLen), "{\"a\":1},{\"b\":2},");
  EXPECT_EQ(SAVRO_TARQ_TASK_FormatStatsData(kind.msgId + 1, kCodeTypeJson, sample.get(), upload.get()), 1u);

  // Largest JSON sample: header, records and closing fill the record but for the terminator.
  const uint32_t room = kSampleDataCapacity - static_cast<uint32_t>(strlen(kind.jsonHeader));
  const struct {
    uint32_t dataLen;
    uint32_t result;
  } kSizes[] = {{room - 4, 0}, {room - 3, 1}, {room, 1}, {room + 1, 1}};
  for (const auto& size : kSizes) {
    sample->dataLen = size.dataLen;
    EXPECT_EQ(SAVRO_TARQ_TASK_FormatStatsData(kind.msgId, kCodeTypeJson, sample.get(), upload.get()), size.result);
  }
  EXPECT_THAT(platform.Texts(kLogFailure),
              ElementsAre("[NTVTARQ_TASK_FormatStatsData] Copy samlpeData failed, codetype: 1."));
  sample->dataLen = kSampleDataCapacity;
  EXPECT_EQ(SAVRO_TARQ_TASK_FormatStatsData(kind.msgId, kCodeTypeGpb, sample.get(), upload.get()), 0u);
}

}  // namespace
}  // namespace tarq::test
