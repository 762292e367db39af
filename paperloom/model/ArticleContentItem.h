#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "paperloom/model/Asset.h"
#include "paperloom/model/CaseName.h"
#include "paperloom/model/RawValue.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

enum class HeadingStyle { one = 1, two, three, four, five, six };

template <>
inline constexpr auto rawValues<HeadingStyle> =
    std::to_array<std::pair<HeadingStyle, std::int64_t>>({{HeadingStyle::one, 1},
                                                          {HeadingStyle::two, 2},
                                                          {HeadingStyle::three, 3},
                                                          {HeadingStyle::four, 4},
                                                          {HeadingStyle::five, 5},
                                                          {HeadingStyle::six, 6}});

// One block of an article's body.
struct PAPERLOOM_EXPORT ArticleContentItem {
  struct Heading {
    static constexpr std::string_view name = "heading";
    HeadingStyle style;
    std::string text;
  };
  struct Body {
    static constexpr std::string_view name = "body";
    std::string text;
  };
  // No document holds a Blockquote or an Embed yet.
  struct Blockquote {
    static constexpr std::string_view name = "blockquote";
    std::string text;
  };
  struct Embed {
    static constexpr std::string_view name = "embed";
    std::string content;
  };
  struct Image {
    static constexpr std::string_view name = "image";
    Asset asset;
  };
  struct Video {
    static constexpr std::string_view name = "video";
    Asset asset;
  };
  struct Youtube {
    static constexpr std::string_view name = "youtube";
    std::string embedID;
  };
  struct Tweet {
    static constexpr std::string_view name = "tweet";
    std::string embedId;
  };
  // An interactive element: its entries are "text", which may be empty, and "embedSrc".
  struct Particle {
    static constexpr std::string_view name = "particle";
    std::map<std::string, std::string> particle;
  };
  // The time stamp of a live blog's post.
  struct Livepost {
    static constexpr std::string_view name = "livepost";
    Date time;
  };
  // A block of a kind this library does not know, or one without the values its kind needs.
  struct Unknown {
    static constexpr std::string_view name = "unknown";
  };

  std::variant<Heading, Body, Blockquote, Embed, Image, Video, Youtube, Tweet, Particle, Livepost,
               Unknown>
      value = Unknown{};

  // The blocks of a body in its order. Elements without a "type" are dropped; a malformed block
  // keeps its place as Unknown.
  static std::vector<ArticleContentItem> parseBody(const JSONObjectList& body);

  // Whether both are the same alternative, whatever they hold.
  bool isType(const ArticleContentItem& other) const {
    return value.index() == other.value.index();
  }
  // The alternative's name: "heading", "body" and so on.
  std::string_view caseName() const { return paperloom::caseName(value); }
};

}  // namespace paperloom
