#include "simulator/portal/ImageHeader.h"

#include <cstddef>
#include <cstdint>
#include <limits>

namespace portal {
namespace {

constexpr std::string_view kPngBegin("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);
constexpr std::string_view kJpegBegin = "\xff\xd8";

unsigned ByteAt(std::string_view bytes, std::size_t position) {
  return static_cast<unsigned char>(bytes[position]);
}

/// A big-endian number.
/// @param length how many bytes, at most four, all of them within `bytes`
std::uint32_t NumberAt(std::string_view bytes, std::size_t position, std::size_t length) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < length; ++i) number = number * 256 + ByteAt(bytes, position + i);
  return number;
}

std::optional<ImageHeader> Header(const char* type, std::uint32_t width, std::uint32_t height) {
  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  if (width == 0 || height == 0 || width > kMost || height > kMost) return std::nullopt;
  return ImageHeader{type, static_cast<int>(width), static_cast<int>(height)};
}

std::optional<ImageHeader> ReadPng(std::string_view bytes) {
  if (bytes.size() < kPngBegin.size() + 8) return std::nullopt;
  return Header("image/png", NumberAt(bytes, 16, 4), NumberAt(bytes, 20, 4));
}

/// C0 to CF begin a frame, but for the tables DHT (C4) and DAC (CC) and the reserved JPG (C8).
bool BeginsFrame(unsigned marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

/// TEM and the restart markers have no segment behind them.
bool StandsAlone(unsigned marker) { return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7); }

/// SOS begins the picture, EOI ends it: no frame header can follow.
bool EndsHeaders(unsigned marker) { return marker == 0xDA || marker == 0xD9; }

/// The marker that `bytes` begin with, after any number of fill bytes; nothing when there is none.
std::optional<unsigned> TakeMarker(std::string_view& bytes) {
  if (bytes.empty() || ByteAt(bytes, 0) != 0xFF) return std::nullopt;
  const std::size_t code = bytes.find_first_not_of('\xff');
  if (code == bytes.npos) return std::nullopt;
  const unsigned marker = ByteAt(bytes, code);
  bytes.remove_prefix(code + 1);
  return marker;
}

/// The segment that `bytes` begin with, its length included; nothing when it is not whole.
std::optional<std::string_view> TakeSegment(std::string_view& bytes) {
  if (bytes.size() < 2) return std::nullopt;
  const std::size_t length = NumberAt(bytes, 0, 2);
  if (length < 2 || length > bytes.size()) return std::nullopt;
  const std::string_view segment = bytes.substr(0, length);
  bytes.remove_prefix(length);
  return segment;
}

std::optional<ImageHeader> ReadJpeg(std::string_view bytes) {
  bytes.remove_prefix(kJpegBegin.size());
  for (;;) {
    const std::optional<unsigned> marker = TakeMarker(bytes);
    if (!marker || EndsHeaders(*marker)) return std::nullopt;
    if (StandsAlone(*marker)) continue;
    const std::optional<std::string_view> segment = TakeSegment(bytes);
    if (!segment) return std::nullopt;
    if (!BeginsFrame(*marker)) continue;
    // Length, bits of a sample, height, width.
    if (segment->size() < 7) return std::nullopt;
    return Header("image/jpeg", NumberAt(*segment, 5, 2), NumberAt(*segment, 3, 2));
  }
}

}  // namespace

std::optional<ImageHeader> ReadImageHeader(std::string_view bytes) {
  if (bytes.starts_with(kPngBegin)) return ReadPng(bytes);
  if (bytes.starts_with(kJpegBegin)) return ReadJpeg(bytes);
  return std::nullopt;
}

}  // namespace portal
