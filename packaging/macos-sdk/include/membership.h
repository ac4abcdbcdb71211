// The part of membership.h that kioskd uses. Source: membership.h of the open-source Libinfo.
#pragma once

#include <sys/types.h>
#include <uuid/uuid.h>

#ifdef __cplusplus
extern "C" {
#endif

int mbr_uid_to_uuid(uid_t id, uuid_t uuid);

#ifdef __cplusplus
}
#endif
