// The platform's bounded queues of fixed-size elements: many producers, one consumer, first in first out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarq {

/// Thresholds of a queue's flow-control monitor, in elements. Valid only during the registering call.
struct QueueMonitor {
  uint32_t upperThreshold;  ///< event 1 (stop) is raised when the depth reaches it
  uint32_t lowerThreshold;  ///< event 0 (start) is raised when the depth has fallen to it
  uint32_t epollId;         ///< the event loop on whose thread the callback runs
  uint8_t reserved[12];     ///< zero
};
static_assert(sizeof(QueueMonitor) == 24);
static_assert(offsetof(QueueMonitor, upperThreshold) == 0);
static_assert(offsetof(QueueMonitor, lowerThreshold) == 4);
static_assert(offsetof(QueueMonitor, epollId) == 8);
static_assert(offsetof(QueueMonitor, reserved) == 12);

extern "C" {

/// Creates a queue of `depth` elements of `elementSize` bytes each. `name` is copied. The module passes 6 for `kind`.
/// Returns the queue's handle, or null. The queue lives until `WUX_QUE_Destory`.
void* WUX_QUE_CreateNew(const char* name, uint32_t kind, uint32_t depth, uint32_t elementSize);

/// Has the event loop `epollId` call `onReadable(queue)` on its thread for as long as the queue holds elements: the
/// callback takes one element per call and is called again while any are left. Returns 0 on success.
uint32_t WUX_QUE_EpollReg(void* queue, uint32_t epollId, uint32_t (*onReadable)(void* queue));

/// Registers a flow-control monitor: `onEvent(1)` once each time the depth climbs to the upper threshold, `onEvent(0)`
/// once each time it has then fallen to the lower one, on the thread of `monitor->epollId`. Returns 0 on success.
uint32_t WUX_QUE_MonitorReg(void* queue, const QueueMonitor* monitor, uint32_t (*onEvent)(uint32_t event));

/// Adds up to `count` elements to the queue. Any thread may call it; it never blocks.
/// `elements` points at `count` elements of the queue's element size; they are copied, what they point at is not.
/// Returns the number of elements added: fewer than `count`, 0 included, when the queue is full or `queue` is null.
int32_t WUX_QUE_AsyWrite(void* queue, const void* elements, uint32_t count);

/// Takes up to `max` of the oldest elements out of the queue and copies them to `elements`. It never blocks.
/// Returns the number of elements taken; 0 when the queue is empty or `queue` is null.
int32_t WUX_QUE_AsyRead(void* queue, void* elements, uint32_t max);

/// Returns the number of elements in the queue; 0 when `queue` is null.
uint32_t WUX_QUE_GetElementNum(void* queue);

/// Withdraws the queue's registrations and releases it. Elements still queued are dropped; what they point at is not
/// released. Returns 0 on success.
uint32_t WUX_QUE_Destory(void* queue);

}  // extern "C"
}  // namespace tarq
