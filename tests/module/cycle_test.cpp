#include <gmock/gmock.h>

#include "intake/collection_cycle.h"
#include "intake/stats_processing.h"
#include "runtime/stats_queue.h"
#include "support/kinds.h"

namespace tarq::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// "tlmId:taskId:recordCount" of each upload, in order.
std::vector<std::string> Delivered(const Platform& platform) {
  std::vector<std::string> delivered;
  for (const Upload& u : platform.uploads) {
    delivered.push_back(std::to_string(u.tlmId) + ":" + std::to_string(u.taskId) + ":" + std::to_string(u.recordCount));
  }
  return delivered;
}

EACH_KIND_SUITE(CycleOfEachKind);

TEST_P(CycleOfEachKind, ReachesItsTasksInTheirEncodingJsonFirst) {
  const KindCase& kind = GetParam();
  const std::string records = Records(kind, 3);
  Add(kind, 7, 10, Description(kCodeTypeGpb));
  Add(kind, 8, 11, Description(kCodeTypeJson));
  Add(kind, 7, 12, Description(kCodeTypeGpb));
  Add(kind, 7, 13, Description(9));
  platform.Deliver({Message(kind.msgId, records), Message(kind.msgId, records)});
  platform.Fail("SampleDataUpload", 1, 2);  // what one task refuses, the others still get
  platform.Tick(3);
  EXPECT_THAT(Delivered(platform), ElementsAre("8:11:6", "7:10:6"));
  EXPECT_THAT(platform.Texts(kLogFailure), ElementsAre("[NTVTARQ_UploadDataToTlm] SampleDataUpload failed, ret: 9."));
  EXPECT_EQ(platform.uploads[0].collectTimestamp, 1'700'000'000'123u);
  EXPECT_THAT(platform.uploads[0].data, testing::StartsWith(kind.jsonHeader));
  EXPECT_EQ(platform.rows[0].in_wux_item_count, 6u);
  EXPECT_EQ(platform.rows[0].in_wux_item_byte_count, 6 * kind.entrySize);
  EXPECT_EQ(platform.rows[0].out_item_count, 12u) << "once per encoding";
  EXPECT_EQ(platform.rows[0].out_item_byte_count,
            platform.uploads[1].data.size() + platform.uploads[0].data.size() - strlen(kind.jsonHeader) - 3);

  platform.uploads.clear();
  const size_t buffers = platform.buffers.size();
  platform.Tick(3);
  EXPECT_THAT(platform.uploads, IsEmpty());
  EXPECT_EQ(platform.buffers.size(), buffers);
}

TEST_P(CycleOfEachKind, FullBufferIsUploadedAndTheRecordOpensTheNextOne) {
  const KindCase& kind = GetParam();
  for (const uint32_t codeType : {0u, 1u}) {
    Add(kind, 7, 20, Description(codeType));
    const std::string records = Records(kind, 1100);
    platform.uploads.clear();
    platform.Deliver({Message(kind.msgId, records)});
    platform.Tick(3);
    ASSERT_GT(platform.uploads.size(), 1u);
    uint32_t total = 0;
    const size_t fragment = platform.uploads[0].data.size() / platform.uploads[0].recordCount;
    const size_t least = codeType == 0 ? fragment
                                       : (kind.msgId == kFlowMsgId      ? 1197
                                          : kind.msgId == kFlowHopMsgId ? 839
                                                                        : 961);
    for (const Upload& upload : platform.uploads) {
      total += upload.recordCount;
      if (&upload == &platform.uploads.back()) break;
      EXPECT_LT(kSampleDataCapacity - (upload.data.size() - (codeType ? strlen(kind.jsonHeader) + 3 : 0)), least)
          << "flushed ahead of time";
    }
    EXPECT_EQ(total, 1100u);
  }
}

TEST_P(CycleOfEachKind, CycleStopsAfter2000RecordsAndARoundOfItsOwnTakesTheRest) {
  const KindCase& kind = GetParam();
  Add(kind, 7, 1, Description(kCodeTypeGpb));
  const std::string first = Records(kind, 1500), second = Records(kind, 600), third = Records(kind, 1);
  platform.Deliver({Message(kind.msgId, first), Message(kind.msgId, second), Message(kind.msgId, third)});
  const uint32_t second5 = 5;
  EXPECT_EQ(SAVRO_TARQ_STATS_UploadStatsData(&second5, 4), 0u);
  EXPECT_THAT(platform.QueueNamed("SavroNtvTarqStatsQue")->elements, SizeIs(1));
  const Queue* events = platform.QueueNamed("SAVRO_TARQ_EVENT");
  ASSERT_THAT(events->elements, SizeIs(1));
  EXPECT_EQ(reinterpret_cast<uint32_t*>(events->elements[0])[2], 5u) << "the same second";
  EXPECT_EQ(platform.rows[0].in_wux_item_count, 2100u);
  platform.RunWorker();
  EXPECT_EQ(platform.rows[0].in_wux_item_count, 2101u);
}

