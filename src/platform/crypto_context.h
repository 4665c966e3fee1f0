// The library's own OpenSSL library context, so that loading providers never
// touches the host application's global context.
#ifndef AOSTORE_PLATFORM_CRYPTO_CONTEXT_H
#define AOSTORE_PLATFORM_CRYPTO_CONTEXT_H

#if !defined(_WIN32)
#include <openssl/types.h>

namespace ao::platform {

// Context with the "default" and "legacy" providers loaded; null if they
// cannot be loaded. Created on first use, lives until the process ends.
OSSL_LIB_CTX* CryptoLibContext();

}  // namespace ao::platform
#endif

#endif  // AOSTORE_PLATFORM_CRYPTO_CONTEXT_H
