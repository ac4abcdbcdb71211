// The part of OpenDirectory that kioskd uses.
// Source: CFODNode.h, CFODRecord.h, CFOpenDirectoryConstants.h of the open-source OpenDirectory.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct __ODSession* ODSessionRef;
typedef struct __ODNode* ODNodeRef;
typedef struct __ODRecord* ODRecordRef;
typedef uint32_t ODNodeType;
typedef CFStringRef ODRecordType;
enum { kODNodeTypeLocalNodes = 0x2200 };
extern ODSessionRef kODSessionDefault;
extern const ODRecordType kODRecordTypeUsers;
ODNodeRef ODNodeCreateWithNodeType(CFAllocatorRef allocator, ODSessionRef session, ODNodeType type,
                                   CFErrorRef* error);
ODRecordRef ODNodeCopyRecord(ODNodeRef node, ODRecordType type, CFStringRef name,
                             CFTypeRef attributes, CFErrorRef* error);
bool ODRecordChangePassword(ODRecordRef record, CFStringRef oldPassword, CFStringRef newPassword,
                            CFErrorRef* error);

#ifdef __cplusplus
}
#endif