TEST_P(CycleOfEachKind, TheLimitCountsWholeMessagesAndPeriodsAreTheRecordsOwn) {
  const KindCase& kind = GetParam();
  Add(kind, 7, 1, Description(kCodeTypeGpb));
  const std::string most = Records(kind, 1999, 5), one = Records(kind, 1, 70);
  const uint32_t second = 5;
  const auto left = [&](int ones) {
    platform.Deliver({Message(kind.msgId, most)});
    for (int i = 0; i < ones; ++i) platform.Deliver({Message(kind.msgId, one)});
    SAVRO_TARQ_STATS_UploadStatsData(&second, 4);
    const size_t waiting = platform.QueueNamed("SavroNtvTarqStatsQue")->elements.size();
    platform.RunWorker();
    return waiting;
  };
  EXPECT_EQ(left(0), 0u);
  EXPECT_EQ(left(1), 0u);
  EXPECT_EQ(left(3), 2u);
  EXPECT_EQ(platform.rows[5].period_index, 5u);
  EXPECT_EQ(platform.rows[5].in_wux_item_count, 3u * 1999);
  EXPECT_EQ(platform.rows[6].period_index, 70u);
  EXPECT_EQ(platform.rows[6].in_wux_item_count, 4u);
  platform.nullArray = true;
  EXPECT_EQ(left(0), 0u);
  EXPECT_EQ(platform.rows[5].in_wux_item_count, 3u * 1999) << "a count without an array is no record";
}

TEST_F(StartedTest, ACycleStampsUploadsAndSavesInThisOrder) {
  for (const KindCase& kind : kKinds)
    Add(kind, 7, 0, Description(kCodeTypeGpb)), Add(kind, 7, 1, Description(kCodeTypeJson));
  for (int cycle = 0; cycle < 2; ++cycle) {  // the second finds the first one's buffers
    for (const KindCase& kind : kKinds) {
      const std::string record = Records(kind, 1, 70);
      platform.Deliver({Message(kind.msgId, record)});
    }
    platform.Tick(2);
    platform.calls.clear();
    platform.uploads.clear();
    platform.Tick();
    EXPECT_THAT(Delivered(platform), ElementsAre("7:1:1", "7:0:1", "7:1:1", "7:0:1", "7:1:1", "7:0:1"));
    std::vector<std::string> calls = platform.Calls({"gettimeofday", "SampleDataUpload", "db_create"});
    const size_t newPeriod = cycle == 0 ? 1 : 0;
    ASSERT_EQ(calls.size(), 3 + newPeriod + 6 + 3u);
    EXPECT_EQ(std::vector(calls.begin(), calls.begin() + 3 + newPeriod),
              std::vector<std::string>(3 + newPeriod, "gettimeofday"))
        << "one reading per kind";
    EXPECT_EQ(calls[3 + newPeriod + 6], "gettimeofday") << "saved after the uploads";
    EXPECT_EQ(g_savroTarqFlowSampleData[0]->recordCount, 1u);
  }
}

TEST_F(StartedTest, TheFirstUnwantedMessageEndsABatchAndTasksDeletedMeanwhileCostNothing) {
  const std::string flow = Records(kKinds[1], 1), native = Records(kKinds[0], 1);
  Add(kKinds[1], 7, 1, Description(kCodeTypeGpb));
  EXPECT_EQ(platform.Deliver({Message(kFlowMsgId, flow), Message(kNativeIpMsgId, native), Message(kFlowMsgId, flow)}),
            0u);
  EXPECT_THAT(platform.QueueNamed("SavroNtvTarqStatsQue")->elements, SizeIs(1));
  EXPECT_EQ(platform.Deliver({Message(1, flow)}), 0u);
  EXPECT_EQ(platform.channel.onReceive(nullptr, nullptr, 1), 1u);
  EXPECT_EQ(platform.Deliver({}), 1u);
  EXPECT_EQ(platform.Deliver({{flow.data(), kFlowMsgId, 0},
                              {nullptr, kFlowMsgId, 9},
                              {flow.data(), kFlowMsgId, 0xFFFFFFF8},
                              Message(kFlowMsgId, flow)}),
            0u);
  EXPECT_THAT(platform.QueueNamed("SavroNtvTarqStatsQue")->elements, SizeIs(2));
  EXPECT_THAT(platform.Texts(kLogFailure),
              ElementsAre("[STATS_IPC_RecvMsgProc] Revc msg is null.", "[STATS_IPC_RecvMsgProc] Revc msg is null.",
                          "[TARQ_STATS_IPC_PushMsgToStatsQue] invalid param, msgLen: 0,",
                          "[TARQ_STATS_IPC_PushMsgToStatsQue] invalid param, msgLen: 9,",
                          "[TARQ_STATS_IPC_PushMsgToStatsQue] Buff alloc failed buff is NULL, msgLen: 4294967288,"));
  Delete(kKinds[1], 7, 1);
  const size_t kept = platform.buffers.size() - 2;
  platform.Tick(3);
  EXPECT_EQ(platform.buffers.size(), kept + 6) << "both messages released; six sample buffers for good";
  EXPECT_THAT(platform.uploads, IsEmpty());
}

