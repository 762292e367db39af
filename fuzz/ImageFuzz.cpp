#include <cstddef>
#include <cstdint>

#include "paperloom/platform/ImageDecoder.h"

// Bytes of any kind through the decoder, with a small pixel limit so that a run stays quick.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const paperloom::StandardImageDecoder decoder(1'000'000);
  const auto image = decoder.decode({reinterpret_cast<const char*>(data), size});
  if (image && image->pixels().size() > 4'000'000) __builtin_trap();
  return 0;
}
