#include "platform/Url.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

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

// The parts of the examples in RFC 3986, as its sections 1.1.2 and 3 name them.
TEST(Url, NamesItsSchemeAuthorityAndHost) {
  struct Row {
    const char* text;
    const char* scheme;
    std::optional<std::string_view> authority;
    const char* host;
  };
  for (const Row& row :
       {Row{"foo://example.com:8042/over/there?name=ferret#nose", "foo", "example.com:8042",
            "example.com"},
        Row{"urn:example:animal:ferret:nose", "urn", std::nullopt, ""},
        Row{"ldap://[2001:db8::7]/c=GB?objectClass?one", "ldap", "[2001:db8::7]", "2001:db8::7"},
        Row{"telnet://192.0.2.16:80/", "telnet", "192.0.2.16:80", "192.0.2.16"},
        Row{"ftp://cnn.example.com&story=breaking_news@10.0.0.1/top_story.htm", "ftp",
            "cnn.example.com&story=breaking_news@10.0.0.1", "10.0.0.1"},
        Row{"http://me:pw@[::1]:9000", "http", "me:pw@[::1]:9000", "::1"},
        Row{"file:///etc/hosts", "file", "", ""}, Row{"//g?y", "", "g", "g"},
        Row{"../g#s", "", std::nullopt, ""}}) {
    const auto url = Url::parse(row.text);
    ASSERT_TRUE(url) << row.text;
    EXPECT_EQ(url->scheme(), row.scheme) << row.text;
    EXPECT_EQ(url->authority(), row.authority) << row.text;
    EXPECT_EQ(url->host(), row.host) << row.text;
  }
}

TEST(Url, IsOfHttpWithAnAuthorityAlone) {
  for (const char* text : {"http://h", "https://h/p", "http:///p"}) {
    EXPECT_TRUE(Url::parse(text)->isHttp()) << text;
  }
  for (const char* text : {"http:h", "https:/h", "HTTP://h", "ftp://h", "//h", "h"}) {
    EXPECT_FALSE(Url::parse(text)->isHttp()) << text;
  }
}

TEST(AddressParts, AreFoundByTheDelimitersWhateverElseTheAddressHolds) {
  struct Row {
    const char* address;
    const char* scheme;
    const char* authority;
    const char* rest;
  };
  for (const Row& row :
       {Row{"https://me:pw@host:1/a?b#c", "https", "me:pw@host:1", "/a?b#c"},
        Row{"http://host?a/b", "http", "host", "?a/b"}, Row{"http://host#a", "http", "host", "#a"},
        Row{"htps://two words/ x", "htps", "two words", "/ x"},
        Row{"host:1/a?to=http:", "", "host:1", "/a?to=http:"}, Row{"://h", "", "h", ""},
        Row{"http://", "http", "", ""}, Row{"http:///a://b", "http", "", "/a://b"},
        Row{"", "", "", ""}}) {
    const AddressParts parts(row.address);
    EXPECT_EQ(parts.scheme, row.scheme) << row.address;
    EXPECT_EQ(parts.authority, row.authority) << row.address;
    EXPECT_EQ(parts.rest, row.rest) << row.address;
  }
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