TEST_F(StartedTest, MessagesThatCannotBeQueuedAreReleasedAndLogged) {
  const std::string flow = Records(kKinds[1], 1);
  Add(kKinds[1], 7, 1, Description(kCodeTypeGpb));
  const size_t before = platform.buffers.size();
  platform.Fail("memcpy_s");
  platform.Deliver({Message(kFlowMsgId, flow)});
  platform.Fail("BufAlloc");
  platform.Deliver({Message(kFlowMsgId, flow)});
  EXPECT_EQ(platform.buffers.size(), before);
  for (int i = 0; i < 4097; ++i) platform.Deliver({Message(kFlowMsgId, flow)});
  EXPECT_EQ(platform.buffers.size(), before + 4096);
  const std::string refused = "[TARQ_STATS_IPC_PushMsgToStatsQue] Buff alloc failed buff is NULL, msgLen: 192,";
  EXPECT_THAT(
      platform.Texts(kLogFailure),
      ElementsAre(refused, refused, "[NTVTARQ_STATS_QUE_Push] Write queue fail. eleCnt: 0, curr que element : 4096.",
                  "[TARQ_STATS_IPC_PushMsgToStatsQue] Push msg to task queue failed, 1."));
  SAVRO_TARQ_Destory();
  EXPECT_EQ(SAVRO_TARQ_STATS_QUE_Push(nullptr), 1u);
  EXPECT_EQ(SAVRO_TARQ_STATS_QUE_Pop(), nullptr);
  EXPECT_EQ(platform.Texts(kLogFailure).back(), "[NTVTARQ_STATS_QUE_Push] Handle is NULL.");
}

struct BufferFault {
  const char* call;
  int nth;
  const char* name;
};
void PrintTo(const BufferFault& fault, std::ostream* out) { *out << fault.call; }
class MissingBuffer : public StartedTest, public testing::WithParamInterface<BufferFault> {};

TEST_P(MissingBuffer, CostsItsKindOneCycleAndNoOtherKindAnything) {
  std::vector<std::string> records;
  for (const KindCase& kind : kKinds)
    Add(kind, 7, 1 + (&kind - kKinds), Description(kCodeTypeGpb)), records.push_back(Records(kind, 1));
  const auto deliverAll = [&] {
    for (int i = 0; i < 3; ++i) platform.Deliver({Message(kKinds[i].msgId, records[i])});
  };
  deliverAll();
  platform.Tick(2);
  platform.Fail(GetParam().call, 1, GetParam().nth);  // BufAlloc: after the stats event's
  platform.Tick();
  EXPECT_THAT(Delivered(platform), ElementsAre("7:1:1", "7:3:1"));
  EXPECT_THAT(platform.Texts(kLogFailure),
              ElementsAre(std::string("[GetAndInitSampleDataBuff] Alloc buff failed, msgId: 3978077143, codeType: ") +
                          GetParam().name));
  platform.uploads.clear();
  deliverAll();
  platform.Tick(3);
  EXPECT_THAT(Delivered(platform), ElementsAre("7:1:1", "7:2:1", "7:3:1"));
}
INSTANTIATE_TEST_SUITE_P(Faults, MissingBuffer,
                         testing::Values(BufferFault{"BufAlloc", 4, "0"}, BufferFault{"BufAlloc", 5, "1"},
                                         BufferFault{"memset_s", 3, "0"}, BufferFault{"memset_s", 4, "1"}),
                         [](const auto& test) { return test.param.call + std::to_string(test.param.nth); });

