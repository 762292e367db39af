#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// Who pays for a sponsored article.
class PAPERLOOM_EXPORT SponsorProtocol {
 public:
  virtual ~SponsorProtocol() = default;
  virtual const std::optional<std::string>& name() const = 0;
  virtual const std::optional<std::string>& byline() const = 0;
  // The logo.
  virtual const URL& imageUrl() const = 0;
  // Where a tap on the sponsor leads.
  virtual const std::optional<URL>& url() const = 0;
  virtual const std::string& campaignId() const = 0;
};

class PAPERLOOM_EXPORT Sponsor final : public SponsorProtocol {
 public:
  struct Fields {
    std::optional<std::string> name;
    std::optional<std::string> byline;
    URL imageUrl;
    std::optional<URL> url;
    std::string campaignId;
  };

  explicit Sponsor(Fields&& fields) : fields_(std::move(fields)) {}
  // Image and campaign are required; a bad link of its own only leaves the sponsor without one. On
  // any thread.
  [[nodiscard]] static Result<std::shared_ptr<const SponsorProtocol>> parse(const JSONObject& json);

  const std::optional<std::string>& name() const override { return fields_.name; }
  const std::optional<std::string>& byline() const override { return fields_.byline; }
  const URL& imageUrl() const override { return fields_.imageUrl; }
  const std::optional<URL>& url() const override { return fields_.url; }
  const std::string& campaignId() const override { return fields_.campaignId; }

 private:
  Fields fields_;
};

}  // namespace paperloom
