#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paperloom {

// Where everything stands in a JSON text. It knows every object, list and member; of the other
// elements of lists it knows the first of each run that are of one kind.
class JSONOutline {
 public:
  using Node = std::uint32_t;
  static constexpr Node top = 0;
  static constexpr Node none = UINT32_MAX;

  // The text outlives the outline.
  explicit JSONOutline(std::string_view text);

  // Where the first byte stands that no JSON text has there; nothing when there is none.
  std::optional<std::size_t> fault() const { return fault_; }

  // The objects in the order of the text.
  const std::vector<Node>& objects() const { return objects_; }
  Node parent(Node node) const { return entries_[node].parent; }
  Node firstChild(Node node) const;
  Node next(Node node) const { return entries_[node].next; }
  // The first of several.
  Node member(Node object, std::string_view key) const;
  std::string key(Node member) const;

  // The first byte of a value: '{', '[', '"', 't', 'f', 'n', '-' or a digit.
  char kind(Node node) const { return text_[entries_[node].value]; }
  // What a text says, and what a number is; nothing for other values.
  std::optional<std::string> text(Node node) const;
  std::optional<double> number(Node node) const;

  // Where a member's key begins, or a value without one.
  std::size_t position(Node node) const { return entries_[node].at; }
  // RFC 6901.
  std::string path(Node node) const;

 private:
  struct Entry {
    Node parent;
    Node next;
    std::uint32_t index;  // in a list
    std::uint32_t at;
    std::uint32_t value;
  };
  class Scanner;

  std::string unescaped(std::size_t quote) const;

  std::string_view text_;
  std::vector<Entry> entries_;
  std::vector<Node> objects_;
  std::optional<std::size_t> fault_;
};

}  // namespace paperloom
