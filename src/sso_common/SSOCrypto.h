// libcrypto, loaded when first needed. Only the caller-identity fingerprint
// (CCallerInformation::GetSignature) uses it, per whitelist request; mapping
// it when the library loads would cost every application about 1.4 MiB of
// resident memory (its relocations and data) for nothing.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

struct SSOCryptoApi {
    decltype(&::BIO_new_mem_buf) BIO_new_mem_buf;
    decltype(&::BIO_new) BIO_new;
    decltype(&::BIO_f_base64) BIO_f_base64;
    decltype(&::BIO_set_flags) BIO_set_flags;
    decltype(&::BIO_push) BIO_push;
    decltype(&::BIO_read) BIO_read;
    decltype(&::BIO_free_all) BIO_free_all;
    decltype(&::d2i_X509) d2i_X509;
    decltype(&::X509_free) X509_free;
    decltype(&::X509_get_X509_PUBKEY) X509_get_X509_PUBKEY;
    decltype(&::i2d_X509_PUBKEY) i2d_X509_PUBKEY;
    decltype(&::EVP_Digest) EVP_Digest;
    decltype(&::EVP_sha1) EVP_sha1;
    decltype(&::EVP_sha256) EVP_sha256;
};

// The functions, loaded on the first call (thread-safe, once per process;
// never unloaded). nullptr when libcrypto or one of them cannot be loaded,
// which is logged once.
const SSOCryptoApi *SSOCrypto();

// Owners for what libcrypto hands out, freed through the loaded functions.
// Only made once SSOCrypto() has returned the table, so it is there to free.
struct SSOBioFreeAll {
    void operator()(BIO *b) const { SSOCrypto()->BIO_free_all(b); }
};
using SSOBioPtr = std::unique_ptr<BIO, SSOBioFreeAll>;

struct SSOX509Free {
    void operator()(X509 *x) const { SSOCrypto()->X509_free(x); }
};
using SSOX509Ptr = std::unique_ptr<X509, SSOX509Free>;
