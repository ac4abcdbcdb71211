// Included by xpc/xpc.h, which uses nothing of it.
#pragma once
