#include "apps/reader/ArticleView.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/reader/FrontPage.h"
#include "apps/reader/Picture.h"
#include "apps/reader/Text.h"
#include "paperloom/model/Renditions.h"

namespace paperloom::reader {
namespace {

// Of a picture in a terminal.
constexpr double enoughPixels = 600;

using ContentItem = ArticleContentItem;

class ArticleView {
 public:
  ArticleView(Host& host, const ArticleProtocol& article, bool pictures)
      : host_(host),
        output_(host.output()),
        style_(host.style()),
        article_(article),
        pictures_(pictures && !assetsOf(article).empty() && host.pictures().areShown()),
        width_(output_.terminal().textWidth() - 4) {}

  void print(const Access& access) {
    printTop();
    if (!isWalled(article_, access)) {
      for (const ContentItem& item : article_.contents()) std::visit(*this, item.value);
      return;
    }
    // The first paragraph is there for everyone.
    auto item = article_.contents().begin();
    for (bool body = false; item != article_.contents().end() && !body; ++item) {
      body = std::holds_alternative<ContentItem::Body>(item->value);
      std::visit(*this, item->value);
    }
    if (printWall()) {
      for (; item != article_.contents().end(); ++item) std::visit(*this, item->value);
    }
  }

  void operator()(const ContentItem::Heading& block) {
    const bool large = block.style <= HeadingStyle::two;
    for (const std::string& line : wrap(printableLine(block.text), width_)) {
      put(large ? style_.bold(line) : style_.underlined(line));
    }
    output_.line();
  }

  void operator()(const ContentItem::Body& block) { paragraph(block.text, ""); }

  void operator()(const ContentItem::Blockquote& block) { paragraph(block.text, "┃ "); }

  void operator()(const ContentItem::Embed& block) { note("Embedded: " + block.content); }

  void operator()(const ContentItem::Image& block) {
    picture(block.asset);
    caption(block.asset);
  }

  void operator()(const ContentItem::Video& block) {
    picture(block.asset);
    put(style_.bold("▶ Video") +
        (block.asset.videoDuration ? "  " + printableLine(*block.asset.videoDuration) : ""));
    caption(block.asset);
  }

  void operator()(const ContentItem::Youtube& block) { note("▶ YouTube video " + block.embedID); }

  void operator()(const ContentItem::Tweet& block) { note("Post " + block.embedId); }

  void operator()(const ContentItem::Particle& block) {
    const auto entry = [&](const char* key) {
      const auto found = block.particle.find(key);
      return found == block.particle.end() ? std::string() : found->second;
    };
    const std::string text = entry("text");
    if (!text.empty()) paragraph(text, "");
    note("Interactive: " + entry("embedSrc"));
  }

  void operator()(const ContentItem::Livepost& block) {
    put(style_.badge(timeOfDay(block.time), Colour{200, 20, 20}) + " " +
        style_.dim(day(block.time)));
    output_.line();
  }

  // Nothing a person could use.
  void operator()(const ContentItem::Unknown&) {}

 private:
  void put(std::string_view line) { output_.line(line.empty() ? "" : fmt::format("  {}", line)); }

  void paragraph(const std::string& text, std::string_view bar) {
    for (const std::string& line : wrap(printable(text), width_ - displayWidth(bar))) {
      put(fmt::format("{}{}", style_.dim(bar), bar.empty() ? line : style_.italic(line)));
    }
    output_.line();
  }

  void note(const std::string& text) {
    for (const std::string& line : wrap(printableLine(text), width_)) put(style_.dim(line));
    output_.line();
  }

  void printTop() {
    output_.line();
    for (const std::string& line : wrap(printableLine(article_.headline()), width_)) {
      put(style_.bold(line));
    }
    std::vector<std::string> facts;
    if (!article_.authors().empty()) facts.push_back(byline(article_.authors(), true));
    if (article_.publishedTime()) facts.push_back(dateAndTime(*article_.publishedTime()));
    if (article_.type() == ArticleType::live) facts.emplace_back("live");
    if (article_.type() == ArticleType::comment) facts.emplace_back("comment");
    for (const auto& line : wrap(fmt::format("{}", fmt::join(facts, " · ")), width_)) {
      put(style_.dim(line));
    }
    if (article_.isPremium()) put(style_.badge("PREMIUM", Colour{184, 134, 11}));
    if (article_.rating()) put(stars(*article_.rating()));
    if (article_.sponsor()) printSponsor(*article_.sponsor());
    output_.line();
    if (!std::holds_alternative<ContentItem::Unknown>(article_.leadContent().value)) {
      std::visit(*this, article_.leadContent().value);
    }
  }

