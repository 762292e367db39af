#include "paperloom/model/ParseFindings.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

#include "paperloom/model/internal/JSONOutline.h"
#include "paperloom/model/internal/Reading.h"
#include "paperloom/platform/DateFormatter.h"
#include "paperloom/platform/NearestName.h"

namespace paperloom {
namespace {

using Kind = JSONListener::Kind;
using Node = JSONOutline::Node;
using Severity = ParseFinding::Severity;

constexpr std::size_t mostFindings = 1000;

// What a reader sees of a value that counts as absent.
constexpr std::pair<std::string_view, std::string_view> defaults[] = {
    {"adZone", "advertisements are not chosen for the article"},
    {"altText", "the picture is not described to those who cannot see it"},
    {"authors", "no author is named"},
    {"body", "the article has no text"},
    {"businessSegment", "the article belongs to no business segment"},
    {"byline", "the sponsor's line is not shown"},
    {"callToAction", "nothing is asked of the reader before the article"},
    {"caption", "the picture has no caption"},
    {"cardAsset", "the card has no picture"},
    {"cardType", "the card is drawn as a small one"},
    {"copyright", "the picture is shown without its copyright"},
    {"customization", "the section is off until a reader switches it on"},
    {"datePublished", "the article has no date"},
    {"displayAsCarousel", "the section is not shown as a carousel"},
    {"jobTitle", "the author's job is not named"},
    {"leadAsset", "the article has no lead picture"},
    {"premium", "it is not marked as premium"},
    {"registerWall", "no registration is asked for"},
    {"sponsored", "it is not marked as sponsored"},
    {"starRating", "no rating is shown"},
    {"type", "its kind is unknown"},
    {"url", "there is no link"},
    {"videoDuration", "no duration is shown"},
    {"websiteUrl", "there is no link to the website"},
};
constexpr std::string_view countsAsAbsent = "it counts as absent";
constexpr std::string_view refusesDocument =
    "the whole document is refused, and readers get an earlier copy or none";

// Texts that are addresses, times, or names of one thing.
constexpr std::string_view addresses[] = {"url", "image", "websiteUrl", "embedSrc"};
constexpr std::string_view times[] = {"datePublished", "time"};
constexpr std::string_view identifiers[] = {"qrvId", "uid"};

template <class List>
bool isOneOf(std::string_view key, const List& list) {
  return std::find(std::begin(list), std::end(list), key) != std::end(list);
}

std::string_view words(Kind kind) {
  constexpr std::string_view all[] = {"a text",    "true or false",     "a whole number",
                                      "an object", "a list of objects", "a list of texts",
                                      "a value"};
  return all[static_cast<std::size_t>(kind)];
}

std::string_view words(char kind) {
  switch (kind) {
    case '{':
      return "an object";
    case '[':
      return "a list";
    case '"':
      return "a text";
    case 't':
      return "true";
    case 'f':
      return "false";
    case 'n':
      return "null";
    default:
      return "a number";
  }
}

// At most so much of it as fits a sentence.
std::string quoted(std::string_view text) {
  constexpr std::size_t most = 80;
  std::size_t length = std::min(text.size(), most);
  while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  return '"' + std::string(text.substr(0, length)) + (length < text.size() ? "...\"" : "\"");
}

bool isBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// In clear, where it can be read on the way; within one machine there is none.
bool isInsecure(std::string_view text) {
  const auto url = URL::parse(text);
  constexpr std::string_view own[] = {"localhost", "127.0.0.1", "::1", "[::1]"};
  return url && url->scheme() == "http" && !isOneOf(url->host(), own);
}

}  // namespace

const std::vector<ParseRule>& parseRules() {
  static const auto* const all = new std::vector<ParseRule>{
      {rule::invalidJSON, "A document is JSON in UTF-8."},
      {rule::missingKey, "What a record needs is there."},
      {rule::wrongType, "A value is of the type that its key asks for."},
      {rule::unknownValue, "A value is one of those that there are."},
      {rule::invalidURL, "An address is a valid URL."},
      {rule::invalidDate, "A time is written as 2026-03-01T14:05:09Z."},
      {rule::noRenditions, "A picture has a size that can be shown."},
      {rule::noMetadata, "A section has an entry in sectionMetaData."},
      {rule::unreadKey, "Every key is one that is read."},
      {rule::duplicateKey, "An object has a key once: only the first counts."},
      {rule::emptyText, "A text says something."},
      {rule::insecureLink, "Addresses are https."},
      {rule::futureDate, "What is published has been published."},
      {rule::outOfProportion, "The sizes of one picture have one proportion."},
      {rule::duplicateIdentifier, "An identifier stands for one thing."},
      {rule::moreFindings, "A document has fewer than a thousand findings."},
  };
  return *all;
}

// Tells lines and columns; quickly where what is asked for is near what was asked for before.
class LineCounter {
 public:
  explicit LineCounter(std::string_view text)
      : text_(text), start_(text.starts_with("\xEF\xBB\xBF") ? 3 : 0), at_(start_) {}

