#include "paperloom/c/internal/Client.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/c/internal/Text.h"
#include "paperloom/network/ContentSessionManager.h"

namespace paperloom::c {

Client::Client(const Settings& settings)
    : identity(std::make_shared<Identity>(settings)),
      content(std::make_shared<ContentSessionManager>(settings.content)) {
  content.setBaseURL(settings.contentURL);
}

Client::~Client() {
  requests->cancelAll();
  warmings->end();
}

namespace {

const paperloom_answer* newAnswer(Outcome outcome) {
  return new paperloom_answer(std::move(outcome));
}

// A document that a client keeps, as an answer of its own.
template <class Record>
const paperloom_answer* kept(const Snapshot<Record>& document) {
  return document ? newAnswer({.document = std::shared_ptr<const Record>(document)}) : nullptr;
}

// A content request of a client.
struct ContentRequest {
  ContentRequest(paperloom_client* owner, paperloom_callback callback, void* userData)
      : client(owner),
        request(Request::make(callback, userData, client != nullptr ? client->requests : nullptr)) {
  }

  // Whether there is all that the request needs; otherwise it is answered.
  bool isGood(bool hasArguments, const char* complaint) {
    const char* const wrong = client == nullptr ? "there is no client"
                              : !hasArguments   ? complaint
                                                : nullptr;
    if (wrong == nullptr) return true;
    request->answer({PAPERLOOM_INVALID_ARGUMENT, wrong});
    return false;
  }

  // Callbacks for the coordinator; `tell` says whether they run on the main queue.
  using Tell = void (Request::*)(Outcome);
  template <class Record>
  auto success(Tell tell) const {
    return [request = request, tell](std::shared_ptr<const Record> document,
                                     const Provenance& provenance) {
      (*request.*tell)({.document = std::move(document),
                        .status = provenance.statusCode.value_or(0),
                        .provenance = provenance});
    };
  }
  auto failed(Tell tell) const {
    return [request = request, tell](const PaperloomError& error, const Provenance& provenance) {
      Outcome outcome = failure(error);
      outcome.status = provenance.statusCode.value_or(0);
      (*request.*tell)(std::move(outcome));
    };
  }

  paperloom_request started(const std::shared_ptr<URLSessionTask>& task = nullptr) const {
    if (task) client->requests->setEnd(request->number(), [task] { task->cancel(); });
    return request->number();
  }

  paperloom_client* const client;
  const std::shared_ptr<Request> request;
};

constexpr auto noURL = "not an http or https URL";

// A request with what the caller says of the copy in the cache, or nothing.
template <class... Refreshing>
paperloom_request requestStream(paperloom_client* client, const paperloom_text* sections,
                                size_t count, paperloom_callback callback, void* userData,
                                Refreshing... refresh) {
  ContentRequest request(client, callback, userData);
  std::vector<std::string> uids;
  for (size_t i = 0; sections != nullptr && i < count; ++i) {
    if (auto uid = c::string(sections[i])) uids.push_back(std::move(*uid));
  }
  if (!request.isGood(uids.size() == count, "a section is missing")) return 0;
  client->content.requestStreamForSections(uids, refresh...,
                                           request.success<StreamProtocol>(&Request::answer),
                                           request.failed(&Request::answer));
  return request.started();
}

template <class... Refreshing>
paperloom_request requestArticle(paperloom_client* client, paperloom_text url,
                                 paperloom_callback callback, void* userData,
                                 Refreshing... refresh) {
  ContentRequest request(client, callback, userData);
  const auto address = webURL(url);
  if (!request.isGood(address.has_value(), noURL)) return 0;
  return request.started(client->content.requestArticle(
      *address, refresh..., request.success<ArticleProtocol>(&Request::answerHere),
      request.failed(&Request::answerHere)));
}

}  // namespace
}  // namespace paperloom::c

using namespace paperloom;
using namespace paperloom::c;

