#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include "paperloom/model/ParserProtocol.h"
#include "paperloom/network/RequestResult.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// The HTTP layer of the identity side, as its coordinators see it. Completions run on the HTTP
// session's callback queue. When the session reports an error and an answer together, a completion
// is called twice: with NetworkError first, then with the outcome that the status gives. A
// completion may be empty: its answer is dropped then; a null parser accepts nothing.
class PAPERLOOM_EXPORT AuthSessionManagerProtocol {
 public:
  virtual ~AuthSessionManagerProtocol() = default;

  // POSTs `body`, which is JSON already; 200, 201 and 202 count as success and their body is
  // parsed.
  template <class T>
  void postJSONData(Data body, const URL& url, std::shared_ptr<const ParserProtocol<T>> parser,
                    std::function<void(RequestResult<T>)> completion) {
    postData(
        std::move(body), url,
        [parser = std::move(parser)](const Data& data) -> tl::expected<std::any, ParserError> {
          return parseWith(parser, data).map([](T&& item) { return std::any(std::move(item)); });
        },
        [completion = std::move(completion)](RequestResult<std::any> result) {
          if (!completion) return;
          std::visit(
              [&]<class Outcome>(Outcome& outcome) {
                if constexpr (std::is_same_v<Outcome, request::Success<std::any>>) {
                  completion(request::Success<T>{std::any_cast<T>(std::move(outcome.item))});
                } else {
                  completion(std::move(outcome));
                }
              },
              result);
        });
  }

  // GETs `url` with every entry of `headers` set; only 200 counts as success and the body is not
  // read.
  virtual void getRequest(const URL& url, const std::map<std::string, std::string>& headers,
                          std::function<void(RequestResult<Nothing>)> completion) = 0;

 protected:
  using ErasedParser = std::function<tl::expected<std::any, ParserError>(const Data&)>;
  using ErasedCompletion = std::function<void(RequestResult<std::any>)>;

  // As postJSONData() and its completion, with the item in a std::any: what an implementation
  // provides.
  virtual void postData(Data body, const URL& url, ErasedParser parser,
                        ErasedCompletion completion) = 0;
};

}  // namespace paperloom
