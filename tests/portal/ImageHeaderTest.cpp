#include "simulator/portal/ImageHeader.h"
#include "tests/portal/Portal.h"

namespace {

using portal::ReadImageHeader;

/// "image/png 640x480"; empty for no header.
std::string Shown(const std::string& bytes) {
  const auto header = ReadImageHeader(bytes);
  if (!header) return "";
  return header->contentType + " " + std::to_string(header->width) + "x" +
         std::to_string(header->height);
}

std::string Bytes(std::initializer_list<int> list) {
  std::string bytes;
  for (const int byte : list) bytes += static_cast<char>(byte);
  return bytes;
}

const std::string kJpegBegin = Bytes({0xFF, 0xD8});
const std::string kFrame = Bytes({0, 7, 8, 0x01, 0xE0, 0x02, 0x80});  // 640x480

TEST(ImageHeader, TellsKindAndSizeOfAPicture) {
  EXPECT_EQ(Shown(PngPhoto(640, 480)), "image/png 640x480");
  EXPECT_EQ(Shown(PngPhoto(0x7FFFFFFF, 1)), "image/png 2147483647x1");
  EXPECT_EQ(Shown(JpegPhoto(640, 480)), "image/jpeg 640x480");
  EXPECT_EQ(Shown(JpegPhoto(65535, 1, "more")), "image/jpeg 65535x1");
}

TEST(ImageHeader, FindsTheFrameOfAJpegBehindWhateverStandsBeforeIt) {
  const std::string comment = Bytes({0xFF, 0xFE, 0, 4, 0xFF, 0xC0});
  const std::string huffman = Bytes({0xFF, 0xC4, 0, 9, 8, 0, 1, 0, 1, 3, 3});
  const std::string arithmetic = Bytes({0xFF, 0xCC, 0, 2});
  const std::string restart = Bytes({0xFF, 0xD0, 0xFF, 0x01});
  const std::string fill = Bytes({0xFF, 0xFF, 0xFF});
  for (const int frame : {0xC0, 0xC1, 0xC2, 0xC3, 0xC5, 0xCF})
    EXPECT_EQ(Shown(kJpegBegin + comment + huffman + arithmetic + restart + fill +
                    Bytes({0xFF, frame}) + kFrame),
              "image/jpeg 640x480")
        << frame;
}

TEST(ImageHeader, IsNoneWithoutASize) {
  for (const std::string& bytes :
       {PngPhoto(0, 480), PngPhoto(640, 0), PngPhoto(0x80000000U, 1), JpegPhoto(0, 480),
        JpegPhoto(640, 0), kJpegBegin + Bytes({0xFF, 0xD9}) + Bytes({0xFF, 0xC0}) + kFrame,
        kJpegBegin + Bytes({0xFF, 0xDA}) + Bytes({0xFF, 0xC0}) + kFrame})
    EXPECT_EQ(Shown(bytes), "");
}

TEST(ImageHeader, IsNoneOfABrokenPicture) {
  for (const std::string& bytes :
       {std::string(), std::string("GIF89a"), std::string("\x89PNG"), kJpegBegin + "JFIF",
        kJpegBegin + Bytes({0xFF}), kJpegBegin + Bytes({0xFF, 0xE0, 0}),
        kJpegBegin + Bytes({0xFF, 0xE0, 0, 1, 0xFF, 0xC0}) + kFrame,
        kJpegBegin + Bytes({0xFF, 0xE0, 0xFF, 0xFF}) + kFrame,
        kJpegBegin + Bytes({0xFF, 0xC0, 0, 6, 8, 1, 1, 1})})
    EXPECT_EQ(Shown(bytes), "");
}

TEST(ImageHeader, IsNoneOfAPictureThatIsCutOffWhereverItIs) {
  for (const std::string& whole : {PngPhoto(640, 480), kJpegBegin + Bytes({0xFF, 0xC0}) + kFrame}) {
    EXPECT_NE(Shown(whole), "");
    for (std::size_t length = 0; length < whole.size(); ++length)
      EXPECT_EQ(Shown(whole.substr(0, length)), "") << length;
  }
}

}  // namespace
