// The contract of a reader of image headers. make-images.py gave the images their sizes and wrote
// these into their names.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "contract/Python.h"
#include "fakes/FakeValues.h"
#include "platforms/shared/CodecImageHeaders.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

struct Sample {
  std::string name;
  double width = 0;
  double height = 0;
};

const Sample kSamples[] = {
    {"png-40x30.png", 40, 30},
    {"jpeg-40x30.jpg", 40, 30},
    {"jpeg-orientation-3-40x30.jpg", 40, 30},
    {"jpeg-orientation-5-30x40.jpg", 30, 40},
    {"jpeg-orientation-6-30x40.jpg", 30, 40},
    {"jpeg-orientation-8-30x40.jpg", 30, 40},
    {"gif-animated-24x18.gif", 24, 18},
    {"webp-40x30.webp", 40, 30},
    {"webp-animated-24x18.webp", 24, 18},
    {"tiff-40x30.tif", 40, 30},
    {"tiff-orientation-6-30x40.tif", 30, 40},
    {"avif-40x30.avif", 40, 30},
    {"heic-40x30.heic", 40, 30},
};

Data fileData(const std::string& name) {
  std::ifstream file(fs::path(QX_SOURCE_DIR) / "tests/contract/data" / name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  return Data(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
}

struct Told {
  Told() {
    for (const Sample& sample : kSamples) {
      headers.add(fileData(sample.name), {sample.width, sample.height});
    }
  }
  FakeImageHeaders headers;
};

struct Decoder {
  CodecImageHeaders headers;
};

template <typename T>
class ImageHeadersContract : public testing::Test {
 protected:
  ImageHeaders& headers() { return underTest_.headers; }

 private:
  T underTest_;
};

using Implementations = testing::Types<Told, Decoder>;
TYPED_TEST_SUITE(ImageHeadersContract, Implementations);

TYPED_TEST(ImageHeadersContract, SizeIsTheOneAViewerShows) {
  for (const Sample& sample : kSamples) {
    const auto size = this->headers().size(fileData(sample.name));
    ASSERT_TRUE(size) << sample.name;
    EXPECT_EQ(size->width, sample.width) << sample.name;
    EXPECT_EQ(size->height, sample.height) << sample.name;
  }
}

TYPED_TEST(ImageHeadersContract, BytesThatAreNoImageHaveNoSize) {
  for (const char* text :
       {"", "no image", "\xFF\xD8\xFF", "\x89PNG\r\n\x1A\n", "GIF89a", "RIFF", "RIFFxxxxWEBP", "MM",
        "    ftyp", "    ftypheic", "<svg/>", "%PDF-1.4"}) {
    EXPECT_FALSE(this->headers().size(Data(text))) << text;
  }
}

// ---- What only the real reader has to do

TEST(CodecImageHeaders, NeverDecodesThePixels) {
  // A PNG of 20,000 x 20,000 pixels with all its rows, which are equal. Decoded it would fill 1.2
  // GB.
  const std::string script = R"(
import struct, sys, zlib
def chunk(kind, body):
    return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
size, parts = 20000 * 60001, 20  # each row a filter byte and 60,000 bytes, all of them zero
packer = zlib.compressobj(9, zlib.DEFLATED, -15)
part = packer.compress(bytes(size // parts)) + packer.flush(zlib.Z_FULL_FLUSH)
rows = b"\x78\xda" + part * parts + b"\x03\0" + struct.pack(">I", (size % 65521) << 16 | 1)
open(sys.argv[2], "wb").write(b"\x89PNG\r\n\x1a\n"
    + chunk(b"IHDR", struct.pack(">IIBBBBB", 20000, 20000, 8, 2, 0, 0, 0))
    + chunk(b"IDAT", rows) + chunk(b"IEND", b""))
)";
  const Data image{runPython(script, "")};
  CodecImageHeaders headers;
  ASSERT_TRUE(headers.size(fileData("png-40x30.png"))) << "sets the library up";
  const auto begin = std::chrono::steady_clock::now();
  const auto size = headers.size(image);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 20000);
  EXPECT_EQ(size->height, 20000);
  // Decoding would take seconds. Reading the header takes milliseconds, also on a busy machine.
  EXPECT_LT(took.count(), 0.2);
}

TEST(CodecImageHeaders, NoDamageToAnImageCrashesTheReader) {
  CodecImageHeaders headers;
  for (const Sample& sample : kSamples) {
    const std::string whole(fileData(sample.name).text());
    const std::size_t step = 1 + whole.size() / 200;
    for (std::size_t i = 0; i < whole.size(); i += step) {
      (void)headers.size(Data(whole.substr(0, i)));
      std::string flipped = whole;
      flipped[i] = static_cast<char>(flipped[i] ^ 0xFF);
      (void)headers.size(Data(flipped));
    }
  }
}

TEST(CodecImageHeaders, WritesNothingToStandardError) {
  testing::internal::CaptureStderr();
  CodecImageHeaders headers;
  const std::string whole(fileData("jpeg-40x30.jpg").text());
  EXPECT_FALSE(headers.size(Data(whole.substr(0, 30))));
  (void)headers.size(Data(whole.substr(0, whole.size() / 2)));
  const std::string tiff(fileData("tiff-40x30.tif").text());
  (void)headers.size(Data(tiff.substr(0, tiff.size() / 2)));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace qx