paperloom_client* paperloom_client_create(const paperloom_configuration* configuration,
                                          const paperloom_answer** failure) {
  if (failure != nullptr) *failure = nullptr;
  const auto settings = readSettings(configuration);
  if (settings) return new paperloom_client(*settings);
  if (failure != nullptr) *failure = newAnswer({PAPERLOOM_INVALID_ARGUMENT, settings.error()});
  return nullptr;
}

void paperloom_client_release(paperloom_client* client) { delete client; }

const paperloom_answer* paperloom_client_app_metadata(const paperloom_client* client) {
  return client != nullptr ? kept(client->content.appMetadata()) : nullptr;
}

const paperloom_answer* paperloom_client_stream(const paperloom_client* client) {
  return client != nullptr ? kept(client->content.stream()) : nullptr;
}

paperloom_request paperloom_request_app_metadata(paperloom_client* client,
                                                 paperloom_callback callback, void* user_data) {
  ContentRequest request(client, callback, user_data);
  if (!request.isGood(true, nullptr)) return 0;
  client->content.requestAppMetadata(request.success<AppMetadataProtocol>(&Request::answer),
                                     request.failed(&Request::answer));
  return request.started();
}

paperloom_request paperloom_request_stream(paperloom_client* client, const paperloom_text* sections,
                                           size_t count, paperloom_callback callback,
                                           void* user_data) {
  return requestStream(client, sections, count, callback, user_data);
}

paperloom_request paperloom_request_stream_if_older(paperloom_client* client,
                                                    const paperloom_text* sections, size_t count,
                                                    int64_t seconds, paperloom_callback callback,
                                                    void* user_data) {
  return requestStream(client, sections, count, callback, user_data,
                       Refresh::ifOlderThan(std::chrono::seconds(seconds)));
}

paperloom_request paperloom_request_offline_stream(paperloom_client* client,
                                                   paperloom_callback callback, void* user_data) {
  ContentRequest request(client, callback, user_data);
  if (!request.isGood(true, nullptr)) return 0;
  client->content.requestOfflineStream(request.success<StreamProtocol>(&Request::answer),
                                       request.failed(&Request::answer));
  return request.started();
}

paperloom_request paperloom_request_article(paperloom_client* client, paperloom_text url,
                                            paperloom_callback callback, void* user_data) {
  return requestArticle(client, url, callback, user_data);
}

paperloom_request paperloom_request_article_if_older(paperloom_client* client, paperloom_text url,
                                                     int64_t seconds, paperloom_callback callback,
                                                     void* user_data) {
  return requestArticle(client, url, callback, user_data,
                        Refresh::ifOlderThan(std::chrono::seconds(seconds)));
}

paperloom_request paperloom_request_image(paperloom_client* client, paperloom_text url,
                                          paperloom_callback callback, void* user_data) {
  ContentRequest request(client, callback, user_data);
  const auto address = webURL(url);
  if (!request.isGood(address.has_value(), noURL)) return 0;
  return request.started(client->content.requestImageFromURL(
      *address, request.success<Image>(&Request::answerHere),
      [pending = request.request](const Provenance& provenance) {
        Outcome outcome{PAPERLOOM_IMAGE_FAILED, "the picture cannot be loaded"};
        outcome.status = provenance.statusCode.value_or(0);
        pending->answerHere(std::move(outcome));
      }));
}

paperloom_request paperloom_warm(paperloom_client* client, paperloom_text url, bool force_refresh,
                                 paperloom_callback callback, void* user_data) {
  ContentRequest request(client, callback, user_data);
  const auto address = webURL(url);
  if (!request.isGood(address.has_value(), noURL)) return 0;
  return request.started(client->content.cacheWarmerDataCoordinator()->saveToCache(
      *address, force_refresh, [pending = request.request](CacheWarmerRequestResult result) {
        pending->answer(outcomeOf(std::move(result)));
      }));
}

bool paperloom_cancel(paperloom_client* client, paperloom_request request) {
  return client != nullptr && client->requests->cancel(request);
}
