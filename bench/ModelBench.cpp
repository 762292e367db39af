// What it costs to turn a stream document into records, beside the same records built over another
// decoder and beside the decoder alone.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <simdjson.h>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "bench/Ratios.h"
#include "bench/peers/JSONPeers.h"
#include "paperloom/model/DocumentParsers.h"

namespace paperloom::bench {
namespace {

std::string renditionJSON(int card, int size) {
  const std::string width = std::to_string(160 * size);
  const std::string height = std::to_string(90 * size);
  return R"({"url":"https://images.example.com/news/2024/pictures/)" + std::to_string(card) +
         "/lead-photograph-" + width + "x" + height + R"(.jpg?quality=85&crop=smart","width":)" +
         width + R"(,"height":)" + height + "}";
}

std::string cardJSON(int card) {
  std::string renditions;
  for (int size = 5; size > 0; --size) {
    renditions += (renditions.empty() ? "" : ",") + renditionJSON(card, size);
  }
  const std::string number = std::to_string(card);
  return R"({"headline":"Ministers meet again over the harbour plan, and the ferries wait: )" +
         number + R"(","url":"https://news.example.com/articles/2024/03/harbour-plan-)" + number +
         R"(.json","qrvId":"article-)" + number + R"(","cardType":"medium",)" +
         R"("type":"standardArticle","premium":false,"sponsored":false,"authors":[{"name":)" +
         R"("Marta Lind","jobTitle":"Political Editor"},{"name":"Tom Oakes"}],"cardAsset":)" +
         R"({"type":"image","caption":"The old ferry at the quay on Monday","copyright":)" +
         R"("E. Holm / Harbour Press","altText":"A white ferry beside a stone quay",)" +
         R"("renditions":[)" + renditions + "]}}";
}

std::string streamJSON(int sections, int cards) {
  std::string metadata;
  std::string bodies;
  for (int section = 0; section < sections; ++section) {
    const std::string uid = "\"section-" + std::to_string(section) + "\"";
    metadata += (section == 0 ? "" : ",") + (R"({"uid":)" + uid) +
                R"(,"displayName":"News","primaryColour":"#102030","secondaryColour":"#405060",)" +
                R"("accessibleColour":"#708090","customization":"enabledByDefault",)" +
                R"("showSponsored":true})";
    bodies += (section == 0 ? "" : ",") + (R"({"uid":)" + uid) + R"(,"pageId":"page","previews":[)";
    for (int card = 0; card < cards; ++card) {
      bodies += (card == 0 ? "" : ",") + cardJSON(section * cards + card);
    }
    bodies += "]}";
  }
  return R"({"globalMetaData":{"premiumPrimaryColour":"#1","premiumSecondaryColour":"#2",)"
         R"("premiumAccessibleColour":"#3","premiumLabelColourOnNormalBackground":"#4",)"
         R"("premiumLabelColourOnSecondaryBackground":"#5"},"sectionMetaData":[)" +
         metadata + R"(],"sponsoredContent":[],"sections":[)" + bodies + "]}";
}

const std::string& oneMegabyte() {
  static const std::string document = streamJSON(20, 40);
  return document;
}

const std::string& fiftyMegabytes() {
  static const std::string document = streamJSON(1000, 40);
  return document;
}

