#include "s3/StoreError.h"

#include <gtest/gtest.h>

#include "platform/Utf8.h"

namespace qx {
namespace {

HttpAnswer answer(int status, std::string body, HTTPHeaders headers = {}) {
  HttpAnswer said;
  said.status = status;
  said.body = std::move(body);
  said.headers = std::move(headers);
  return said;
}

TEST(StoreError, NamesCodeMessageStatusAndRequestId) {
  const Error error =
      storeError(answer(403,
                        "<?xml version=\"1.0\"?><Error><Code>AccessDenied</Code><Message>Access "
                        "Denied</Message><RequestId>ABC123</RequestId><HostId>h</HostId></Error>"),
                 {});
  EXPECT_EQ(error.domain, "ObjectStore");
  EXPECT_EQ(error.code, 2);
  EXPECT_EQ(error.description, "AccessDenied: Access Denied (HTTP 403, request id ABC123)");
}

TEST(StoreError, CodeFollowsTheFamilyOfTheStatus) {
  EXPECT_EQ(storeError(answer(301, ""), {}).code, 1);
  EXPECT_EQ(storeError(answer(304, ""), {}).code, 1);
  EXPECT_EQ(storeError(answer(400, ""), {}).code, 2);
  EXPECT_EQ(storeError(answer(499, ""), {}).code, 2);
  EXPECT_EQ(storeError(answer(500, ""), {}).code, 3);
  EXPECT_EQ(storeError(answer(599, ""), {}).code, 3);
  EXPECT_EQ(storeError(answer(600, ""), {}).code, 0);
  EXPECT_EQ(storeError(answer(0, ""), {}).code, 0);
}

TEST(StoreError, DescriptionDoesWithoutWhatTheStoreLeavesOut) {
  EXPECT_EQ(storeError(answer(503, ""), {}).description, "HTTP 503");
  EXPECT_EQ(storeError(answer(503, "<html>", {{"x-amz-request-id", "R"}}), {}).description,
            "HTTP 503 (request id R)");
  EXPECT_EQ(storeError(answer(404, "<Error><Code>NoSuchKey</Code></Error>"), {}).description,
            "NoSuchKey (HTTP 404)");
  EXPECT_EQ(
      storeError(answer(403, "<Error><Code>AccessDenied</Code><Message></Message></Error>"), {})
          .description,
      "AccessDenied (HTTP 403)");
}

TEST(StoreError, SecretsThatTheStoreRepeatsAreLeftOut) {
  const Error error =
      storeError(answer(403,
                        "<Error><Code>InvalidAccessKeyId</Code><Message>no AKIDXAMPLEOFALONGKEY "
                        "here, nor tok+en/of/a/session</Message>"
                        "<StringToSign>AKIDXAMPLEOFALONGKEY</StringToSign></Error>"),
                 {"AKIDXAMPLEOFALONGKEY", "secret", "tok+en/of/a/session", ""});
  EXPECT_EQ(error.description, "InvalidAccessKeyId: no ... here, nor ... (HTTP 403)");
}

TEST(XmlElementText, ResolvesEntities) {
  EXPECT_EQ(xmlElementText("<M>&lt;a&gt; &amp;amp; &quot;&apos; &#65;&#x42;&#233;</M>", "M"),
            "<a> &amp; \"' AB\u00e9");
  EXPECT_EQ(xmlElementText("<M>&unknown; &#xD800; &#1114112; & &;</M>", "M"),
            "&unknown; &#xD800; &#1114112; & &;");
}

TEST(XmlElementText, YieldsOneLineOfValidUtf8) {
  EXPECT_EQ(xmlElementText("<M>a\r\nb\x01&#10;c\xff\xc3(\xe2\x82</M>", "M"),
            std::string("a  b  c") + "??" + "(" + "??");
}

TEST(XmlElementText, IsCutBetweenCharacters) {
  EXPECT_EQ(xmlElementText("<M>" + std::string(50000, 'x') + "</M>", "M"), std::string(512, 'x'));
  EXPECT_EQ(xmlElementText("<M>" + std::string(510, 'x') + "\u20acyz</M>", "M"),
            std::string(510, 'x'));
}

TEST(XmlElementText, IsEmptyForGarbage) {
  for (const char* xml : {"", "<M>", "<M>open", "<M><N>x</N></M>", "<M>x</N>", "M>x</M>", "<<<>>>",
                          "<M", "</M>x<M>"}) {
    EXPECT_EQ(xmlElementText(xml, "M"), "") << xml;
  }
}

TEST(StoreError, SecretAcrossTheCutOfALongMessageLeavesNoPartBehind) {
  HttpAnswer answer;
  answer.status = 403;
  const std::string token(1000, 'q');
  answer.body =
      "<Error><Code>X</Code><Message>" + std::string(500, '-') + token + "</Message></Error>";
  EXPECT_EQ(storeError(answer, {token}).description,
            "X: " + std::string(500, '-') + "... (HTTP 403)");
}

TEST(XmlElementText, NoDamageToARecordCrashesTheScanner) {
  const std::string record =
      "<Error><Code>NoSuchKey</Code><Message>&lt;a&#233;\u00e9 &amp; b&gt;</Message></Error>";
  for (std::size_t i = 0; i < record.size(); ++i) {
    (void)xmlElementText(record.substr(0, i), "Message");
    for (int mask = 1; mask < 256; ++mask) {
      std::string flipped = record;
      flipped[i] = static_cast<char>(flipped[i] ^ mask);
      EXPECT_TRUE(isUtf8(xmlElementText(flipped, "Message"))) << i << ' ' << mask;
    }
  }
}

TEST(XmlElementText, LooksNoFurtherThanItsLimit) {
  const std::string far = std::string(64 << 10, ' ') + "<M>x</M>";
  EXPECT_EQ(xmlElementText(far, "M"), "");
}

}  // namespace
}  // namespace qx