  ParsePlace place(std::size_t position, std::string path) {
    for (; at_ < position; ++at_) {
      if (text_[at_] == '\n') {
        ++line_;
        column_ = 1;
      } else {
        column_ += beginsCharacter(at_);
      }
    }
    while (at_ > position) {
      if (text_[--at_] == '\n') {
        --line_;
        column_ = 1;
        for (std::size_t i = at_; i > start_ && text_[i - 1] != '\n'; --i) {
          column_ += beginsCharacter(i - 1);
        }
      } else {
        column_ -= beginsCharacter(at_);
      }
    }
    return {std::move(path), line_, column_};
  }

 private:
  std::size_t beginsCharacter(std::size_t at) const {
    return (static_cast<unsigned char>(text_[at]) & 0xC0U) != 0x80U ? 1 : 0;
  }

  std::string_view text_;
  std::size_t start_;
  std::size_t at_;
  std::size_t line_ = 1;
  std::size_t column_ = 1;
};

// What is known of the document that is being parsed.
class ParseFindings::Gathering {
 public:
  Gathering(const JSONDocument* document, std::string_view text)
      : text_(text), outline_(text), isJSON_(document != nullptr) {
    if (isJSON_) places_ = document->objectPlaces();
    told_.resize(places_.size());
  }

  void asked(std::size_t place, std::string_view key) {
    auto& asked = told_[ordinal(place)].asked;
    const std::uint16_t number = numberOf(key);
    if (std::find(asked.begin(), asked.end(), number) == asked.end()) asked.push_back(number);
  }

  void mistyped(std::size_t place, std::string_view key, Kind kind) {
    const std::size_t object = ordinal(place);
    addWrongType(object, outline_.member(node(object), key), kind);
  }

  void refused(std::size_t place, std::string_view key, std::string_view broken,
               std::string_view accepted) {
    const std::size_t object = ordinal(place);
    const Node member = outline_.member(node(object), key);
    if (told_[object].isLeftOut || member == JSONOutline::none) return;
    const std::string name = quoted(key);
    std::string value;
    if (const auto text = outline_.text(member)) value = quoted(*text);
    std::string what;
    if (broken == rule::unknownValue) {
      what = name + (value.empty() ? "" : " is " + value + ", which") + " is none of " +
             std::string(accepted);
    } else if (broken == rule::invalidURL) {
      what = name + " is " + value + ", which is no valid URL";
    } else if (broken == rule::invalidDate) {
      what = name + " is " + value + ", which is not written as 2026-03-01T14:05:09Z";
    } else if (broken == rule::noRenditions) {
      what = name + " holds no size that can be shown";
    } else if (broken == rule::noMetadata) {
      what = "no entry of \"sectionMetaData\" has the \"uid\" " + value;
    } else {
      what = name + " breaks the rule " + std::string(broken);
    }
    add({object, member, Severity::warning, broken, std::move(what), ""});
  }

  void failed(std::size_t place) {
    const std::size_t object = ordinal(place);
    Told& told = told_[object];
    if (std::exchange(told.isFailed, true)) return;
    for (std::size_t i = settled_; i < faults_.size(); ++i) {
      if (faults_[i].object == object) faults_[i].severity = Severity::error;
    }
    std::vector<std::string> unread;
    eachMember(node(object), [&](Node, const std::string& key) {
      if (!wasAsked(told, key)) unread.push_back(key);
    });
    for (const std::uint16_t number : told.asked) {
      const std::string& key = keys_[number];
      if (outline_.member(node(object), key) != JSONOutline::none) continue;
      const std::string near = nearestName(key, unread);
      add({object, node(object), Severity::error, rule::missingKey,
           quoted(key) + " is missing" + (near.empty() ? "" : " (there is " + quoted(near) + ")"),
           ""});
      if (near.empty()) continue;
      addUnread(object, outline_.member(node(object), near), near, key);
    }
  }

