// The part of SystemConfiguration that kioskd uses.
// Source: SCDynamicStoreCopySpecific.h of the open-source configd.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCDynamicStore* SCDynamicStoreRef;
CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* encoding);

#ifdef __cplusplus
}
#endif
