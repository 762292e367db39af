#pragma once

#include <memory>
#include <string>
#include <utility>

#include "paperloom/model/FallbackCard.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// The colours of premium content and the fallback cards that hold for every section.
class PAPERLOOM_EXPORT GlobalMetadataProtocol {
 public:
  virtual ~GlobalMetadataProtocol() = default;
  virtual const std::string& premiumPrimaryColour() const = 0;
  virtual const std::string& premiumSecondaryColour() const = 0;
  virtual const std::string& premiumAccessibleColour() const = 0;
  virtual const std::string& premiumLabelColourOnNormalBackground() const = 0;
  virtual const std::string& premiumLabelColourOnSecondaryBackground() const = 0;
  // May be null.
  virtual const std::shared_ptr<const FallbackCardProtocol>& fallbackCards() const = 0;
};

class PAPERLOOM_EXPORT GlobalMetadata final : public GlobalMetadataProtocol {
 public:
  // A modified copy is made by changing the fields of the first.
  struct Fields {
    std::string premiumPrimaryColour;
    std::string premiumSecondaryColour;
    std::string premiumAccessibleColour;
    std::string premiumLabelColourOnNormalBackground;
    std::string premiumLabelColourOnSecondaryBackground;
    std::shared_ptr<const FallbackCardProtocol> fallbackCards;
  };

  explicit GlobalMetadata(Fields&& fields) : fields_(std::move(fields)) {}
  // The five colours are required. On any thread.
  [[nodiscard]] static Result<std::shared_ptr<const GlobalMetadataProtocol>> parse(
      const JSONObject& json);

  // For the owner, on one thread, before the record is handed on.
  Fields& fields() { return fields_; }

  const std::string& premiumPrimaryColour() const override { return fields_.premiumPrimaryColour; }
  const std::string& premiumSecondaryColour() const override {
    return fields_.premiumSecondaryColour;
  }
  const std::string& premiumAccessibleColour() const override {
    return fields_.premiumAccessibleColour;
  }
  const std::string& premiumLabelColourOnNormalBackground() const override {
    return fields_.premiumLabelColourOnNormalBackground;
  }
  const std::string& premiumLabelColourOnSecondaryBackground() const override {
    return fields_.premiumLabelColourOnSecondaryBackground;
  }
  const std::shared_ptr<const FallbackCardProtocol>& fallbackCards() const override {
    return fields_.fallbackCards;
  }

 private:
  Fields fields_;
};

}  // namespace paperloom
