// What only the tests of more than one boot of a Mac need of virtual time.
#pragma once

namespace virtual_time {

/// Switches the Mac off and on: whatever was submitted, delayed or armed is forgotten, and the
/// monotonic clock counts from the boot. The wall clock goes on as it is.
void Boot();

}  // namespace virtual_time
