#include "apps/reader/Checking.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "apps/reader/Files.h"
#include "apps/reader/Text.h"
#include "paperloom/identity/IdentityParsers.h"
#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "paperloom/platform/CacheExplanation.h"
#include "paperloom/platform/ImageDecoder.h"

namespace paperloom::reader {
namespace {

using Severity = ParseFinding::Severity;

constexpr std::string_view noAnswer = "no-answer";
constexpr std::string_view noPicture = "no-picture";
constexpr std::string_view otherSize = "other-size";
constexpr std::string_view notKept = "not-kept";
constexpr std::string_view alwaysFetched = "always-fetched";

constexpr auto imageKind = "image";

template <class Parser>
void hear(const Data& data, ParseFindings& findings) {
  static_cast<void>(Parser().parse(data, &findings));
}

using Hearing = void (*)(const Data&, ParseFindings&);

const std::map<std::string, Hearing>& hearings() {
  static const std::map<std::string, Hearing> table = {
      {"config", hear<ConfigParser>},
      {"stream", hear<StreamParser>},
      {"article", hear<ArticleParser>},
      {"authorisation", hear<AuthenticationParser>},
      {"registration", hear<RegistrationParser>},
  };
  return table;
}

std::optional<ImageSize> sizeOf(const Data& data) {
  const auto image = ImageDecoder::current()->decode(data.view());
  if (!image) return std::nullopt;
  return ImageSize{image->width(), image->height()};
}

bool isBefore(const ParseFinding& a, const ParseFinding& b) {
  return std::pair(a.place.line, a.place.column) < std::pair(b.place.line, b.place.column);
}

}  // namespace

std::vector<std::string> checkedKinds() {
  std::vector<std::string> kinds = {imageKind};
  for (const auto& [kind, hearing] : hearings()) kinds.push_back(kind);
  std::sort(kinds.begin(), kinds.end());
  return kinds;
}

std::vector<ParseRule> checkedRules() {
  std::vector<ParseRule> rules = parseRules();
  rules.insert(rules.end(),
               {{noAnswer, "What a document leads to is there."},
                {noPicture, "A picture is one that can be shown."},
                {otherSize, "A picture has the size that the document says."},
                {notKept, "A document may be kept for readers without a network."},
                {alwaysFetched, "A document that has not changed is not fetched again."}});
  return rules;
}

// What came of a request, on its way from the session's threads.
struct Checking::Fetched {
  std::optional<Data> data;
  std::string failure;                  // a clause; empty when there is data
  std::optional<ImageSize> size;        // of a picture
  std::optional<ParseFinding> caching;  // what its headers mean for readers without a network
};

struct Checking::Document {
  std::string name;
  std::string kind;
  bool follows = false;
  std::vector<ParseFinding> findings{};
  std::vector<Reference> references{};
  std::string_view brokenRule{};  // by the document as a whole
  std::string failure{};
  std::optional<ImageSize> size{};
};

Checking::Checking(Host& host) : host_(host), self_(std::make_shared<Checking*>(this)) {}

Checking::~Checking() = default;

URLSession& Checking::session() {
  if (session_) return *session_;
  // Large enough for every document, each until it has been looked at: what is kept here is what
  // HTTP lets a cache keep.
  constexpr std::int64_t ample = std::int64_t{1} << 30U;
  cache_ = std::make_shared<URLCache>(ample, 0, "");
  largestKept_ = host_.sessionManager()->contentSessionCache()->diskCapacity() / 20;
  URLSessionConfiguration configuration;
  configuration.urlCache = cache_;
  session_ = std::make_unique<URLSession>(std::move(configuration));
  return *session_;
}

void Checking::checkFile(const std::string& kind, const std::string& path) {
  check(documents_.emplace_back(Document{.name = path, .kind = kind}), Data(readInput(path)));
}

void Checking::checkURL(const std::string& kind, const URL& url, bool follows) {
  const std::string name = url.absoluteString();
  if (!numbers_.try_emplace(name, documents_.size()).second) return;
  documents_.push_back({.name = name, .kind = kind, .follows = follows});
  fetch(documents_.size() - 1, url);
}

std::optional<ParseFinding> Checking::judgeCaching(const URLRequest& request, const Data& data,
                                                   const HTTPURLResponse& response) const {
  const auto finding = [](std::string_view rule, std::string message) {
    return ParseFinding{.rule = std::string(rule), .message = std::move(message)};
  };
  const auto stored = cache_->cachedResponseThroughRedirects(request);
  cache_->removeCachedResponse(request);
  constexpr std::string_view notThere = "without a network readers do not get it";
  if (!stored) {
    const auto control = response.headers.combined("Cache-Control");
    return finding(notKept,
                   fmt::format("its headers do not let it be kept{}: {}",
                               control ? " (Cache-Control: " + *control + ")" : "", notThere));
  }
  if (static_cast<std::int64_t>(data.size()) > largestKept_) {
    return finding(notKept,
                   fmt::format("with {} it is too large to be kept: {}",
                               byteSize(static_cast<std::int64_t>(data.size())), notThere));
  }
  if (explainCaching(request, stored, currentDate()).outcome == CacheExplanation::Outcome::sent) {
    return finding(alwaysFetched,
                   "it is kept for readers without a network, but with one fetched whole every "
                   "time: its headers name neither a lifetime nor an ETag or Last-Modified");
  }
  return std::nullopt;
}

void Checking::fetch(std::size_t number, const URL& url) {
  ++pending_;
  const URLRequest request(url);
  auto fetched = std::make_shared<Fetched>();
  const bool isImage = documents_[number].kind == imageKind;
  const auto isUsable = [](const auto& data, const auto& response) {
    return data && response && response->statusCode >= 200 && response->statusCode <= 399;
  };
  session()
      .dataTask(
          request,
          [this, fetched, request, number, isUsable, self = std::weak_ptr<Checking*>(self_)](
              const auto& data, const auto& response, const auto& error) {
            if (isUsable(data, response)) {
              fetched->data = data;
              fetched->caching = judgeCaching(request, *data, *response);
            } else if (error) {
              fetched->failure = "does not answer: " + error->localizedDescription;
            } else {
              fetched->failure =
                  fmt::format("answers with status {}", response ? response->statusCode : 0);
            }
            Host::later([fetched, number, self] {
              if (const auto checking = self.lock()) (*checking)->take(number, *fetched);
            });
          },
          nullptr,
          [fetched, isImage, isUsable](const auto& data, const auto& response, const auto&) {
            if (isImage && isUsable(data, response)) fetched->size = sizeOf(*data);
          })
      ->resume();
}

void Checking::take(std::size_t number, const Fetched& fetched) {
  --pending_;
  host_.waitsForTheNext();
  Document& document = documents_[number];
  if (!fetched.data) {
    document.brokenRule = noAnswer;
    document.failure = fetched.failure;
    return;
  }
  if (fetched.caching) document.findings.push_back(*fetched.caching);
  if (document.kind == imageKind) return takePicture(document, fetched.size);
  check(document, *fetched.data);
}

void Checking::takePicture(Document& document, const std::optional<ImageSize>& size) {
  document.size = size;
  if (size) return;
  document.brokenRule = noPicture;
  document.failure = "is no picture that can be shown";
}

void Checking::check(Document& document, const Data& data) {
  if (document.kind == imageKind) return takePicture(document, sizeOf(data));
  ParseFindings findings;
  hearings().at(document.kind)(data, findings);
  const auto& list = findings.list();
  document.findings.insert(document.findings.end(), list.begin(), list.end());
  if (document.follows) follow(numbers_.at(document.name), findings.links());
}

void Checking::follow(std::size_t number, const std::vector<ParsedLink>& links) {
  for (const ParsedLink& link : links) {
    auto url = URL::parse(link.url);
    if (url) url = host_.resolveIfPossible(*url);
    if (!url) continue;
    checkURL(link.kind == ParsedLink::Kind::picture ? imageKind : "article", *url, true);
    documents_[numbers_.at(url->absoluteString())].references.push_back({number, link});
  }
}

void Checking::addFailure(Document& document) {
  ParseFinding finding;
  finding.severity = Severity::error;
  finding.rule = document.brokenRule;
  finding.message = document.references.empty() ? "the document" : document.name;
  finding.message += " " + document.failure;
  for (const Reference& reference : document.references) {
    finding.place = reference.link.place;
    documents_[reference.document].findings.push_back(finding);
  }
  if (document.references.empty()) document.findings.push_back(finding);
}

void Checking::compareSize(const Document& document) {
  for (const auto& [number, link] : document.references) {
    const bool isOfWidth = link.width == 0 || link.width == document.size->width;
    const bool isOfHeight = link.height == 0 || link.height == document.size->height;
    if (isOfWidth && isOfHeight) continue;
    documents_[number].findings.push_back(
        {isOfWidth ? link.heightPlace : link.widthPlace, Severity::note, std::string(otherSize),
         fmt::format("{} is {} x {} pixels, not {} x {}", document.name, document.size->width,
                     document.size->height, link.width, link.height)});
  }
}

std::vector<CheckedDocument> Checking::finish() {
  host_.waitUntil([this] { return pending_ == 0; }, "the documents");
  for (Document& document : documents_) {
    if (!document.brokenRule.empty()) {
      addFailure(document);
    } else if (document.size) {
      compareSize(document);
    }
  }
  std::vector<CheckedDocument> checked;
  for (Document& document : documents_) {
    std::stable_sort(document.findings.begin(), document.findings.end(), isBefore);
    checked.push_back({document.name, std::move(document.findings)});
  }
  return checked;
}

}  // namespace paperloom::reader
