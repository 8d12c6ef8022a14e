#include "host/directory_output.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/write_all.h"

namespace tarq::host {
namespace {

int WriteFile(const std::filesystem::path& file, const std::string& data) {
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return errno;
  int error = WriteAll(fd, data);
  if (close(fd) != 0 && error == 0) error = errno;
  return error;
}

/// Renames without replacing anything. Returns 0 or `errno`.
int MoveToNew(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL) return errno;
  if (link(from, to) != 0) return errno;  // network file systems have no such rename
  unlink(from);
  return 0;
}

std::string TimeText(uint64_t milliseconds) {
  auto seconds = static_cast<time_t>(milliseconds / 1000);
  return fmt::format("{:%Y%m%dT%H%M%S}.{:03}Z", fmt::gmtime(seconds), milliseconds % 1000);
}

/// No other output has it, where several write into one directory.
std::string TemporaryName() {
  static std::atomic<unsigned> made = 0;
  return fmt::format(".sample-{}-{}.tmp", getpid(), ++made);
}

}  // namespace

DirectoryOutput::DirectoryOutput(std::filesystem::path directory)
    : directory_(std::move(directory)), temporary_(directory_ / TemporaryName()) {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  if (!error) error.assign(WriteFile(temporary_, ""), std::generic_category());
  if (error) {
    throw std::runtime_error(fmt::format("output directory \"{}\" cannot be written: {}; name a writable one",
                                         directory_.string(), error.message()));
  }
  unlink(temporary_.c_str());
}

WriteResult DirectoryOutput::Write(const Subscription& subscription, const standin::Sample& sample) {
  int error = WriteFile(temporary_, sample.data);
  if (error == 0) error = Publish(subscription, sample);
  if (error == 0) return {};
  unlink(temporary_.c_str());
  return {WriteResult::Outcome::kFailed, std::generic_category().message(error)};
}

int DirectoryOutput::Publish(const Subscription& subscription, const standin::Sample& sample) {
  int error;
  do {
    error = MoveToNew(temporary_.c_str(), NextFile(subscription, sample).c_str());
  } while (error == EEXIST);
  return error;
}

std::filesystem::path DirectoryOutput::NextFile(const Subscription& subscription, const standin::Sample& sample) {
  return directory_ / fmt::format("{}-{:09}-{}-task{}.{}", TimeText(sample.collectTimestamp), ++sequence_,
                                  subscription.kind->name, subscription.taskId(),
                                  subscription.encoding == kCodeTypeJson ? "json" : "pb");
}

}  // namespace tarq::host
