// Source: the Mac's bsm/audit.h.
#pragma once

#include <sys/types.h>

typedef pid_t au_asid_t;
