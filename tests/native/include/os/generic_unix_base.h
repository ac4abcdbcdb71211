// What libdispatch's headers include where they are not on a Mac.
#pragma once

#include <Availability.h>
#include <os/availability.h>
#include <os/base.h>
