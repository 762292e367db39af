#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "paperloom/model/RawValue.h"

namespace paperloom {

enum class ArticleType { standard, video, live, comment, unknown };

template <>
inline constexpr auto rawValues<ArticleType> =
    std::to_array<std::pair<ArticleType, std::string_view>>({
        {ArticleType::standard, "standardArticle"},
        {ArticleType::video, "videoArticle"},
        {ArticleType::live, "liveArticle"},
        {ArticleType::comment, "commentArticle"},
        {ArticleType::unknown, "unknown"},
    });

// What the reader is asked to do before reading on.
enum class CallToAction { none, loginOrPurchase, purchase };

template <>
inline constexpr auto rawValues<CallToAction> =
    std::to_array<std::pair<CallToAction, std::string_view>>({
        {CallToAction::none, "none"},
        {CallToAction::loginOrPurchase, "loginOrPurchase"},
        {CallToAction::purchase, "purchase"},
    });

}  // namespace paperloom
