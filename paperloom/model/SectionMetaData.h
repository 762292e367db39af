#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "paperloom/model/FallbackCard.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// Whether the reader may hide a section, and whether it starts shown.
enum class SectionCustomization { alwaysEnabled, enabledByDefault, disabledByDefault };

// Any text but "alwaysEnabled" and "enabledByDefault" means disabledByDefault.
PAPERLOOM_EXPORT SectionCustomization sectionCustomization(std::string_view text);
PAPERLOOM_EXPORT std::string_view caseName(SectionCustomization customization);

// How one section is displayed.
class PAPERLOOM_EXPORT SectionMetadataProtocol {
 public:
  virtual ~SectionMetadataProtocol() = default;
  virtual const std::string& uid() const = 0;
  virtual const std::string& displayName() const = 0;
  virtual const std::string& primaryColourHex() const = 0;
  virtual const std::string& secondaryColourHex() const = 0;
  virtual SectionCustomization customization() const = 0;
  virtual const std::string& accessibleColourHex() const = 0;
  virtual bool displayAsCarousel() const = 0;
  // Null unless the section is displayed as a carousel.
  virtual const std::shared_ptr<const FallbackCardProtocol>& fallbackCards() const = 0;
  virtual bool showSponsored() const = 0;
};

class PAPERLOOM_EXPORT SectionMetaData final : public SectionMetadataProtocol {
 public:
  struct Fields {
    std::string uid;
    std::string displayName;
    std::string primaryColourHex;
    std::string secondaryColourHex;
    SectionCustomization customization = SectionCustomization::disabledByDefault;
    std::string accessibleColourHex;
    bool displayAsCarousel = false;
    std::shared_ptr<const FallbackCardProtocol> fallbackCards;
    bool showSponsored = false;
  };

  explicit SectionMetaData(Fields&& fields) : fields_(std::move(fields)) {}
  // Every text of Fields and showSponsored are required; only a carousel has fallback cards. On any
  // thread.
  [[nodiscard]] static Result<std::shared_ptr<const SectionMetadataProtocol>> parse(
      const JSONObject& json);

  const std::string& uid() const override { return fields_.uid; }
  const std::string& displayName() const override { return fields_.displayName; }
  const std::string& primaryColourHex() const override { return fields_.primaryColourHex; }
  const std::string& secondaryColourHex() const override { return fields_.secondaryColourHex; }
  SectionCustomization customization() const override { return fields_.customization; }
  const std::string& accessibleColourHex() const override { return fields_.accessibleColourHex; }
  bool displayAsCarousel() const override { return fields_.displayAsCarousel; }
  const std::shared_ptr<const FallbackCardProtocol>& fallbackCards() const override {
    return fields_.fallbackCards;
  }
  bool showSponsored() const override { return fields_.showSponsored; }

 private:
  Fields fields_;
};

}  // namespace paperloom
