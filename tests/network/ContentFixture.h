#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/LatestDateStore.h"
#include "paperloom/testing/SampleService.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "paperloom/testing/Waiting.h"

namespace paperloom::test {

// A sample service, a cache and user defaults of the test's own.
class ContentFixture : public ::testing::Test {
 protected:
  URL at(const std::string& path) const { return *URL::parse(service->baseURL() + path); }

  void misbehave(const std::string& faults) {
    service->setFaults(*sample::FaultPlan::parse(faults));
  }

  std::shared_ptr<URLCache> openCache() const {
    return std::make_shared<URLCache>(8 * ContentSessionManager::megabyte,
                                      100 * ContentSessionManager::megabyte,
                                      folder.path() / "url-cache");
  }

  TemporaryFolder folder;
  std::unique_ptr<sample::SampleService> service = std::move(*sample::SampleService::start());
  UserDefaults defaults{folder.path() / "defaults"};
  LatestDateStore dates{defaults};
  std::shared_ptr<URLCache> cache = openCache();
};

}  // namespace paperloom::test