  void leftOut(std::size_t place, std::string_view effect) {
    const std::size_t object = ordinal(place);
    told_[object].isLeftOut = true;
    for (; settled_ < faults_.size(); ++settled_) {
      Fault& fault = faults_[settled_];
      const bool isOfIt = fault.severity == Severity::error || fault.object == object;
      if (isOfIt && fault.severity != Severity::note) fault.effect = effect;
    }
  }

  std::vector<ParsedLink> links() {
    std::sort(links_.begin(), links_.end(),
              [](const Link& a, const Link& b) { return a.address < b.address; });
    LineCounter lines(text_);
    std::vector<ParsedLink> list;
    for (const Link& each : links_) {
      ParsedLink& link = list.emplace_back();
      link.kind = each.kind;
      link.url = outline_.text(each.address).value_or("");
      const auto place = [&](Node node) {
        return lines.place(outline_.position(node), outline_.path(node));
      };
      link.place = place(each.address);
      if (each.width == JSONOutline::none) continue;
      link.width = pixels(each.width);
      link.height = pixels(each.height);
      link.widthPlace = place(each.width);
      link.heightPlace = place(each.height);
    }
    return list;
  }

  std::vector<ParseFinding> ended(bool parsed) {
    if (!isJSON_) {
      add({0, JSONOutline::top, Severity::error, rule::invalidJSON,
           "from here on this is no JSON in UTF-8", std::string(refusesDocument)});
      return findings(outline_.fault());
    }
    if (!parsed) refuseDocument();
    for (std::size_t object = 0; object < told_.size(); ++object) {
      const Told& told = told_[object];
      if (!told.asked.empty() && !told.isFailed && !told.isLeftOut) note(object);
    }
    return findings(std::nullopt);
  }

 private:
  struct Fault {
    std::size_t object;
    Node node;
    Severity severity;
    std::string_view rule;
    std::string what;
    std::string effect;
  };

  // What the parser has made of one object.
  struct Told {
    std::vector<std::uint16_t> asked;  // numbers of keys
    bool isFailed = false;
    bool isLeftOut = false;
  };

  std::size_t ordinal(std::size_t place) const {
    const auto found = std::lower_bound(places_.begin(), places_.end(), place);
    return static_cast<std::size_t>(found - places_.begin());
  }

  Node node(std::size_t object) const { return outline_.objects()[object]; }

  // Parsers have few keys, and ask many objects for them.
  std::uint16_t numberOf(std::string_view key) {
    const auto found = std::find(keys_.begin(), keys_.end(), key);
    const auto number = static_cast<std::uint16_t>(found - keys_.begin());
    if (found == keys_.end()) keys_.emplace_back(key);
    return number;
  }

  bool wasAsked(const Told& told, std::string_view key) const {
    return std::any_of(told.asked.begin(), told.asked.end(),
                       [&](std::uint16_t number) { return keys_[number] == key; });
  }

  template <class Visit>
  void eachMember(Node object, Visit visit) const {
    for (Node member = outline_.firstChild(object); member != JSONOutline::none;
         member = outline_.next(member)) {
      visit(member, outline_.key(member));
    }
  }

  void add(Fault fault) {
    if (faults_.size() < mostFindings) {
      faults_.push_back(std::move(fault));
    } else {
      ++left_;
    }
  }

  void addNote(std::size_t object, Node at, std::string_view name, std::string what) {
    add({object, at, Severity::note, name, std::move(what), ""});
  }

  void addUnread(std::size_t object, Node member, std::string_view key, std::string_view near) {
    addNote(object, member, rule::unreadKey,
            quoted(key) + " is never read" +
                (near.empty() ? "" : "; the nearest key that is read is " + quoted(near)));
  }

  // In a list one element is at fault.
  void addWrongType(std::size_t object, Node member, Kind kind) {
    const bool isList = kind == Kind::objects || kind == Kind::texts;
    const std::string effect = effectOf(outline_.key(member));
    if (!isList || outline_.kind(member) != '[') {
      const bool isBroken = kind == Kind::integer && outline_.number(member);
      return add({object, member, Severity::warning, rule::wrongType,
                  quoted(outline_.key(member)) + " is " +
                      (isBroken ? "no whole number"
                                : std::string(words(outline_.kind(member))) + ", not " +
                                      std::string(words(kind))),
                  ""});
    }
    const char wanted = kind == Kind::objects ? '{' : '"';
    Node element = outline_.firstChild(member);
    while (element != JSONOutline::none && outline_.kind(element) == wanted) {
      element = outline_.next(element);
    }
    if (element == JSONOutline::none) return;
    add({object, element, Severity::warning, rule::wrongType,
         "an element of " + quoted(outline_.key(member)) + " is " +
             std::string(words(outline_.kind(element))) + ", so that it is not " +
             std::string(words(kind)),
         ""});
  }

