// Command lines. Input: arguments, each ended by a backslash and a blank; at the end, who reads them: as a
// subscription, host or meter.
#include "host/options.h"

#include "check.h"
#include "meter/options.h"

namespace tarq::fuzz {

using namespace std::chrono_literals;

void TryHost(const std::vector<char*>& argv) {
  const auto result = host::ParseOptions(static_cast<int>(argv.size()), argv.data());
  if (const auto* exit = std::get_if<host::EarlyExit>(&result)) return Check(!exit->text.empty(), "an exit says why");
  const auto& options = std::get<host::Options>(result);
  const auto subscriptions = options.subscriptions();
  Check(!subscriptions.empty() && subscriptions.size() <= host::kMaxSubscriptions, "subscriptions");
  for (size_t i = 0; i < subscriptions.size(); ++i) Check(subscriptions[i].index == i, "numbered over all outputs");
  Check(!options.outputs.empty() && options.outputs.size() <= host::kMaxOutputs, "outputs");
  Check(options.duration.value_or(1ms) > 0ms && options.drainTimeout >= 0ms && options.drainTimeout <= 1h, "times");
}

void TryMeter(std::vector<char*> argv) {
  const auto options = meter::ReadOptions(static_cast<int>(argv.size()), argv.data());
  Check(!options || (options->linger >= 0ms && options->linger <= 10min && options->duration >= 0ms), "times");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) try {
  std::cout.setstate(std::ios::failbit);  // no help pages
  FuzzedDataProvider input(data, size);
  const int reader = input.ConsumeIntegralInRange(0, 2);
  std::vector<std::string> texts{"program"};
  std::vector<char*> argv;
  while (input.remaining_bytes() > 0) texts.push_back(input.ConsumeRandomLengthString());
  for (auto& text : texts) argv.push_back(text.data());
  reader == 0 ? void(host::ParseSubscription(texts.back())) : reader == 1 ? TryHost(argv) : TryMeter(argv);
  return 0;
} catch (const std::invalid_argument&) {  // a refused subscription
  return 0;
} catch (const meter::StartFailure& refused) {
  Check(refused.code == meter::kBadUsage, "a bad command line has its own exit code");
  return 0;
}

}  // namespace tarq::fuzz
