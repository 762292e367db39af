#pragma once

#include <memory>

#include "paperloom/network/ContentSessionManagerProtocol.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// Answers every GET at once with the bytes it was made with, on the caller's thread and without any
// network.
class PAPERLOOM_EXPORT MockSessionManager final : public ContentSessionManagerProtocol {
 public:
  explicit MockSessionManager(Data data);

  // Not to be called: stops the program.
  std::shared_ptr<URLSessionTask> postJSONData(
      const URL& url, Data body, std::function<void(PostRequestResult result)> completion) override;

  std::shared_ptr<URLCache> contentSessionCache() const override { return contentSessionCache_; }
  const Data& data() const { return data_; }

 protected:
  std::shared_ptr<URLSessionTask> getData(const URL& url, ErasedParser parser,
                                          ErasedCompletion completion, Parsing parsing) override;

 private:
  std::shared_ptr<URLCache> contentSessionCache_;
  Data data_;
};

}  // namespace paperloom