  static std::string effectOf(std::string_view key) {
    for (const auto& [name, effect] : defaults) {
      if (name == key) return std::string(effect);
    }
    return std::string(countsAsAbsent);
  }

  void refuseDocument() {
    bool isExplained = false;
    for (std::size_t i = settled_; i < faults_.size(); ++i) {
      if (faults_[i].severity != Severity::error) continue;
      faults_[i].effect = refusesDocument;
      isExplained = true;
    }
    if (isExplained || left_ > 0) return;
    add({0, JSONOutline::top, Severity::error, rule::wrongType,
         "the document is " + std::string(words(outline_.kind(JSONOutline::top))) +
             ", not an object",
         std::string(refusesDocument)});
  }

  void note(std::size_t object) {
    const Told& told = told_[object];
    std::vector<std::string> known;
    for (const std::uint16_t number : told.asked) known.push_back(keys_[number]);
    std::vector<std::string> seen;
    eachMember(node(object), [&](Node member, const std::string& key) {
      if (!isOneOf(key, known)) {
        const bool hasRoom = faults_.size() < mostFindings;
        addUnread(object, member, key, hasRoom ? nearestName(key, known) : "");
      } else if (isOneOf(key, seen)) {
        addNote(object, member, rule::duplicateKey,
                quoted(key) + " is there twice; only the first counts");
      } else {
        seen.push_back(key);
        noteValue(object, member, key);
      }
    });
  }

  void noteValue(std::size_t object, Node member, const std::string& key) {
    addLink(object, member, key);
    if (key == "renditions") return noteProportions(object, member);
    const auto text = outline_.text(member);
    if (!text) return;
    if (isBlank(*text)) {
      addNote(object, member, rule::emptyText, quoted(key) + " is empty");
    } else if (isOneOf(key, addresses) && isInsecure(*text)) {
      addNote(object, member, rule::insecureLink,
              quoted(key) + " is not https: others can read and change what is fetched");
    } else if (isOneOf(key, times)) {
      const auto date = DateFormatter::shared().date(*text);
      if (date && *date > currentDate()) {
        addNote(object, member, rule::futureDate, quoted(key) + " is in the future");
      }
    } else if (isOneOf(key, identifiers)) {
      noteIdentifier(object, member, key, *text);
    }
  }

  // One article may have cards in several sections, but not two in one, nor two addresses.
  void noteIdentifier(std::size_t object, Node member, const std::string& key,
                      const std::string& text) {
    const Node url = outline_.member(node(object), "url");
    const std::string address = url == JSONOutline::none ? "" : outline_.text(url).value_or("");
    const Node list = outline_.parent(node(object));
    const auto [inList, isNew] = identified_.try_emplace({list, key, text}, member);
    const bool isElsewhere =
        key == "qrvId" && addressed_.try_emplace(text, address).first->second != address;
    if (isNew && !isElsewhere) return;
    addNote(object, member, rule::duplicateIdentifier,
            quoted(key) + " is " + quoted(text) + ", as before " +
                (isNew ? "for another address" : "in the same list"));
  }

  struct Size {
    double width = 0;
    double height = 0;

    std::string words() const {
      return std::to_string(std::llround(width)) + " x " + std::to_string(std::llround(height));
    }
  };

  Size sizeOf(Node rendition) const {
    const auto side = [&](std::string_view key) {
      const Node member = outline_.member(rendition, key);
      return member == JSONOutline::none ? 0 : static_cast<double>(pixels(member));
    };
    return {side("width"), side("height")};
  }

  bool isLeftOut(Node object) const {
    const auto& objects = outline_.objects();
    const auto found = std::lower_bound(objects.begin(), objects.end(), object);
    return told_[static_cast<std::size_t>(found - objects.begin())].isLeftOut;
  }

