#pragma once

#include <any>
#include <functional>
#include <memory>
#include <utility>

#include "paperloom/model/ParserProtocol.h"
#include "paperloom/network/Provenance.h"
#include "paperloom/network/RequestResult.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom {

// The HTTP layer of the content side, as its coordinators see it. A completion may be empty: its
// answer is dropped then; a null parser accepts nothing. What an implementation returns is not
// null. Completions run on the session's callback queue; functions may be called on any thread.
class PAPERLOOM_EXPORT ContentSessionManagerProtocol {
 public:
  virtual ~ContentSessionManagerProtocol() = default;

  // Where an answer is parsed: on the session's callback queue, or beside it, as many at a time as
  // the machine has cores. Pictures are decoded beside it, so that they hold up no other answer.
  enum class Parsing { onCallbackQueue, beside };

  // GETs `url` and hands the parsed answer to `completion(result, provenance)`. Returns the task,
  // already started. Waits for no disk. Requests for one URL that are under way at the same time
  // share their answer (URLRequest::sharesAnswer), and its record where they have the same parser:
  // the very object, not one like it.
  template <class T>
  std::shared_ptr<URLSessionTask> getDocument(
      const URL& url, std::shared_ptr<const ParserProtocol<T>> parser,
      std::function<void(Result<T> result, const Provenance& provenance)> completion,
      Parsing parsing = Parsing::onCallbackQueue) {
    auto [erased, answer] = erase(std::move(parser), std::move(completion));
    return getData(url, std::move(erased), std::move(answer), parsing);
  }

  // The same for a GET with a cache policy of its own, or that says how old a copy may be. An
  // implementation that knows neither asks for the URL; where only a copy would do it fails at
  // once.
  template <class T>
  std::shared_ptr<URLSessionTask> getDocument(
      URLRequest request, std::shared_ptr<const ParserProtocol<T>> parser,
      std::function<void(Result<T> result, const Provenance& provenance)> completion,
      Parsing parsing = Parsing::onCallbackQueue) {
    auto [erased, answer] = erase(std::move(parser), std::move(completion));
    return getDataFor(std::move(request), std::move(erased), std::move(answer), parsing);
  }

  // The same with `completion(result, fromCache)`; `fromCache` is true when the server gave no
  // usable answer and the copy stored before the request was taken instead.
  template <class T>
  std::shared_ptr<URLSessionTask> getJSONData(
      const URL& url, std::shared_ptr<const ParserProtocol<T>> parser,
      std::function<void(Result<T> result, bool fromCache)> completion) {
    return getDocument<T>(
        url, std::move(parser),
        [completion = std::move(completion)](Result<T> result, const Provenance& provenance) {
          if (completion) completion(std::move(result), provenance.fromCache);
        });
  }

  // POSTs `body`, which is JSON already; a redirect to another origin is not followed and counts as
  // the answer. Returns the task, already started.
  virtual std::shared_ptr<URLSessionTask> postJSONData(
      const URL& url, Data body, std::function<void(PostRequestResult result)> completion) = 0;

  // The cache behind the manager.
  virtual std::shared_ptr<URLCache> contentSessionCache() const = 0;

 protected:
  // Parses with `parser`, which may be null.
  struct ErasedParser {
    tl::expected<std::any, ParserError> operator()(const Data& data) const { return parse(data); }

    std::function<tl::expected<std::any, ParserError>(const Data&)> parse;
    std::shared_ptr<const void> parser;
  };
  using ErasedCompletion =
      std::function<void(Result<std::any> result, const Provenance& provenance)>;

  // As getDocument() and its completion, with the item in a std::any: what an implementation
  // provides.
  virtual std::shared_ptr<URLSessionTask> getData(const URL& url, ErasedParser parser,
                                                  ErasedCompletion completion, Parsing parsing) = 0;
  // The same for a request: what an implementation provides that has a cache.
  virtual std::shared_ptr<URLSessionTask> getDataFor(URLRequest request, ErasedParser parser,
                                                     ErasedCompletion completion, Parsing parsing);

 private:
  // The parsed item travels through the type-erased layer below in a std::any.
  template <class T>
  static std::pair<ErasedParser, ErasedCompletion> erase(
      std::shared_ptr<const ParserProtocol<T>> parser,
      std::function<void(Result<T> result, const Provenance& provenance)> completion) {
    return {ErasedParser{[parser](const Data& data) -> tl::expected<std::any, ParserError> {
                           return parseWith(parser, data).map([](T&& item) {
                             return std::any(std::move(item));
                           });
                         },
                         parser},
            [completion = std::move(completion)](Result<std::any> result,
                                                 const Provenance& provenance) {
              if (!completion) return;
              if (!result) {
                completion(tl::unexpected(std::move(result.error())), provenance);
              } else {
                completion(std::any_cast<T>(std::move(*result)), provenance);
              }
            }};
  }
};

}  // namespace paperloom
