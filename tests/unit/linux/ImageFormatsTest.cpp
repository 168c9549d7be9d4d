// Image headers that the kept samples do not have: rotation and cropping by a viewer, and formats
// whose few bytes are put together here.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platforms/shared/CodecImageHeaders.h"
#include "unit/linux/ImageBytes.h"

namespace qx {
namespace {

using namespace std::string_literals;

std::string sizeOf(const std::string& bytes) {
  CodecImageHeaders headers;
  const auto size = headers.size(Data(bytes));
  if (!size) return "none";
  return std::to_string(static_cast<long>(size->width)) + "x" +
         std::to_string(static_cast<long>(size->height));
}

TEST(ImageFormats, ExifChunkTurnsAPng) {
  EXPECT_EQ(sizeOf(pngWith(pngChunk("eXIf", tiffOf(tiffShort(0x0112, 6))))), "30x40");
  EXPECT_EQ(sizeOf(pngWith(pngChunk("eXIf", tiffOf(tiffShort(0x0112, 3))))), "40x30");
}

TEST(ImageFormats, PngWithAnUnknownCriticalChunkIsNone) {
  EXPECT_EQ(sizeOf(pngWith(pngChunk("QXQX", ""))), "none");
  EXPECT_EQ(sizeOf(pngWith(pngChunk("qxqx", ""))), "40x30");
}

TEST(ImageFormats, PngWithADamagedHeaderIsNone) {
  std::string png = pngWith("");
  png[20] = static_cast<char>(png[20] ^ 1);
  EXPECT_EQ(sizeOf(png), "none") << "its check sum tells";
}

/// An extended WebP; `flags` 0x08 announces EXIF.
std::string webp(char flags, std::uint64_t orientation) {
  const std::string exif = "II*\0"s + little(8, 4) + little(1, 2) + little(0x0112, 2) +
                           little(3, 2) + little(1, 4) + little(orientation, 4) + little(0, 4);
  // The header of a key frame of 40 x 30 pixels, three more bytes, and one that makes their number
  // even.
  const std::string frame = "\x30\0\0\x9D\x01\x2A\x28\0\x1E\0xxx\0"s;
  const std::string chunks = "WEBPVP8X"s + little(10, 4) + flags + "\0\0\0"s + little(39, 3) +
                             little(29, 3) + "VP8 " + little(13, 4) + frame + "EXIF" +
                             little(exif.size(), 4) + exif;
  return "RIFF" + little(chunks.size(), 4) + chunks;
}

TEST(ImageFormats, ExifChunkBehindThePixelsTurnsAWebp) {
  EXPECT_EQ(sizeOf(webp('\x08', 8)), "30x40");
  EXPECT_EQ(sizeOf(webp('\x08', 2)), "40x30");
  EXPECT_EQ(sizeOf(webp('\0', 8)), "40x30") << "the header announces none";
}

std::string rotation(char quarters) {
  return box("irot", {std::string(1, quarters)});
}
std::string aperture(std::uint64_t width, std::uint64_t height) {
  return box("clap", {big(width, 4), big(1, 4), big(height, 4), big(1, 4), big(0, 4), big(1, 4),
                      big(0, 4), big(1, 4)});
}

TEST(ImageFormats, HeicIsTurnedAndCutInTheOrderOfItsProperties) {
  EXPECT_EQ(sizeOf(heic({})), "40x30");
  EXPECT_EQ(sizeOf(heic({.properties = {rotation(1)}})), "30x40");
  EXPECT_EQ(sizeOf(heic({.properties = {rotation(2)}})), "40x30");
  EXPECT_EQ(sizeOf(heic({.properties = {rotation(3)}})), "30x40");
  EXPECT_EQ(sizeOf(heic({.properties = {aperture(39, 29)}})), "39x29");
  EXPECT_EQ(sizeOf(heic({.properties = {aperture(39, 29), rotation(1)}})), "29x39");
}

TEST(ImageFormats, HeicWhoseDataEndsEarlyIsNone) {
  const std::string whole = heic({});
  EXPECT_EQ(sizeOf(whole.substr(0, whole.size() - 1)), "none");
}

TEST(ImageFormats, BmpOfEitherHeaderHasASize) {
  const auto bmp = [](const std::string& header) {
    return "BM" + little(100, 4) + little(0, 4) + little(54, 4) + header + std::string(60, '\0');
  };
  EXPECT_EQ(sizeOf(bmp(little(40, 4) + little(40, 4) + little(30, 4) + little(1, 2))), "40x30");
  EXPECT_EQ(sizeOf(bmp(little(124, 4) + little(40, 4) + little(0xFFFFFFE2, 4) + little(1, 2))),
            "40x30")
      << "the upper row first";
  EXPECT_EQ(sizeOf(bmp(little(12, 4) + little(40, 2) + little(30, 2) + little(1, 2))), "40x30");
  EXPECT_EQ(sizeOf(bmp(little(12, 4) + little(0, 2) + little(30, 2) + little(1, 2))), "none");
  EXPECT_EQ(sizeOf(bmp(little(7, 4) + little(40, 2) + little(30, 2) + little(1, 2))), "none");
  EXPECT_EQ(sizeOf("BM, the initials of somebody who wrote a text"), "none");
}

TEST(ImageFormats, LargestImageOfAnIcoCounts) {
  const auto entry = [](char width, char height, std::size_t offset) {
    return std::string{width, height} + std::string(6, '\0') + little(10, 4) + little(offset, 4);
  };
  const std::string head = "\0\0\1\0"s + little(2, 2);
  const std::string images = entry(16, 16, 38) + entry(0, 48, 48) + std::string(20, 'x');
  EXPECT_EQ(sizeOf(head + images), "256x48");
  EXPECT_EQ(sizeOf((head + images).substr(0, 57)), "none") << "a byte is missing";
  EXPECT_EQ(sizeOf("\0\0\1\0\0\0"s), "none");
}

}  // namespace
}  // namespace qx
