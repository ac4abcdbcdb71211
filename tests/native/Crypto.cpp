// CommonCrypto and timingsafe_bcmp, on OpenSSL.
#include <CommonCrypto/CommonDigest.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "tests/native/Object.h"

namespace {

/// The caller's context has room for no more than this.
EVP_MD_CTX*& digestOf(CC_SHA256_CTX* context) { return *reinterpret_cast<EVP_MD_CTX**>(context); }

}  // namespace

extern "C" {

int CC_SHA256_Init(CC_SHA256_CTX* context) {
  (void)native::Begin(__func__);
  digestOf(context) = EVP_MD_CTX_new();
  return EVP_DigestInit_ex(digestOf(context), EVP_sha256(), nullptr);
}

int CC_SHA256_Update(CC_SHA256_CTX* context, const void* data, CC_LONG count) {
  (void)native::Begin(__func__);
  return EVP_DigestUpdate(digestOf(context), data, count);
}

int CC_SHA256_Final(unsigned char* digest, CC_SHA256_CTX* context) {
  (void)native::Begin(__func__);
  const int done = EVP_DigestFinal_ex(digestOf(context), digest, nullptr);
  EVP_MD_CTX_free(digestOf(context));
  return done;
}

int timingsafe_bcmp(const void* one, const void* other, size_t count) {
  (void)native::Begin(__func__);
  return CRYPTO_memcmp(one, other, count);
}

}  // extern "C"