// The same records over another decoder, as plainly as such code is written.
namespace peer {

using nlohmann::json;

std::optional<std::string> text(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

bool boolean(const json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_boolean() && found->get<bool>();
}

std::optional<Asset> asset(const json& object) {
  const auto type = fromRawValue<Asset::Type>(text(object, "type").value_or(""));
  if (!type) return std::nullopt;
  Asset result{.type = *type,
               .caption = text(object, "caption"),
               .copyright = text(object, "copyright"),
               .altText = text(object, "altText"),
               .videoEmbedId = text(object, "videoEmbedId"),
               .videoDuration = text(object, "videoDuration"),
               .renditions = {}};
  for (const json& rendition : object.at("renditions")) {
    const auto width = rendition.find("width");
    const auto height = rendition.find("height");
    auto url = URL::parse(text(rendition, "url").value_or(""));
    if (!url || !width->is_number_integer() || !height->is_number_integer()) continue;
    result.renditions.emplace_back(std::move(*url), width->get<std::int64_t>(),
                                   height->get<std::int64_t>());
  }
  std::sort(result.renditions.begin(), result.renditions.end(),
            [](const auto& a, const auto& b) { return a.width < b.width; });
  return result;
}

std::shared_ptr<const ArticleHeaderProtocol> card(const json& object) {
  std::vector<Author> authors;
  for (const json& author : object.at("authors")) {
    authors.push_back({text(author, "name").value_or(""), text(author, "jobTitle")});
  }
  return std::make_shared<const ArticleHeader>(ArticleHeader::Fields{
      .identifier = text(object, "qrvId").value_or(""),
      .URL = *URL::parse(text(object, "url").value_or("")),
      .articleType = fromRawValue<ArticleType>(text(object, "type").value_or(""))
                         .value_or(ArticleType::unknown),
      .headline = text(object, "headline").value_or(""),
      .authors = std::move(authors),
      .isPremium = boolean(object, "premium"),
      .cardType =
          fromRawValue<CardType>(text(object, "cardType").value_or("")).value_or(CardType::small),
      .cardAsset = asset(object.at("cardAsset")),
      .videoDuration = text(object, "videoDuration"),
      .sponsored = boolean(object, "sponsored")});
}

std::shared_ptr<const AppMetadataProtocol> metadata(const json& object) {
  SectionMetadataList sections;
  for (const json& section : object.at("sectionMetaData")) {
    sections.push_back(std::make_shared<const SectionMetaData>(SectionMetaData::Fields{
        .uid = text(section, "uid").value_or(""),
        .displayName = text(section, "displayName").value_or(""),
        .primaryColourHex = text(section, "primaryColour").value_or(""),
        .secondaryColourHex = text(section, "secondaryColour").value_or(""),
        .customization = sectionCustomization(text(section, "customization").value_or("")),
        .accessibleColourHex = text(section, "accessibleColour").value_or(""),
        .displayAsCarousel = boolean(section, "displayAsCarousel"),
        .fallbackCards = nullptr,
        .showSponsored = boolean(section, "showSponsored")}));
  }
  return std::make_shared<const AppMetadata>(
      std::move(sections), std::make_shared<const GlobalMetadata>(GlobalMetadata::Fields{}));
}

std::shared_ptr<const StreamProtocol> stream(const std::string& bytes) {
  const json document = json::parse(bytes);
  SectionList sections;
  for (const json& section : document.at("sections")) {
    ArticleHeaderList headers;
    for (const json& preview : section.at("previews")) headers.push_back(card(preview));
    sections.push_back(std::make_shared<const Section>(
        text(section, "uid").value_or(""), std::move(headers), text(section, "pageId")));
  }
  return std::make_shared<const Stream>(Stream::Fields{.premiumColourSet = std::nullopt,
                                                       .premiumLabelColourSet = std::nullopt,
                                                       .sections = std::move(sections),
                                                       .sponsoredArticles = {},
                                                       .appMetadata = metadata(document)});
}

}  // namespace peer

// The document as a session hands over a body: with room behind it for the decoder.
Data received(std::string document) {
  document.reserve(document.size() + 64);
  return Data(std::move(document));
}

void streamParser(benchmark::State& state, const std::string& (*document)()) {
  const Data data = received(document());
  for (auto _ : state) {
    auto stream = StreamParser().parse(data);
    if (!stream) state.SkipWithError("the stream does not parse");
    benchmark::DoNotOptimize(stream);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}

void peerRoute(benchmark::State& state) {
  for (auto _ : state) {
    auto stream = peer::stream(oneMegabyte());
    benchmark::DoNotOptimize(stream);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(oneMegabyte().size()));
}

// With `reused` the parser keeps its memory between the documents, its fastest way of working.
void decoderAlone(benchmark::State& state, bool reused) {
  simdjson::dom::parser kept;
  for (auto _ : state) {
    if (reused) {
      benchmark::DoNotOptimize(kept.parse(oneMegabyte()).error());
    } else {
      simdjson::dom::parser fresh;
      benchmark::DoNotOptimize(fresh.parse(oneMegabyte()).error());
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(oneMegabyte().size()));
}

void decodedBy(benchmark::State& state, const JSONPeer& peer) {
  for (auto _ : state) {
    if (!peer.decodes(oneMegabyte())) state.SkipWithError("the stream does not decode");
  }
}

// A line such as "VmHWM:  1234 kB" of the process's own status, in bytes.
double statusBytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field + ":")) return std::stod(line.substr(field.size() + 1)) * 1024;
  }
  return 0;
}

