// What a start that fails leaves behind.
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "host/host.h"

namespace tarq::host {

TEST(FailedStart, LeavesNothingOfItsOwnAndADatabaseAloneThatItHasNotReached) {
  namespace fs = std::filesystem;
  fs::path directory = testing::TempDir() + "tarq-start-" + std::to_string(getpid()), used = directory / "used.db";
  fs::create_directory(directory);
  std::ofstream(used).close();  // an empty file is an empty database
  StopSignals signals;
  fs::path missing = "/nowhere/module.so", refusing = TARQ_REFUSING_MODULE, fresh = directory / "new.db";
  for (auto [module, database] : {std::pair(missing, used), {missing, fresh}, {refusing, fresh}, {refusing, used}}) {
    Options options;
    options.outputs.push_back({ParseTarget(directory / "a" / "b"), Format::kAuto, ParseSubscriptions({})});
    options.database = database;
    options.module = module;
    Host host(options, signals);
    EXPECT_THROW(host.Start(), std::runtime_error);
    EXPECT_THAT(std::vector<fs::path>(fs::directory_iterator(directory), {}), testing::ElementsAre(used)) << module;
    EXPECT_TRUE(fs::file_size(used) == 0 || module == refusing);
  }
  fs::remove_all(directory);
}

}  // namespace tarq::host
