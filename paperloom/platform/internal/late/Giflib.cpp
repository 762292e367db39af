// What the library uses of giflib.

#include <gif_lib.h>

#include "paperloom/platform/internal/late/LateLibrary.h"

namespace {

const paperloom::internal::LateLibrary& library() {
  static const paperloom::internal::LateLibrary opened(PAPERLOOM_GIFLIB);
  return opened;
}

}  // namespace

extern "C" {

PAPERLOOM_LATE(library, GifFileType*, DGifOpen, (void* source, InputFunc read, int* error),
               (source, read, error))
PAPERLOOM_LATE(library, int, DGifCloseFile, (GifFileType * file, int* error), (file, error))
PAPERLOOM_LATE(library, int, DGifGetRecordType, (GifFileType * file, GifRecordType* type),
               (file, type))
PAPERLOOM_LATE(library, int, DGifGetExtension,
               (GifFileType * file, int* code, GifByteType** extension), (file, code, extension))
PAPERLOOM_LATE(library, int, DGifGetExtensionNext, (GifFileType * file, GifByteType** extension),
               (file, extension))
PAPERLOOM_LATE(library, int, DGifGetImageDesc, (GifFileType * file), (file))
PAPERLOOM_LATE(library, int, DGifGetCode, (GifFileType * file, int* codeSize, GifByteType** block),
               (file, codeSize, block))
PAPERLOOM_LATE(library, int, DGifGetCodeNext, (GifFileType * file, GifByteType** block),
               (file, block))
PAPERLOOM_LATE(library, int, DGifGetLine, (GifFileType * file, GifPixelType* line, int length),
               (file, line, length))
}
