#include "host/log.h"

#include <spdlog/async.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include "platform/framework.h"

namespace tarq::host {

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
  spdlog::log(severity, "{}", text);
}

uint64_t StopLog() {
  uint64_t dropped = spdlog::thread_pool()->overrun_counter();
  spdlog::shutdown();
  return dropped;
}

}  // namespace tarq::host
