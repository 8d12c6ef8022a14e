#include "host/delivery.h"

#include <algorithm>
#include <utility>

namespace tarq::host {

void Delivery::AddOutput(std::unique_ptr<Output> output, const std::vector<Subscription>& subscriptions) {
  auto onGone = [this] {
    if (++gone_ == writers_.size()) onGone_();
  };
  writers_.push_back(std::make_unique<OutputWriter>(std::move(output), subscriptions, queueBytes_, onGone));
  for (size_t slot = 0; slot < subscriptions.size(); ++slot) {
    routes_.push_back({subscriptions[slot].taskId(), writers_.back().get(), slot});
  }
}

void Delivery::Take(standin::Sample&& sample) {
  if (const Route* route = FindRoute(sample.taskId)) {
    route->writer->Push(route->slot, std::move(sample));
  } else {
    ++unknownSamples_;
  }
}

bool Delivery::WaitIdle(Deadline deadline) {
  return std::ranges::all_of(writers_, [deadline](auto& writer) { return writer->WaitIdle(deadline); });
}

bool Delivery::Stop(Deadline deadline) {
  for (auto& writer : writers_) writer->BeginStop(deadline);
  bool stopped = true;
  for (auto& writer : writers_) stopped &= writer->AwaitStop();
  return stopped;
}

SubscriptionCounters Delivery::counters(const Subscription& subscription) const {
  const Route* route = FindRoute(subscription.taskId());
  return route ? route->writer->counters(route->slot) : SubscriptionCounters{};
}

std::vector<std::string> Delivery::GoneOutputs() const {
  std::vector<std::string> gone;
  for (auto& writer : writers_) {
    if (std::string reason = writer->goneReason(); !reason.empty()) gone.push_back(writer->name() + ": " + reason);
  }
  return gone;
}

std::vector<OutputStatus> Delivery::outputs() const {
  std::vector<OutputStatus> all;
  for (auto& writer : writers_) {
    all.push_back({writer->name(), writer->link()});
    all.back().link.up &= writer->goneReason().empty();
  }
  return all;
}

const Delivery::Route* Delivery::FindRoute(uint32_t taskId) const {
  auto found = std::ranges::find(routes_, taskId, &Route::taskId);
  return found == routes_.end() ? nullptr : &*found;
}

}  // namespace tarq::host
