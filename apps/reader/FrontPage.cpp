#include "apps/reader/FrontPage.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

class FrontPage {
 public:
  FrontPage(Output& output, const StreamProtocol& stream)
      : output_(output),
        style_(output.style()),
        stream_(stream),
        width_(output.terminal().textWidth()) {
    if (stream.premiumColourSet()) {
      premiumColour_ = Colour::parse(stream.premiumColourSet()->primaryColourHex);
    }
  }

  void print() {
    for (const auto& section : stream_.sections()) printSection(*section);
    if (!stream_.sponsoredArticles().empty()) {
      heading("Sponsored", {});
      for (const auto& card : stream_.sponsoredArticles()) printCard(*card, false);
    }
  }

 private:
  // The metadata holds one entry for each section; the first under its uid is its own.
  const SectionMetadataProtocol* metadataOf(const SectionProtocol& section) const {
    for (const auto& entry : stream_.appMetadata()->sectionMetadata()) {
      if (entry->uid() == section.uid()) return entry.get();
    }
    return nullptr;
  }

  void heading(const std::string& name, std::optional<Colour> colour) {
    const std::string badge = style_.badge(name, colour);
    const int taken = displayWidth(name) + (badge == name ? 1 : 3);
    std::string rule;
    for (int i = taken; i < width_; ++i) rule += "─";
    output_.line();
    output_.line(badge + " " + style_.tinted(rule, colour));
    output_.line();
  }

  void printSection(const SectionProtocol& section) {
    const SectionMetadataProtocol* metadata = metadataOf(section);
    std::string name = metadata == nullptr ? section.uid() : metadata->displayName();
    name = fit(printableLine(name), width_ - 4);
    heading(name, metadata == nullptr ? std::nullopt : Colour::parse(metadata->primaryColourHex()));
    const bool carousel = metadata != nullptr && metadata->displayAsCarousel();
    for (const auto& card : section.articleHeaders()) printCard(*card, carousel);
    if (section.articleHeaders().empty()) output_.line(style_.dim("     no stories"));
    if (carousel) output_.line();
  }

  // In a carousel a card is one line.
  void printCard(const ArticleHeaderProtocol& card, bool carousel) {
    const std::string number = fmt::format("{:>4} ", ++number_);
    const std::string indent(number.size(), ' ');
    const std::string marks = marksOf(card);
    const std::string headline = printableLine(card.headline());
    if (carousel) {
      const int room = width_ - static_cast<int>(indent.size()) - displayWidth(marks) - 2;
      output_.line(style_.dim(number) + fit(headline, room) + (marks.empty() ? "" : "  ") + marks);
      printAddress(card, indent);
      return;
    }
    std::string lead = style_.dim(number);
    for (const std::string& line : wrap(headline, width_ - static_cast<int>(indent.size()))) {
      output_.line(lead + (card.cardType() == CardType::small ? line : style_.bold(line)));
      lead = indent;
    }
    const int room = width_ - static_cast<int>(indent.size()) - displayWidth(marks) - 2;
    std::string details = style_.dim(fit(byline(card.authors(), false), room));
    if (!details.empty() && !marks.empty()) details += "  ";
    details += marks;
    if (!details.empty()) output_.line(indent + details);
    printAddress(card, indent);
    output_.line();
  }

  // On a terminal the number is enough; what reads from a pipe wants the address.
  void printAddress(const ArticleHeaderProtocol& card, const std::string& indent) {
    if (!output_.terminal().interactive) {
      output_.line(indent + printableLine(card.URL().absoluteString()));
    }
  }

  std::string marksOf(const ArticleHeaderProtocol& card) const {
    std::vector<std::string> marks;
    if (card.isPremium()) marks.push_back(style_.badge("PREMIUM", premiumColour_));
    if (card.sponsored()) marks.push_back(style_.italic("sponsored"));
    if (card.cardType() == CardType::advert) marks.push_back(style_.italic("advertisement"));
    if (card.articleType() == ArticleType::live) {
      marks.push_back(style_.badge("LIVE", Colour{200, 20, 20}));
    }
    if (card.articleType() == ArticleType::comment) marks.push_back(style_.italic("comment"));
    if (card.articleType() == ArticleType::video) {
      marks.push_back("▶ " + fit(printableLine(card.videoDuration().value_or("video")), 12));
    }
    return fmt::format("{}", fmt::join(marks, " "));
  }

  Output& output_;
  const Style& style_;
  const StreamProtocol& stream_;
  int width_;
  std::optional<Colour> premiumColour_;
  std::size_t number_ = 0;
};

void printFallback(Output& output, std::string_view indent,
                   const std::shared_ptr<const FallbackCardProtocol>& cards) {
  if (!cards) return;
  output.sentence(fmt::format("{}falls back on {} and {}", indent,
                              count(cards->standard().size(), "standard card"),
                              count(cards->premium().size(), "premium card")),
                  static_cast<int>(indent.size()) + 2);
}

}  // namespace

void printFrontPage(Output& output, const StreamProtocol& stream) {
  FrontPage(output, stream).print();
}

ArticleHeaderList cardsOf(const StreamProtocol& stream) {
  ArticleHeaderList cards;
  for (const auto& section : stream.sections()) {
    cards.insert(cards.end(), section->articleHeaders().begin(), section->articleHeaders().end());
  }
  cards.insert(cards.end(), stream.sponsoredArticles().begin(), stream.sponsoredArticles().end());
  return cards;
}

void printConfiguration(Output& output, const AppMetadataProtocol& metadata) {
  const Style& style = output.style();
  output.line(style.bold(count(metadata.sectionMetadata().size(), "section")));
  output.line();
  for (const auto& section : metadata.sectionMetadata()) {
    const std::string name = fit(printableLine(section->displayName()), 30);
    std::string details(caseName(section->customization()));
    if (section->displayAsCarousel()) details += ", carousel";
    if (section->showSponsored()) details += ", sponsored content";
    output.row("  " + style.badge(name, Colour::parse(section->primaryColourHex())), 36,
               style.dim(fmt::format("{} {}", fit(printableLine(section->uid()), 16), details)));
    printFallback(output, "      ", section->fallbackCards());
  }
  const GlobalMetadataProtocol& global = *metadata.globalMetadata();
  output.line();
  output.line("  " + style.badge("Premium", Colour::parse(global.premiumPrimaryColour())) + "  " +
              style.dim(printableLine(fmt::format("{} {} {}", global.premiumPrimaryColour(),
                                                  global.premiumSecondaryColour(),
                                                  global.premiumAccessibleColour()))));
  printFallback(output, "  ", global.fallbackCards());
}

std::string byline(const std::vector<Author>& authors, bool withTitles) {
  std::string text;
  for (std::size_t i = 0; i < authors.size(); ++i) {
    text += i == 0 ? "By " : i + 1 < authors.size() ? ", " : " and ";
    text += printableLine(authors[i].name);
    if (withTitles && authors[i].jobTitle)
      text += fmt::format(" ({})", printableLine(*authors[i].jobTitle));
  }
  return text;
}

}  // namespace paperloom::reader
