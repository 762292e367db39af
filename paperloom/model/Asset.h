#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/RawValue.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// An image or a video with its list of sized renditions.
struct PAPERLOOM_EXPORT Asset {
  enum class Type { Image, Video };

  struct Rendition {
    Rendition(URL renditionURL, std::int64_t pixelWidth, std::int64_t pixelHeight)
        : url(std::move(renditionURL)), width(pixelWidth), height(pixelHeight) {}

    URL url;
    std::int64_t width;  // pixels
    std::int64_t height;
  };

  Type type;
  std::optional<std::string> caption;
  std::optional<std::string> copyright;
  std::optional<std::string> altText;
  std::optional<std::string> videoEmbedId;   // in the video player service; a Video has one
  std::optional<std::string> videoDuration;  // as the feed writes it
  // Never empty when parsed. A rendition comes before every other that is at least as wide and as
  // high; renditions of one size keep the document's order.
  std::vector<Rendition> renditions;

  // Malformed renditions are dropped; an asset without a usable one is an error.
  [[nodiscard]] static Result<Asset> parse(const JSONObject& json);

  // Height over width of the first rendition: infinite for a width of 0, 0 without renditions.
  double aspectRatio() const;
};

template <>
inline constexpr auto rawValues<Asset::Type> =
    std::to_array<std::pair<Asset::Type, std::string_view>>({{Asset::Type::Image, "image"},
                                                             {Asset::Type::Video, "video"}});

}  // namespace paperloom
