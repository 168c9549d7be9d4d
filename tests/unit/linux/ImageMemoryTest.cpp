// Image headers that are made to cost memory. None may take more than 16 MiB.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "contract/Python.h"
#include "platforms/shared/CodecImageHeaders.h"
#include "unit/linux/ImageBytes.h"
#include "unit/linux/PeakMemory.h"

namespace qx {
namespace {

using namespace std::string_literals;

/// The size that the reader yields, "40x30" or "none", after a check of its memory.
std::string sizeOf(const std::string& bytes) {
  const Data image(bytes);
  CodecImageHeaders headers;
  const long peak = peakKiB([&] { (void)headers.size(image); });
  EXPECT_GE(peak, 0);
  EXPECT_LE(peak, 16 * kMiB);
  const auto size = headers.size(image);
  if (!size) return "none";
  return std::to_string(static_cast<long>(size->width)) + "x" +
         std::to_string(static_cast<long>(size->height));
}

TEST(ImageMemory, PackedTextsOfAPngStayPacked) {
  // 2 MB of texts that unpack to 2 GB, and a profile that does the same.
  const std::string script = R"(
import sys, zlib
packer = zlib.compressobj(9)
part = packer.compress(bytes(1 << 26)) + packer.flush()
open(sys.argv[2], "wb").write(part)
)";
  const std::string packed = runPython(script, "");
  ASSERT_GT(packed.size(), 60'000U);
  EXPECT_EQ(sizeOf(pngWith(repeat(32, pngChunk("zTXt", "Comment\0\0"s + packed)))), "40x30");
  EXPECT_EQ(sizeOf(pngWith(repeat(32, pngChunk("iTXt", "Comment\0\1\0\0\0"s + packed)))), "40x30");
  EXPECT_EQ(sizeOf(pngWith(pngChunk("iCCP", "Profile\0\0"s + packed))), "40x30");
}

TEST(ImageMemory, PngOfAMillionChunksIsNone) {
  EXPECT_EQ(sizeOf(pngWith(repeat(1'000'000, pngChunk("tEXt", "a\0b"s)))), "none");
}

TEST(ImageMemory, LargestPngIsItsHeader) {
  EXPECT_EQ(sizeOf(pngWith("", 0x7FFFFFFF, 0x7FFFFFFF)), "2147483647x2147483647");
  EXPECT_EQ(sizeOf(pngWith("", 0xFFFFFFFF, 1)), "none");
}

std::string jpegWith(const std::string& segments) {
  // The frame of one component, and the beginning of its pixels.
  return "\xFF\xD8" + segments + "\xFF\xC0\0\x0B\x08\0\x1E\0\x28\1\1\x11\0"s +
         "\xFF\xDA\0\x08\1\1\0\0\x3F\0"s + "pixels";
}
std::string jpegSegment(char marker, const std::string& content) {
  return "\xFF"s + marker + big(content.size() + 2, 2) + content;
}

TEST(ImageMemory, ExifEntriesThatShareTheirValueCostNothing) {
  // 5,000 entries whose value is the whole block.
  std::string entries;
  for (int i = 0; i < 5'000; ++i) entries += tiffEntry(0x9000 + i % 256, 7, 60'000, big(0, 4));
  const std::string exif = "Exif\0\0"s + tiffOf(entries + tiffShort(0x0112, 6));
  EXPECT_EQ(sizeOf(jpegWith(jpegSegment('\xE1', exif))), "30x40");
  EXPECT_EQ(sizeOf(pngWith(pngChunk("eXIf", exif.substr(6)))), "30x40");
}

TEST(ImageMemory, ExifThatLeadsToItselfOrNowhereTurnsNothing) {
  for (const std::string& exif :
       {tiffOf("", 8), "MM\0*"s + big(0xFFFFFFFF, 4), "MM\0*"s + big(4, 4), "II*\0"s,
        tiffOf(tiffShort(0x0112, 9)), tiffOf(tiffEntry(0x0112, 3, 0xFFFFFFFF, big(8, 4))),
        "MM\0*"s + big(8, 4) + big(0xFFFF, 2) + repeat(9, tiffShort(0x0100, 1))}) {
    EXPECT_EQ(sizeOf(jpegWith(jpegSegment('\xE1', "Exif\0\0"s + exif))), "40x30");
  }
}

TEST(ImageMemory, ManyLargeSegmentsOfAJpegAreNotKept) {
  const std::string megabytes = repeat(
      200, jpegSegment('\xE1', "http://ns.adobe.com/xap/1.0/\0"s + std::string(60'000, 'x')) +
               jpegSegment('\xE2', std::string(30'000, 'x')));
  EXPECT_EQ(sizeOf(jpegWith(megabytes)), "none") << "more segments than any camera writes";
  EXPECT_EQ(sizeOf(jpegWith(megabytes.substr(0, megabytes.size() / 4))), "40x30");
}

TEST(ImageMemory, EndlessFillingOfAJpegEnds) {
  EXPECT_EQ(sizeOf("\xFF\xD8\xFF\xE0\0\x04xx"s + std::string(16 << 20, '\xFF')), "none");
  EXPECT_EQ(sizeOf("\xFF\xD8" + repeat(4'000'000, "\xFF\xFE\0\x02"s)), "none");
}

constexpr int kTiffBlack = 1;
const std::string kTiffBasics = tiffShort(256, 40) + tiffShort(257, 30) + tiffShort(258, 8) +
                                tiffShort(259, 1) + tiffShort(262, kTiffBlack) + tiffShort(273, 8) +
                                tiffShort(277, 1) + tiffShort(278, 30) + tiffShort(279, 1'200);

TEST(ImageMemory, TiffEntriesThatShareALargeValueCostLittle) {
  std::string entries = kTiffBasics;
  for (int i = 0; i < 400; ++i) entries += tiffEntry(40'000 + i, 7, 1'000'000, big(0, 4));
  EXPECT_NE(sizeOf(tiffOf(entries) + std::string(1'000'000, 'x')), "30x40");
  std::string doubles = kTiffBasics;
  for (int i = 0; i < 400; ++i) doubles += tiffEntry(40'000 + i, 12, 100'000, big(0, 4));
  EXPECT_NE(sizeOf(tiffOf(doubles) + std::string(1'000'000, 'x')), "30x40");
}

TEST(ImageMemory, TiffOfThousandsOfUnknownEntriesIsNone) {
  std::string entries = kTiffBasics;
  for (int i = 0; i < 4'000; ++i) entries += tiffShort(40'000 + i, 1);
  EXPECT_EQ(sizeOf(tiffOf(entries)), "none");
}

TEST(ImageMemory, TiffDirectoryThatLeadsToItselfIsReadOnce) {
  EXPECT_EQ(sizeOf(tiffOf(kTiffBasics, 8) + std::string(1'200, 'x')), "40x30");
}

TEST(ImageMemory, TiffOfBillionsOfStripsTakesNoTableOfThem) {
  const std::string strips = tiffShort(256, 40) + tiffEntry(257, 4, 1, big(0xFFFFFFFF, 4)) +
                             tiffShort(258, 8) + tiffShort(259, 1) + tiffShort(262, kTiffBlack);
  (void)sizeOf(tiffOf(strips + tiffShort(278, 1)));
  (void)sizeOf(tiffOf(strips + tiffEntry(273, 4, 0xFFFFFFFF, big(8, 4)) + tiffShort(278, 1) +
                      tiffEntry(279, 4, 0xFFFFFFFF, big(8, 4))));
}

TEST(ImageMemory, WebpOfAMillionFramesIsItsHeader) {
  const std::string chunks = "WEBPVP8X"s + little(10, 4) + "\x0A\0\0\0"s + little(39, 3) +
                             little(29, 3) +
                             repeat(1'000'000, "ANMF"s + little(16, 4) + std::string(16, '\0'));
  EXPECT_EQ(sizeOf("RIFF" + little(chunks.size(), 4) + chunks), "40x30");
}

TEST(ImageMemory, GifOfMillionsOfCommentsIsNone) {
  EXPECT_EQ(sizeOf("GIF89a"s + little(40, 2) + little(30, 2) + "\0\0\0"s +
                   repeat(4'000'000, "\x21\xFE\0"s)),
            "none");
}

TEST(ImageMemory, HeicItemsThatShareTheirDataCostNothing) {
  EXPECT_EQ(sizeOf(heic({.exifItems = 900, .dataSize = 1'000'000})), "40x30");
}

TEST(ImageMemory, HeicExtentsWithoutBytesCostNothing) {
  // A million bytes of items. Each has 65,535 extents, whose fields are all 0 bytes wide.
  const std::string places = fullBox(
      "iloc", 0, {std::string(2, '\0'), big(0xFFFF, 2), repeat(0xFFFF, "\0\1\0\0\xFF\xFF"s)});
  const std::string meta = fullBox("meta", 0, {fullBox("pitm", 0, {big(1, 2)}), places});
  EXPECT_EQ(sizeOf(box("ftyp", {"heic", big(0, 4), "mif1heic"}) + meta), "none");
}

}  // namespace
}  // namespace qx
