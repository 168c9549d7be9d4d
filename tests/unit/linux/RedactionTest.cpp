// The forms of a secret that are found in a foreign text. The encoded forms were made with Python's
// urllib.parse and base64.
#include "http/Redaction.h"

#include <gtest/gtest.h>

#include <string>

namespace qx {
namespace {

// The secret has more than sixteen bytes. Encodings differ in "+", "/" and "=".
const std::string kSecret = "FwoGZXIvYXdzE+/abc==?>~tail";

std::string cleaned(const std::string& text) {
  return withoutSecrets(text, {kSecret});
}

TEST(Redaction, SecretIsLeftOutWhereverItStands) {
  EXPECT_EQ(cleaned(kSecret), "...");
  EXPECT_EQ(cleaned("bad " + kSecret + ", really: " + kSecret + "!"), "bad ..., really: ...!");
  EXPECT_EQ(cleaned(kSecret + kSecret), "......");
}

TEST(Redaction, PercentEncodedSecretIsLeftOut) {
  EXPECT_EQ(cleaned("a=FwoGZXIvYXdzE%2B%2Fabc%3D%3D%3F%3E~tail&b"), "a=...&b");
  EXPECT_EQ(cleaned("a=FwoGZXIvYXdzE%2b%2fabc==%3f%3e%7etail&b"), "a=...&b") << "in any way";
  EXPECT_EQ(cleaned("a=%46%77oGZXIvYXdzE+/abc%3D=?>~tail%20b"), "a=...%20b");
}

TEST(Redaction, SecretThatHoldsPercentSignsIsLeftOut) {
  const std::string_view secret = "100%25sure%20of%2Fwhatever";
  EXPECT_EQ(withoutSecrets("is 100%25sure%20of%2Fwhatever here", {secret}), "is ... here");
  EXPECT_EQ(withoutSecrets("is 100%2525sure%2520of%252Fwhatever here", {secret}), "is ... here");
}

TEST(Redaction, Base64OfASecretIsLeftOutWhateverStandsInFrontOfIt) {
  // base64 of the secret, of "u:" and the secret, and of "x" and the secret, each followed by ":z".
  EXPECT_EQ(cleaned("v RndvR1pYSXZZWGR6RSsvYWJjPT0/Pn50YWlsOno= w"), "v ...Ono= w");
  EXPECT_EQ(cleaned("v dTpGd29HWlhJdllYZHpFKy9hYmM9PT8+fnRhaWw6eg== w"), "v dTp...w6eg== w");
  EXPECT_EQ(cleaned("v eEZ3b0daWEl2WVhkekUrL2FiYz09Pz5+dGFpbDp6 w"), "v eE...Dp6 w");
  EXPECT_EQ(cleaned("v RndvR1pYSXZZWGR6RSsvYWJjPT0_Pn50YWlsOno w"), "v ...Ono w")
      << "in the alphabet of URLs";
  EXPECT_EQ(cleaned("v RndvR1pYSXZZWGR6RSsvYWJjPT0%2FPn50YWlsOno%3D w"), "v ...Ono%3D w")
      << "percent-encoded on top of it";
}

TEST(Redaction, SecretThatIsCutShortIsLeftOutFromSixteenBytes) {
  EXPECT_EQ(cleaned("bad " + kSecret.substr(0, 20)), "bad ...");
  EXPECT_EQ(cleaned("bad " + kSecret.substr(0, 16)), "bad ...");
  EXPECT_EQ(cleaned("bad " + kSecret.substr(0, 18) + " (cut)"), "bad ... (cut)");
  EXPECT_EQ(cleaned("bad " + kSecret.substr(0, 15)), "bad " + kSecret.substr(0, 15));
}

TEST(Redaction, ShortSecretEatsNoText) {
  EXPECT_EQ(withoutSecrets("password is wrong", {"password", "wrong", "is", ""}),
            "password is wrong");
  EXPECT_EQ(withoutSecrets("fifteen letters", {"fifteen letters"}), "fifteen letters");
  EXPECT_EQ(withoutSecrets("sixteen letters.", {"sixteen letters."}), "...");
}

TEST(Redaction, OtherTextStaysAsItIs) {
  for (const std::string text :
       {"", "%", "%4", "100%", "50%25 of it%zz", "\xC3\xA9 and \xFF, all of them as they came",
        "FwoGZXIvYXdzE.../abc, which only looks like it"}) {
    EXPECT_EQ(cleaned(text), text);
  }
}

TEST(SecretsInForce, HoldsASecretAsLongAsAnyHolderLives) {
  const std::string text = "it says " + kSecret;
  EXPECT_EQ(SecretsInForce::leftOutOf(text, {}), text);
  {
    const SecretsInForce::Holder first({kSecret, kSecret});
    {
      const SecretsInForce::Holder second({kSecret});
      EXPECT_EQ(SecretsInForce::leftOutOf(text, {}), "it says ...");
    }
    EXPECT_EQ(SecretsInForce::leftOutOf(text, {}), "it says ...");
  }
  EXPECT_EQ(SecretsInForce::leftOutOf(text, {}), text);
  EXPECT_EQ(SecretsInForce::leftOutOf(text, {kSecret}), "it says ...");
}

}  // namespace
}  // namespace qx
