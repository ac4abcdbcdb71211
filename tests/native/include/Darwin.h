// What a Mac's C library declares and this system's does not, for the adapters that use it, and the
// words of the compiler that the Mac's headers expect. Included before every source.
// Source: the Mac's time.h, string.h, fcntl.h, spawn.h and sys/cdefs.h.
#pragma once

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#define __unsafe_indexable
#define __swift_unavailable(reason)
#define __ASSUME_PTR_ABI_SINGLE_BEGIN
#define __ASSUME_PTR_ABI_SINGLE_END

#define F_FULLFSYNC 51
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

#ifdef __cplusplus
extern "C" {
#endif
uint64_t clock_gettime_nsec_np(clockid_t clock);
int timingsafe_bcmp(const void* one, const void* other, size_t count);
#ifdef __cplusplus
}
#endif
