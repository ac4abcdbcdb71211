// The part of SystemConfiguration that kioskd uses.
// Source: SCDynamicStoreCopySpecific.h, SCNetworkConfiguration.h, SCPreferences.h and
// SystemConfiguration.h of the open-source configd.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

// SCDynamicStoreCopySpecific.h
typedef const struct __SCDynamicStore* SCDynamicStoreRef;
CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* encoding);

// SystemConfiguration.h
int SCError(void);
const char* SCErrorString(int status);

// SCPreferences.h
typedef const struct __SCPreferences* SCPreferencesRef;
SCPreferencesRef SCPreferencesCreate(CFAllocatorRef allocator, CFStringRef name,
                                     CFStringRef identifier);
Boolean SCPreferencesLock(SCPreferencesRef preferences, Boolean wait);
Boolean SCPreferencesUnlock(SCPreferencesRef preferences);
Boolean SCPreferencesCommitChanges(SCPreferencesRef preferences);
Boolean SCPreferencesApplyChanges(SCPreferencesRef preferences);

// SCNetworkConfiguration.h
typedef const struct __SCNetworkInterface* SCNetworkInterfaceRef;
typedef const struct __SCNetworkProtocol* SCNetworkProtocolRef;
typedef const struct __SCNetworkService* SCNetworkServiceRef;
typedef const struct __SCNetworkSet* SCNetworkSetRef;
CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface);
CFDictionaryRef SCNetworkProtocolGetConfiguration(SCNetworkProtocolRef protocol);
Boolean SCNetworkProtocolSetConfiguration(SCNetworkProtocolRef protocol,
                                          CFDictionaryRef configuration);
Boolean SCNetworkProtocolSetEnabled(SCNetworkProtocolRef protocol, Boolean enabled);
Boolean SCNetworkServiceAddProtocolType(SCNetworkServiceRef service, CFStringRef type);
SCNetworkProtocolRef SCNetworkServiceCopyProtocol(SCNetworkServiceRef service, CFStringRef type);
Boolean SCNetworkServiceGetEnabled(SCNetworkServiceRef service);
SCNetworkInterfaceRef SCNetworkServiceGetInterface(SCNetworkServiceRef service);
SCNetworkSetRef SCNetworkSetCopyCurrent(SCPreferencesRef preferences);
CFArrayRef SCNetworkSetCopyServices(SCNetworkSetRef set);

#ifdef __cplusplus
}
#endif
