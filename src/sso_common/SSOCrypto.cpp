#include "SSOCrypto.h"

#include <dlfcn.h>
#include <openssl/opensslv.h>

#include <mutex>

#include "sso_log.h"

namespace {

#define SSO_CRYPTO_STR2(x) #x
#define SSO_CRYPTO_STR(x) SSO_CRYPTO_STR2(x)
// The soname of the libcrypto the library was built against.
#ifdef OPENSSL_SHLIB_VERSION
constexpr const char kLibrary[] = "libcrypto.so." SSO_CRYPTO_STR(OPENSSL_SHLIB_VERSION);
#else
constexpr const char kLibrary[] = "libcrypto.so." SHLIB_VERSION_NUMBER;
#endif

std::once_flag g_once;
SSOCryptoApi g_api;
bool g_loaded = false;

template <typename F> bool Resolve(void *handle, const char *name, F &out)
{
    out = reinterpret_cast<F>(dlsym(handle, name));
    if (out == nullptr)
        SSO_LOGE("Failed to find %s in %s", name, kLibrary);
    return out != nullptr;
}

void Load()
{
    // Kept for the process's life: libcrypto does not expect to be unloaded.
    void *handle = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char *why = dlerror();
        SSO_LOGE("Failed to load %s: %s", kLibrary, why ? why : "");
        return;
    }
    SSOCryptoApi &a = g_api;
    g_loaded =
        Resolve(handle, "BIO_new_mem_buf", a.BIO_new_mem_buf) &&
        Resolve(handle, "BIO_new", a.BIO_new) && Resolve(handle, "BIO_f_base64", a.BIO_f_base64) &&
        Resolve(handle, "BIO_set_flags", a.BIO_set_flags) &&
        Resolve(handle, "BIO_push", a.BIO_push) && Resolve(handle, "BIO_read", a.BIO_read) &&
        Resolve(handle, "BIO_free_all", a.BIO_free_all) &&
        Resolve(handle, "d2i_X509", a.d2i_X509) && Resolve(handle, "X509_free", a.X509_free) &&
        Resolve(handle, "X509_get_X509_PUBKEY", a.X509_get_X509_PUBKEY) &&
        Resolve(handle, "i2d_X509_PUBKEY", a.i2d_X509_PUBKEY) &&
        Resolve(handle, "EVP_Digest", a.EVP_Digest) && Resolve(handle, "EVP_sha1", a.EVP_sha1) &&
        Resolve(handle, "EVP_sha256", a.EVP_sha256);
}

} // namespace

const SSOCryptoApi *SSOCrypto()
{
    std::call_once(g_once, Load);
    return g_loaded ? &g_api : nullptr;
}
