#if !defined(_WIN32)
#include "platform/crypto_context.h"

#include <openssl/crypto.h>
#include <openssl/provider.h>

namespace ao::platform {
namespace {

struct LibContext {
  OSSL_LIB_CTX* context = nullptr;
  OSSL_PROVIDER* defaults = nullptr;
  OSSL_PROVIDER* legacy = nullptr;

  LibContext() {
    context = OSSL_LIB_CTX_new();
    if (context == nullptr) return;
    defaults = OSSL_PROVIDER_load(context, "default");
    legacy = OSSL_PROVIDER_load(context, "legacy");  // RC4 lives here
    if (defaults == nullptr || legacy == nullptr) Clear();
  }
  ~LibContext() { Clear(); }
  LibContext(const LibContext&) = delete;
  LibContext& operator=(const LibContext&) = delete;

  void Clear() {
    if (legacy != nullptr) OSSL_PROVIDER_unload(legacy);
    if (defaults != nullptr) OSSL_PROVIDER_unload(defaults);
    if (context != nullptr) OSSL_LIB_CTX_free(context);
    legacy = defaults = nullptr;
    context = nullptr;
  }
};

}  // namespace

OSSL_LIB_CTX* CryptoLibContext() {
  static LibContext instance;
  return instance.context;
}

}  // namespace ao::platform
#endif