TEST_P(CycleOfEachKind, WhatCannotBeEncodedUnpackedOrUploadedIsDroppedAlone) {
  const KindCase& kind = GetParam();
  Add(kind, 7, 1, Description(kCodeTypeJson));
  std::string records = Records(kind, 3);
  const auto cycle = [&](const char* fault, int nth) {
    platform.uploads.clear();
    platform.log.clear();
    platform.Deliver({Message(kind.msgId, records)});
    platform.Tick(2);
    platform.Fail(fault, 1, nth);
    platform.Tick();
    platform.faults.clear();
    return Delivered(platform);
  };
  if (kind.msgId != kFlowHopMsgId) {  // whose records can all be encoded
    const std::string good = records;
    if (kind.msgId == kFlowMsgId) records[kind.entrySize + offsetof(FlowEntry, addressFamily)] = 2;
    if (kind.msgId == kNativeIpMsgId) memset(&records[kind.entrySize + offsetof(NativeIpEntry, ifName)], 0, 8);
    EXPECT_THAT(cycle("none", 1), ElementsAre("7:1:2"));
    EXPECT_THAT(platform.Texts(kLogFailure),
                testing::Contains("[STATS_EncodeStatsData] Stats data encode failed, ret: -1."));
    records = good;
  }
  EXPECT_THAT(cycle("unpack", 1), IsEmpty());
  EXPECT_THAT(cycle("memcpy_s", 1), IsEmpty());
  EXPECT_THAT(platform.Texts(kLogFailure),
              ElementsAre("[NTVTARQ_TASK_FormatStatsData] Copy samlpeData failed, codetype: 1.",
                          "[NTVTARQ_UploadDataToTlm] Format samlpeData failed, codetype: 1."));
  EXPECT_THAT(cycle("BufAlloc", 2), IsEmpty());
  EXPECT_THAT(platform.Texts(kLogFailure), ElementsAre("[NTVTARQ_UploadDataToTlm] Alloc buff failed, codetype: 1."));
  platform.table.SampleDataUpload = nullptr;
  EXPECT_THAT(cycle("none", 1), IsEmpty());
  EXPECT_THAT(platform.Texts(kLogFailure), ElementsAre("[NTVTARQ_UploadDataToTlm] savroVtbl is NULL."));
  EXPECT_EQ(platform.buffers.size(), 8u) << "task, period ring, six sample buffers";
}

TEST_P(CycleOfEachKind, RecordsOfOneMessageAreCountedUnderTheirOwnPeriods) {
  const KindCase& kind = GetParam();
  Add(kind, 7, 1, Description(kCodeTypeGpb));
  Add(kind, 7, 2, Description(kCodeTypeJson));
  std::string records;
  for (const uint32_t period : {5u, 70u, 5u, 69u, 5u}) records += Records(kind, 1, period);  // 5 and 69 share a slot
  platform.Deliver({Message(kind.msgId, records)});
  platform.Tick(3);
  EXPECT_EQ(platform.rows[6].period_index, 70u);
  EXPECT_EQ(platform.rows[6].in_wux_item_count, 1u);
  EXPECT_EQ(platform.rows[6].out_item_count, 2u);
  EXPECT_EQ(platform.rows[5].period_index, 5u);
  EXPECT_EQ(platform.rows[5].in_wux_item_count, 1u) << "the slot was taken up anew, twice";
  EXPECT_EQ(platform.rows[5].out_item_count, 2u);
}

TEST_F(StartedTest, AFailedClockStampsZeroAndAStrayMessageIsReleased) {
  Add(kKinds[1], 7, 1, Description(kCodeTypeGpb));
  const std::string flow = Records(kKinds[1], 1), odd = "no list";
  platform.Deliver({Message(kFlowMsgId, flow), Message(kFlowMsgId, odd), Message(kFlowMsgId, flow)});
  platform.Fail("gettimeofday", 3);
  platform.Tick(3);
  ASSERT_THAT(Delivered(platform), ElementsAre("7:1:2"));
  EXPECT_EQ(platform.uploads[0].collectTimestamp, 0u);
  EXPECT_THAT(platform.Texts(kLogFailure),
              Each(HasSubstr("[NTVTARQ_STATS_GetTimestamps] Get collect timestamp failed")));

  g_savroStatsMap[1].msgId = 1;  // the tables disagree
  platform.Deliver({Message(kFlowMsgId, flow)});
  const size_t kept = platform.buffers.size() - 1;
  platform.Tick(3);
  EXPECT_EQ(platform.buffers.size(), kept);
  EXPECT_THAT(platform.Texts(kLogFailure),
              testing::IsSupersetOf({"[NTVTARQ_STATS_UploadStatsData] GetStatsMap failed.",
                                     "[TARQ_EVENT_Pop] Msg proc failed, ret: 1, msgType: 0."}));
}

}  // namespace
}  // namespace tarq::test
