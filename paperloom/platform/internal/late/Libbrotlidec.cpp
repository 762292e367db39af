// What the library uses of the brotli decoder.

#include <brotli/decode.h>

#include <cstddef>
#include <cstdint>

#include "paperloom/platform/internal/late/LateLibrary.h"

namespace {

const paperloom::internal::LateLibrary& library() {
  static const paperloom::internal::LateLibrary opened(PAPERLOOM_LIBBROTLIDEC);
  return opened;
}

}  // namespace

extern "C" {

PAPERLOOM_LATE(library, BrotliDecoderState*, BrotliDecoderCreateInstance,
               (brotli_alloc_func allocate, brotli_free_func release, void* context),
               (allocate, release, context))
PAPERLOOM_LATE(library, void, BrotliDecoderDestroyInstance, (BrotliDecoderState * state), (state))
PAPERLOOM_LATE(library, BrotliDecoderResult, BrotliDecoderDecompressStream,
               (BrotliDecoderState * state, std::size_t* availableIn, const std::uint8_t** nextIn,
                std::size_t* availableOut, std::uint8_t** nextOut, std::size_t* total),
               (state, availableIn, nextIn, availableOut, nextOut, total))
}
