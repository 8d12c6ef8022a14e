#include "host/log.h"

#include <spdlog/async.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <thread>

#include "host/printable.h"
#include "platform/framework.h"

namespace tarq::host {
namespace {

constexpr std::chrono::milliseconds kLookAgain{5};

}  // namespace

void StartLog(const std::string& level) {
  spdlog::init_thread_pool(kMaxWaitingLogLines, 1);
  auto logger = spdlog::create_async_nb<spdlog::sinks::stderr_sink_mt>("tarq-host");
  logger->set_level(spdlog::level::from_str(level));
  logger->set_pattern("%Y-%m-%dT%H:%M:%S.%eZ %-7l %v", spdlog::pattern_time_type::utc);
  logger->flush_on(spdlog::level::debug);
  spdlog::set_default_logger(logger);
}

void LogPlatformLine(uint32_t level, std::string_view text) {
  auto severity = level == kLogNote        ? spdlog::level::debug
                  : level == kLogMilestone ? spdlog::level::info
                                           : spdlog::level::err;
  spdlog::log(severity, "{}", Printable(text));
}

uint64_t DroppedLogLines() { return spdlog::thread_pool()->overrun_counter(); }

uint64_t StopLog(bool threadsEnded) {
  auto pool = spdlog::thread_pool();
  // Once the flush is off the queue, all lines before it are written: one thread serves it.
  spdlog::default_logger_raw()->flush();
  while (pool->queue_size() > 0) std::this_thread::sleep_for(kLookAgain);
  uint64_t dropped = pool->overrun_counter();
  if (threadsEnded) spdlog::shutdown();
  return dropped;
}

}  // namespace tarq::host