struct FirstParse {
  double memory = 0;   // the most that it took, the document added, over the document's size
  double seconds = 0;  // of the processor
};

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The first parse of a process, but for a small one before it: the library's code is not counted.
FirstParse measureFirstParse(const std::string& document) {
  const bool warm = StreamParser().parse(received(streamJSON(1, 1))).has_value();
  const Data data = received(document);
  malloc_trim(0);
  const double memory = statusBytes("VmRSS");
  const double start = processorSeconds();
  const auto stream = StreamParser().parse(data);
  if (!warm || !stream) return {};
  return {.memory = (statusBytes("VmHWM") - memory) / static_cast<double>(data.size()) + 1,
          .seconds = processorSeconds() - start};
}

// The best of three processes.
FirstParse firstParse(const std::string& document) {
  FirstParse best{.memory = 1e9, .seconds = 1e9};
  for (int i = 0; i < 3; ++i) {
    int ends[2];
    if (pipe(ends) != 0) return {};
    const pid_t child = fork();
    FirstParse measured;
    if (child == 0) {
      measured = measureFirstParse(document);
      _exit(write(ends[1], &measured, sizeof measured) == sizeof measured ? 0 : 1);
    }
    if (child < 0 || read(ends[0], &measured, sizeof measured) != sizeof measured) return {};
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    best.memory = std::min(best.memory, measured.memory);
    best.seconds = std::min(best.seconds, measured.seconds);
  }
  return best;
}

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  using namespace paperloom::bench;
  const FirstParse one = firstParse(oneMegabyte());
  const FirstParse fifty = firstParse(fiftyMegabytes());

  using benchmark::RegisterBenchmark;
  const auto millisecond = benchmark::kMillisecond;
  RegisterBenchmark("StreamParser1MB", streamParser, oneMegabyte)->Unit(millisecond);
  RegisterBenchmark("StreamParser50MB", streamParser, fiftyMegabytes)->Unit(millisecond);
  RegisterBenchmark("NlohmannRoute1MB", peerRoute)->Unit(millisecond);
  RegisterBenchmark("SimdjsonAlone1MB", decoderAlone, true)->Unit(millisecond);
  RegisterBenchmark("SimdjsonAloneFreshParser1MB", decoderAlone, false)->Unit(millisecond);
  for (const JSONPeer& peer : jsonPeers()) {
    RegisterBenchmark(peer.name, decodedBy, peer)->Unit(millisecond);
  }
  benchmark::Initialize(&argc, argv);
  BestTimes best(BestTimes::Clock::processor);
  benchmark::RunSpecifiedBenchmarks(&best);

  const double own = best.of("StreamParser1MB");
  const double growth =
      static_cast<double>(fiftyMegabytes().size()) / static_cast<double>(oneMegabyte().size());
  printRatio("stream-parse/nlohmann-route", own, best.of("NlohmannRoute1MB"), "<= 0.167");
  printRatio("stream-parse/simdjson-alone", own, best.of("SimdjsonAlone1MB"), "<= 5");
  printRatio("stream-parse/simdjson-alone-fresh-parser", own,
             best.of("SimdjsonAloneFreshParser1MB"), "<= 5");
  for (const JSONPeer& peer : jsonPeers()) {
    printRatio((std::string("stream-parse/") + peer.name + "-alone").c_str(), own,
               best.of(peer.name), "for information");
  }
  // Over and over, a small document's memory stays with the allocator and in the caches, which that
  // of a large one cannot; as the first document of a process both start from nothing.
  printRatio("stream-parse-50MB/1MB-per-byte-first-in-process",
             fifty.seconds / one.seconds / growth, "<= 1");
  printRatio("stream-parse-50MB/1MB-per-byte-repeated", best.of("StreamParser50MB") / own / growth,
             "no more than the caches explain");
  printRatio("stream-parse-peak-memory/document-1MB", one.memory, "< 5");
  printRatio("stream-parse-peak-memory/document-50MB", fifty.memory, "< 5");
}