  static std::string stars(std::int64_t rating) {
    if (rating < 0 || rating > 5) return fmt::format("Rating: {}", rating);
    std::string text;
    for (std::int64_t i = 0; i < 5; ++i) text += i < rating ? "★" : "☆";
    return text;
  }

  void printSponsor(const SponsorProtocol& sponsor) {
    std::string text = "Sponsored";
    if (sponsor.name()) text += " by " + *sponsor.name();
    if (sponsor.byline()) text += ": " + *sponsor.byline();
    if (sponsor.url()) text += " (" + sponsor.url()->absoluteString() + ")";
    for (const std::string& line : wrap(printableLine(text), width_)) put(style_.italic(line));
  }

  void picture(const Asset& asset) {
    if (const auto url = pictures_ ? host_.resolveIfPossible(renditionFor(asset, enoughPixels)->url)
                                   : std::nullopt) {
      if (const auto image = host_.image(*url).record) {
        const int rows = std::max(output_.terminal().rows - 8, 6);
        const std::string drawn = host_.pictures().draw(*image, width_, rows, 2);
        output_.write(drawn);
        if (!drawn.empty()) return;
      }
    }
    std::string text = "Picture";
    if (asset.altText && !asset.altText->empty()) text += ": " + *asset.altText;
    for (const std::string& line : wrap(printableLine("[" + text + "]"), width_)) {
      put(style_.dim(line));
    }
  }

  void caption(const Asset& asset) {
    std::string text = asset.caption.value_or("");
    if (asset.copyright) text += (text.empty() ? "© " : "  © ") + *asset.copyright;
    for (const std::string& line : wrap(printableLine(text), width_)) put(style_.italic(line));
    output_.line();
  }

  // Whether the wall may be closed and the article read on.
  bool printWall() {
    const WallType wall = article_.wallType();
    if (const auto* registration = std::get_if<WallType::RegWall>(&wall.value)) {
      const RegistrationWallProtocol& model = *registration->wall;
      const bool soft = model.dismissType() == WallDismissType::soft;
      box({model.headline(), "", model.registerButtonText() + ": paperloom register",
           model.loginButtonText() + ": paperloom login"},
          Colour::parse(model.wallDecorationColours().primaryColourHex));
      return soft;
    }
    std::vector<std::string> lines = {"The rest of this story is for premium readers."};
    if (article_.callToAction() == CallToAction::loginOrPurchase) {
      lines.insert(lines.end(), {"", "With a premium account: paperloom login"});
    }
    box(lines, Colour{184, 134, 11});
    return false;
  }

  void box(const std::vector<std::string>& texts, std::optional<Colour> colour) {
    const int inner = width_ - 4;
    std::string rule;
    for (int i = 0; i < inner + 2; ++i) rule += "─";
    put(style_.tinted("┌" + rule + "┐", colour));
    const std::string side = style_.tinted("│", colour);
    bool first = true;
    for (const std::string& text : texts) {
      auto lines = wrap(printableLine(text), inner);
      if (lines.empty()) lines.emplace_back();
      for (const std::string& line : lines) {
        const std::string gap(static_cast<std::size_t>(std::max(inner - displayWidth(line), 0)),
                              ' ');
        put(fmt::format("{} {}{} {}", side, first ? style_.bold(line) : line, gap, side));
      }
      first = false;
    }
    put(style_.tinted("└" + rule + "┘", colour));
    output_.line();
  }

  Host& host_;
  Output& output_;
  const Style& style_;
  const ArticleProtocol& article_;
  bool pictures_;
  int width_;
};

}  // namespace

bool isWalled(const ArticleProtocol& article, const Access& access) {
  const WallType wall = article.wallType();
  if (std::holds_alternative<WallType::PayWall>(wall.value)) return !access.premium;
  if (std::holds_alternative<WallType::RegWall>(wall.value)) return !access.loggedIn;
  return false;
}

void printArticle(Host& host, const ArticleProtocol& article, const Access& access, bool pictures) {
  ArticleView(host, article, pictures).print(access);
}

}  // namespace paperloom::reader
