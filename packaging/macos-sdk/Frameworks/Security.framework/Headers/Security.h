// The part of Security that kioskd uses. Source: SecRandom.h, SecBase.h of the open-source
// Security.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { errSecSuccess = 0 };
typedef const struct __SecRandom* SecRandomRef;
extern const SecRandomRef kSecRandomDefault;
__attribute__((warn_unused_result)) int SecRandomCopyBytes(SecRandomRef source, size_t count,
                                                           void* bytes);

#ifdef __cplusplus
}
#endif
