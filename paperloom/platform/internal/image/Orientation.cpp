#include "paperloom/platform/internal/image/Orientation.h"

#include <cstdint>
#include <optional>

namespace paperloom::internal {
namespace {

// Numbers of a TIFF block in the block's own byte order.
class Block {
 public:
  explicit Block(std::string_view bytes) : bytes_(bytes), bigEndian_(bytes.starts_with("MM")) {}

  bool isTIFF() const {
    return (bigEndian_ || bytes_.starts_with("II")) && number(2, 2) == std::uint32_t{42};
  }

  std::optional<std::uint32_t> number(std::size_t at, std::size_t size) const {
    if (at > bytes_.size() || size > bytes_.size() - at) return std::nullopt;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      const std::size_t byte = bigEndian_ ? at + i : at + size - 1 - i;
      value = value << 8U | static_cast<unsigned char>(bytes_[byte]);
    }
    return value;
  }

 private:
  std::string_view bytes_;
  bool bigEndian_;
};

}  // namespace

int orientationFromExif(std::string_view bytes) {
  constexpr std::string_view heading("Exif\0\0", 6);
  if (bytes.starts_with(heading)) bytes.remove_prefix(heading.size());
  const Block block(bytes);
  if (!block.isTIFF()) return uprightOrientation;
  // The first directory: a count, then entries of tag, type, count and value (TIFF 6.0, section 2).
  const auto directory = block.number(4, 4);
  const auto count = directory ? block.number(*directory, 2) : std::nullopt;
  // An entry beyond the end of the block reads as nothing, so that a wrong count ends by itself.
  for (std::size_t i = 0; count && i < *count; ++i) {
    constexpr std::uint32_t orientationTag = 0x0112;
    constexpr std::uint32_t shortType = 3;
    const std::size_t entry = *directory + 2 + i * 12;
    if (block.number(entry, 2) != orientationTag) continue;
    const auto value = block.number(entry + 8, 2);
    if (block.number(entry + 2, 2) == shortType && value && *value >= 1 && *value <= 8) {
      return static_cast<int>(*value);
    }
    break;
  }
  return uprightOrientation;
}

}  // namespace paperloom::internal
