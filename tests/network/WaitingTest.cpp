#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <string_view>
#include <thread>

#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/ImageDecoder.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/network/ContentFixture.h"
#include "tests/support/FaultyFiles.h"

namespace paperloom::test {
namespace {

// Before the first test opens a file.
FaultyFiles& files = FaultyFiles::shared();

class WaitingTest : public ContentFixture {
 protected:
  std::vector<std::shared_ptr<AuthSessionManager>> accounts;
};

TEST_F(WaitingTest, nobodyWhoAsksOrReadsWaitsForADisk) {
  using Act = std::function<void(DataCoordinator&, const URL&)>;
  const std::pair<const char*, Act> acts[] = {
      {"setting up", [](DataCoordinator&, const URL&) {}},
      {"configuration", [](DataCoordinator& c, const URL&) { c.requestAppMetadata(nullptr); }},
      {"stream", [](DataCoordinator& c, const URL&) { c.requestStreamForSections({}, nullptr); }},
      {"article", [](DataCoordinator& c, const URL& url) { c.requestArticle(url, nullptr); }},
      {"image", [](DataCoordinator& c, const URL& url) { c.requestImageFromURL(url, nullptr); }},
      {"a refresh",
       [](DataCoordinator& c, const URL& url) {
         c.requestArticle(url, Refresh::ifOlderThan(std::chrono::seconds(1)), nullptr);
         c.requestArticle(url, Refresh::afterTheCopy(), nullptr);
       }},
      {"cancelling",
       [](DataCoordinator& c, const URL& url) { c.requestArticle(url, nullptr)->cancel(); }},
      {"a forced refresh",
       [](DataCoordinator& c, const URL& url) {
         c.cacheWarmerDataCoordinator()->saveToCache(url, true, nullptr);
       }},
      {"what came last",
       [](DataCoordinator& c, const URL& url) {
         c.requestArticle(url, nullptr);
         EXPECT_FALSE(c.appMetadata() || c.stream() || c.sessionManagerMock());
       }},
      {"an account",
       [this](DataCoordinator&, const URL& url) {
         accounts.push_back(std::make_shared<AuthSessionManager>(URLSessionConfiguration{
             .urlCache = std::make_shared<URLCache>(1 << 20, 1 << 20, folder.path() / "a")}));
         accounts.back()->getRequest(url, {}, [](const auto&) {});
       }},
  };
  int number = 0;
  for (const auto& [what, act] : acts) {
    SCOPED_TRACE(what);
    const auto path = folder.path() / std::to_string(number++);
    std::shared_ptr<ContentSessionManager> manager;
    std::unique_ptr<DataCoordinator> coordinator;
    files.block(true);
    auto asked = std::async(std::launch::async, [&, &act = act] {
      manager = std::make_shared<ContentSessionManager>(
          std::make_shared<URLCache>(1 << 20, 1 << 20, path));
      coordinator = std::make_unique<DataCoordinator>(manager, dates);
      coordinator->setBaseURL(at(""));
      act(*coordinator, at("/config"));
      DispatchQueue::main().runPending();
    });
    const bool inTime = asked.wait_for(patience) == std::future_status::ready;
    if (what == std::string_view("article")) {
      EXPECT_TRUE(pumpUntil([] { return files.held() > 0; })) << "nobody else waits in their place";
    }
    files.block(false);
    asked.wait();
    coordinator.reset();
    manager.reset();
    ASSERT_TRUE(inTime);
  }
  accounts.clear();
  DispatchQueue::main().runPending();
}

// Decodes once it is allowed to.
class PatientDecoder final : public ImageDecoder {
 public:
  std::shared_ptr<const Image> decode(std::string_view bytes) const override {
    ++begun;
    released.wait();
    return StandardImageDecoder().decode(bytes);
  }

  mutable std::atomic<unsigned> begun = 0;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
};

TEST_F(WaitingTest, picturesAreDecodedSeveralAtATimeAndHoldUpNoOtherAnswer) {
  const auto decoder = std::make_shared<PatientDecoder>();
  ImageDecoder::setCurrent(decoder);
  const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
  DataCoordinator coordinator(std::make_shared<ContentSessionManager>(cache), dates);
  coordinator.setBaseURL(at(""));
  unsigned images = 0;
  for (unsigned i = 0; i < cores + 1; ++i) {
    const URL url = at("/images/harbour-640.jpg?" + std::to_string(i));  // each its own
    coordinator.requestImageFromURL(url, [&](const auto&) { ++images; });
  }
  EXPECT_TRUE(pumpUntil([&] { return decoder->begun == cores; }));
  std::promise<void> configured;
  coordinator.requestAppMetadata([&](const auto&) { configured.set_value(); });
  EXPECT_EQ(configured.get_future().wait_for(patience), std::future_status::ready);
  EXPECT_EQ(images, 0U);
  EXPECT_EQ(decoder->begun, cores);
  decoder->release.set_value();
  EXPECT_TRUE(pumpUntil([&] { return images == cores + 1; }));
  ImageDecoder::setCurrent(nullptr);
}

}  // namespace
}  // namespace paperloom::test
