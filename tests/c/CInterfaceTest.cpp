// Runs the host that is written in C, each test with a service that suits it.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/testing/SampleService.h"
#include "paperloom/testing/ScriptedServer.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/c/Host.h"

extern "C" void check(bool holds, const char* what, const char* file, int line) {
  if (!holds) ADD_FAILURE_AT(file, line) << what;
}

namespace paperloom::test {
namespace {

const std::string asset = R"({"type":"video","caption":"caption","copyright":"copyright",
  "altText":"altText","videoEmbedId":"videoEmbedId","videoDuration":"videoDuration",
  "renditions":[{"url":"rendition","width":640,"height":480}]})";

const std::string authors = R"([{"name":"name","jobTitle":"jobTitle"}])";

const std::string card = R"({"qrvId":"qrvId","url":"url","type":"liveArticle","premium":true,
  "headline":"headline","cardType":"bespoke","videoDuration":"videoDuration","cardAsset":)" +
                         asset + R"(,"authors":)" + authors + "}";

const std::string configuration = R"("sectionMetaData":[{"uid":"uid","displayName":"displayName",
  "primaryColour":"sectionPrimaryColour","secondaryColour":"sectionSecondaryColour",
  "accessibleColour":"sectionAccessibleColour","customization":"enabledByDefault",
  "displayAsCarousel":true,"showSponsored":true,"fallbackCardsOverride":["standard"],
  "premiumFallbackCardsOverride":["premium"]}],
  "globalMetaData":{"premiumPrimaryColour":"globalPrimaryColour",
  "premiumSecondaryColour":"globalSecondaryColour",
  "premiumAccessibleColour":"globalAccessibleColour",
  "premiumLabelColourOnNormalBackground":"onNormal",
  "premiumLabelColourOnSecondaryBackground":"onSecondary","fallbackCards":["global"]})";

const std::string stream = "{" + configuration + R"(,"sections":[{"uid":"uid","pageId":"pageId",
  "previews":[)" + card + R"(]}],"sponsoredContent":[)" +
                           card + "]}";

const std::string article = R"({"headline":"headline","type":"commentArticle","sponsored":true,
  "pageId":"pageId","websiteUrl":"websiteUrl","adZone":"adZone","starRating":4,
  "businessSegment":"businessSegment","datePublished":"1970-01-01T00:00:01Z","authors":)" +
                            authors + R"(,"leadAsset":)" + asset + R"(,
  "sponsor":{"name":"name","byline":"byline","image":"image","url":"url","campaignId":"campaignId"},
  "registerWall":{"headline":"headline","dismissType":"soft","primaryColour":"wallPrimaryColour",
    "secondaryColour":"wallSecondaryColour","accessibleColour":"wallAccessibleColour",
    "registerButtonText":"registerButtonText","loginButtonText":"loginButtonText",
    "channel":"channel"},
  "body":[{"type":"text","text":"text"},{"type":"heading","text":"heading","level":3},
    {"type":"image","renditions":[{"url":"rendition","width":640,"height":480}]},)" +
                            asset + R"(,
    {"type":"youtube","videoEmbedId":"videoEmbedId"},{"type":"tweet","tweetId":"tweetId"},
    {"type":"particle","text":"text","embedSrc":"embedSrc"},
    {"type":"livepost","time":"1970-01-02T00:00:00Z"},{"type":"poll"}]})";

class CInterfaceTest : public ::testing::Test {
 protected:
  CInterfaceTest() {
    ApplicationDirectories::setCachesDirectory(folder.path());
    ApplicationDirectories::setSettingsDirectory(folder.path());
  }

  std::string content(const std::string& faults = "") {
    service->setFaults(*sample::FaultPlan::parse(faults));
    return service->baseURL();
  }

  TemporaryFolder folder;
  std::unique_ptr<sample::SampleService> service = std::move(*sample::SampleService::start());
  ScriptedServer documents{[](const ScriptedServer::Request& request) {
    const std::map<std::string, std::string> byTarget = {{"/config", "{" + configuration + "}"},
                                                         {"/stream?uids=uid", stream},
                                                         {"/article", article}};
    return answer(byTarget.at(request.target), "Content-Type: application/json\r\n");
  }};
};

TEST_F(CInterfaceTest, readsEveryPartOfADocument) {
  const std::string url = documents.url("").absoluteString();
  walks_the_front_page(url.c_str());
  walks_an_article(url.c_str());
}

TEST_F(CInterfaceTest, readsTheSamplePaper) { reads_the_sample_paper(content().c_str()); }

TEST_F(CInterfaceTest, answersEveryRequestOnceWhateverItsArguments) {
  answers_every_request_once(content("status=/articles:503 status=/images:404").c_str());
}

TEST_F(CInterfaceTest, endsWhatAReleasedClientLeaves) {
  ends_what_a_released_client_leaves(content("silent=/articles latency=50").c_str(),
                                     service->identityURL().c_str());
}

TEST_F(CInterfaceTest, keepsALoginThroughItsRefreshes) {
  keeps_a_login(service->identityURL().c_str());
}

TEST_F(CInterfaceTest, makesAndUnlinksAccounts) {
  makes_and_unlinks_accounts(service->identityURL().c_str());
}

TEST_F(CInterfaceTest, warmsAFrontPageAndTellsWhatHappens) {
  warms_a_front_page(content("status=/images:404").c_str());
}

TEST_F(CInterfaceTest, readsStructsOfOtherVersions) {
  reads_structs_of_other_versions(content().c_str());
  EXPECT_EQ(service->requests().back().header("X-App-Key"), "secret");
}

}  // namespace
}  // namespace paperloom::test
