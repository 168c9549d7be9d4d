// The contract of the digests: every implementation yields the published examples.
#include <gtest/gtest.h>

#include <string>

#include "fakes/SimpleDigests.h"
#include "platform/Hex.h"
#include "platforms/shared/OpenSslDigests.h"

namespace qx {
namespace {

template <typename T>
class DigestsContract : public testing::Test {
 protected:
  std::string md5(const std::string& first, const std::string& second = "") {
    const auto digest = digests_.md5();
    digest->update(first);
    digest->update(second);
    return hex(digest->finish());
  }
  T digests_;
};
using Implementations = testing::Types<SimpleDigests, OpenSslDigests>;
TYPED_TEST_SUITE(DigestsContract, Implementations);

TYPED_TEST(DigestsContract, Sha1IsThatPublishedByNist) {
  const auto sha1 = [this](const std::string& text) { return hex(this->digests_.sha1(text)); };
  EXPECT_EQ(sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(sha1("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
  EXPECT_EQ(sha1(std::string(1'000'000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

// The examples of FIPS 180-2.
TYPED_TEST(DigestsContract, Sha256IsThatPublishedByNist) {
  const auto sha256 = [this](const std::string& text) { return hex(this->digests_.sha256(text)); };
  EXPECT_EQ(sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

// RFC 4231, cases 1, 2 and 6.
TYPED_TEST(DigestsContract, HmacSha256IsThatOfRfc4231) {
  const auto hmac = [this](const std::string& key, const std::string& text) {
    return hex(this->digests_.hmacSha256(key, text));
  };
  EXPECT_EQ(hmac(std::string(20, '\x0b'), "Hi There"),
            "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
  EXPECT_EQ(hmac("Jefe", "what do ya want for nothing?"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  EXPECT_EQ(
      hmac(std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First"),
      "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

// RFC 1321, A.5.
TYPED_TEST(DigestsContract, Md5OfPiecesIsThatOfRfc1321) {
  EXPECT_EQ(this->md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(this->md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(this->md5("message", " digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(this->md5("1234567890123456789012345678901234567890",
                      "1234567890123456789012345678901234567890"),
            "57edf4a22be3c955ac49da2e2107b67a");
}

}  // namespace
}  // namespace qx
