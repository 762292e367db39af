#include "paperloom/testing/SampleDocuments.h"

#include <stdexcept>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "paperloom/testing/internal/ContentStore.h"

namespace paperloom::sample {
namespace {

std::invalid_argument unknown(std::string_view target) {
  return std::invalid_argument("the sample newspaper has no document " + std::string(target));
}

template <class Parser>
typename Parser::Item record(const std::string& target) {
  auto parsed = Parser().parse(document(target));
  if (!parsed) throw unknown(target);
  return *parsed;
}

}  // namespace

Data document(std::string_view target, std::string_view baseURL) {
  HttpRequest request;
  request.method = "GET";
  const auto query = target.find('?');
  request.path = target.substr(0, query);
  constexpr std::string_view uids = "?uids=";
  if (query != target.npos && target.substr(query).starts_with(uids)) {
    request.query.emplace("uids", target.substr(query + uids.size()));
  }
  HttpReply reply = ContentStore(baseURL).answer(request);
  if (reply.status != 200) throw unknown(target);
  return Data(std::move(reply.body));
}

std::vector<std::string> documentPaths() { return ContentStore("").paths(); }

std::shared_ptr<const AppMetadataProtocol> appMetadata() { return record<ConfigParser>("/config"); }

std::shared_ptr<const StreamProtocol> stream(const std::vector<std::string>& sections) {
  std::string target = "/stream?uids=";
  for (const auto& uid : sections) target += (&uid == sections.data() ? "" : ",") + uid;
  return record<StreamParser>(target);
}

std::shared_ptr<const ArticleProtocol> article(std::string_view name) {
  return record<ArticleParser>("/articles/" + std::string(name));
}

std::shared_ptr<const Image> image(std::string_view fileName) {
  return record<ImageParser>("/images/" + std::string(fileName));
}

}  // namespace paperloom::sample