  void noteProportions(std::size_t object, Node renditions) {
    constexpr double tolerance = 0.03;
    std::optional<Size> first;
    for (Node each = outline_.firstChild(renditions); each != JSONOutline::none;
         each = outline_.next(each)) {
      const Size size = sizeOf(each);
      if (!(size.width > 0 && size.height > 0) || isLeftOut(each)) continue;
      if (!first) first = size;
      const double change = size.height / size.width * first->width / first->height;
      // Whole pixels are not more exact than that.
      const double rounding = 1 / std::min({size.width, size.height, first->width, first->height});
      if (std::abs(change - 1) <= tolerance + rounding) continue;
      addNote(object, each, rule::outOfProportion,
              size.words() + " has another proportion than the picture's first size, " +
                  first->words());
    }
  }

  std::vector<ParseFinding> findings(std::optional<std::size_t> fault) {
    const auto position = [&](const Fault& each) {
      return fault.value_or(outline_.position(each.node));
    };
    std::stable_sort(faults_.begin(), faults_.end(),
                     [&](const Fault& a, const Fault& b) { return position(a) < position(b); });
    std::vector<ParseFinding> list;
    LineCounter lines(text_);
    for (Fault& each : faults_) {
      if (each.severity == Severity::warning && each.effect.empty()) {
        each.effect = effectOf(outline_.key(memberOf(each.node)));
      }
      if (!each.effect.empty()) each.what += ": " + each.effect;
      list.push_back({lines.place(position(each), isJSON_ ? outline_.path(each.node) : ""),
                      each.severity, std::string(each.rule), std::move(each.what)});
    }
    if (left_ > 0) {
      ParseFinding& last = list.emplace_back();
      last.rule = rule::moreFindings;
      last.message = "there is more than these " + std::to_string(faults_.size()) + " findings";
    }
    return list;
  }

  std::int64_t pixels(Node node) const {
    constexpr double most = 1e9;
    const double number = outline_.number(node).value_or(0);
    return number > 0 && number < most ? static_cast<std::int64_t>(number) : 0;
  }

  struct Link {
    ParsedLink::Kind kind;
    Node address;
    Node width = JSONOutline::none;
    Node height = JSONOutline::none;
  };

  // The address under one of the keys that a record was made of.
  void addLink(std::size_t object, Node member, std::string_view key) {
    const Told& told = told_[object];
    if (key == "image") {
      links_.push_back({ParsedLink::Kind::picture, member});
    } else if (key == "url" && wasAsked(told, "width")) {
      links_.push_back({ParsedLink::Kind::picture, member, outline_.member(node(object), "width"),
                        outline_.member(node(object), "height")});
    } else if (key == "url" && wasAsked(told, "qrvId")) {
      links_.push_back({ParsedLink::Kind::article, member});
    }
  }

  // The member that a value at fault stands in.
  Node memberOf(Node node) const {
    return outline_.kind(outline_.parent(node)) == '[' ? outline_.parent(node) : node;
  }

  std::string_view text_;
  JSONOutline outline_;
  bool isJSON_;
  std::vector<std::size_t> places_;  // of the objects, as the decoder numbers them
  std::vector<Told> told_;           // one for each object
  std::vector<std::string> keys_;    // all that were asked for
  std::vector<Fault> faults_;
  std::size_t settled_ = 0;  // faults before this one have their effect
  std::size_t left_ = 0;     // faults that are not among them
  std::vector<Link> links_;
  std::map<std::tuple<Node, std::string, std::string>, Node> identified_;
  std::map<std::string, std::string> addressed_;
};

ParseFindings::ParseFindings() = default;
ParseFindings::~ParseFindings() = default;

const std::vector<ParseFinding>& ParseFindings::list() const { return list_; }

const std::vector<ParsedLink>& ParseFindings::links() const { return links_; }

void ParseFindings::decoded(const JSONDocument* document, std::string_view text) {
  list_.clear();
  links_.clear();
  gathering_ = std::make_unique<Gathering>(document, text);
}

void ParseFindings::asked(std::size_t object, std::string_view key) {
  gathering_->asked(object, key);
}

void ParseFindings::mistyped(std::size_t object, std::string_view key, Kind kind) {
  gathering_->mistyped(object, key, kind);
}

void ParseFindings::refused(std::size_t object, std::string_view key, std::string_view rule,
                            std::string_view accepted) {
  gathering_->refused(object, key, rule, accepted);
}

void ParseFindings::failed(std::size_t object) { gathering_->failed(object); }

void ParseFindings::leftOut(std::size_t object, std::string_view effect) {
  gathering_->leftOut(object, effect);
}

void ParseFindings::ended(bool parsed) {
  list_ = gathering_->ended(parsed);
  links_ = gathering_->links();
  gathering_.reset();
}

}  // namespace paperloom
