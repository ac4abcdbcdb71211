// What the first bytes of a picture tell about it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace portal {

/// The kind and size of a picture.
struct ImageHeader {
  std::string contentType;  ///< "image/jpeg" or "image/png"
  int width = 0;            ///< in pixels, at least 1
  int height = 0;           ///< in pixels, at least 1
};

/// Reads the header of a JPEG or PNG file. The picture itself is not looked at. Any thread.
/// @param bytes the file
/// @return nothing when it is neither, or when its header is not whole or names no size
std::optional<ImageHeader> ReadImageHeader(std::string_view bytes);

}  // namespace portal
