// What the library uses of OpenSSL.

#include <openssl/evp.h>

#include "paperloom/platform/internal/late/LateLibrary.h"

namespace {

const paperloom::internal::LateLibrary& library() {
  static const paperloom::internal::LateLibrary opened(PAPERLOOM_LIBCRYPTO);
  return opened;
}

}  // namespace

extern "C" {

PAPERLOOM_LATE(library, EVP_MD*, EVP_MD_fetch,
               (OSSL_LIB_CTX * context, const char* algorithm, const char* properties),
               (context, algorithm, properties))
PAPERLOOM_LATE(library, int, EVP_Digest,
               (const void* data, std::size_t count, unsigned char* digest, unsigned int* size,
                const EVP_MD* type, ENGINE* engine),
               (data, count, digest, size, type, engine))
}
