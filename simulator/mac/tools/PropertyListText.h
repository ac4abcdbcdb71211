// Property lists as the defaults tool shows them.
#pragma once

#include <plist/plist.h>

#include <string>

namespace simmac {

/// A value in the old-style notation: a text alone stands as it is, in an array or dictionary it is
/// quoted unless it is made of letters and digits; booleans are 1 and 0.
std::string PropertyListText(plist_t value);

}  // namespace simmac
