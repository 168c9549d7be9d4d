#include "platform/Url.h"

#include <gtest/gtest.h>

#include <string>

namespace qx {
namespace {

TEST(Url, AcceptsEveryFormOfReference) {
  // The examples of RFC 3986, section 1.1.2, and of its relative references.
  for (const char* text : {"ftp://ftp.is.co.za/rfc/rfc1808.txt",
                           "http://www.ietf.org/rfc/rfc2396.txt",
                           "ldap://[2001:db8::7]/c=GB?objectClass?one",
                           "mailto:John.Doe@example.com",
                           "news:comp.infosystems.www.servers.unix",
                           "tel:+1-816-555-1212",
                           "telnet://192.0.2.16:80/",
                           "urn:isbn:0-395-36341-1",
                           "//g",
                           "/g",
                           "g",
                           "./g:h",
                           "?y",
                           "g?y#s",
                           "#s",
                           ";x",
                           "..",
                           "http:g",
                           "file:///etc/hosts",
                           "http://user:pw@host:8080/p",
                           "http://host:/p",
                           "http://h/a%20b?c=%C3%A9",
                           "http://[::1]:9000/b",
                           "http://[v1.x:y]/",
                           "http://[::ffff:192.0.2.1]/"}) {
    const auto url = Url::parse(text);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->text(), text);
  }
}

TEST(Url, AcceptsUtf8OutsideAscii) {
  EXPECT_TRUE(Url::parse("https://h/f\xC3\xBC/\xF0\x9F\x93\xB7.jpg"));
}

TEST(Url, RefusesWhatIsNoReference) {
  for (const std::string& text : {std::string(),
                                  std::string("http://h/a b"),
                                  std::string("http://h/a\tb"),
                                  std::string("http://h/a\nb"),
                                  std::string("http://h/a\0b", 12),
                                  std::string("http://h/%"),
                                  std::string("http://h/%4"),
                                  std::string("http://h/%zz"),
                                  std::string("1http://h/"),
                                  std::string(":x"),
                                  std::string("a b:c"),
                                  std::string("http://h:80a/"),
                                  std::string("http://[::1/"),
                                  std::string("http://[1::2::3]/"),
                                  std::string("http://[1:2:3:4:5:6:7:8:9]/"),
                                  std::string("http://[12345::]/"),
                                  std::string("http://[]/"),
                                  std::string("http://a[b/"),
                                  std::string("http://h/<x>"),
                                  std::string("http://h/\"x\""),
                                  std::string("http://h/a\\b"),
                                  std::string("http://h/{x}"),
                                  std::string("http://h/^"),
                                  std::string("http://h/`"),
                                  std::string("http://h/|"),
                                  std::string("http://h/a#b#c"),
                                  std::string("http://h/\xFF"),
                                  std::string("http://h/\xC2\x85"),
                                  std::string("http://h/\x7F"),
                                  std::string("http://h/[x]")}) {
    EXPECT_FALSE(Url::parse(text)) << text;
  }
}

TEST(Url, PathIsWhatStandsBetweenAuthorityAndQuery) {
  const auto path = [](const char* text) { return std::string(Url::parse(text)->path()); };
  EXPECT_EQ(path("http://h/a/b%2Fc?d/e#f/g"), "/a/b%2Fc");
  EXPECT_EQ(path("http://h"), "");
  EXPECT_EQ(path("http://h?a"), "");
  EXPECT_EQ(path("mailto:a@b"), "a@b");
  EXPECT_EQ(path("a/b"), "a/b");
  EXPECT_EQ(path("file:///x/y"), "/x/y");
}

TEST(Url, LastPathComponentIsDecodedAndIgnoresTrailingSlashes) {
  const auto last = [](const char* text) { return Url::parse(text)->lastPathComponent(); };
  EXPECT_EQ(last("http://h/a/b.jpg"), "b.jpg");
  EXPECT_EQ(last("http://h/a/b.jpg//?q=1/2"), "b.jpg");
  EXPECT_EQ(last("http://h/a/b%20c%2Fd.jpg"), "b c/d.jpg");
  EXPECT_EQ(last("http://h/"), "");
  EXPECT_EQ(last("http://h"), "");
  EXPECT_EQ(last("b.jpg"), "b.jpg");
  EXPECT_EQ(last("http://h/.."), "..");
}

TEST(Url, FileUrlsKeepEveryByteOfThePath) {
  for (const std::string& path :
       {std::string("/tmp/a b"), std::string("/tmp/100%/#1?.jpg"), std::string("/tmp/\xC3\xBC\xFF"),
        std::string("/a+b/(c)/d;e=f"), std::string("/tmp/a\\b\n")}) {
    const Url url = Url::file(path);
    EXPECT_EQ(url.decodedPath(), path);
    const auto parsed = Url::parse(url.text());
    ASSERT_TRUE(parsed) << url.text();
    EXPECT_EQ(parsed->decodedPath(), path);
    EXPECT_TRUE(*parsed == url);
  }
  EXPECT_EQ(Url::file("/tmp/a b").text(), "file:///tmp/a%20b");
}

TEST(Url, NoDamageToATextCrashesTheParser) {
  const std::string sample = "http://u:p@[2001:db8::7%]:80/a%20b/\xC3\xBC?c=%C3%A9#f";
  for (std::size_t i = 0; i < sample.size(); ++i) {
    for (int mask = 0; mask < 256; ++mask) {
      std::string changed = sample;
      changed[i] = static_cast<char>(changed[i] ^ mask);
      for (const std::string& text : {changed, changed.substr(0, i + 1), changed.substr(i)}) {
        const auto url = Url::parse(text);
        if (!url) continue;
        EXPECT_EQ(url->text(), text);
        EXPECT_LE(url->lastPathComponent().size(), url->decodedPath().size());
      }
    }
  }
}

}  // namespace
}  // namespace qx
