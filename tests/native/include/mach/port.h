// Source: the Mac's mach/port.h.
#pragma once

typedef unsigned int mach_port_t;
