#include <zq/Net/Url.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using zq::Url;

std::string show(const char* part) { return part ? std::string("\"") + part + "\"" : "null"; }

struct PartsCase {
  const char* url;
  const char* scheme;
  const char* host;
  const char* port;
  const char* path;
  bool absolute;
  const char* query;
  const char* fragment;
};

TEST(UrlTest, SplitsIntoParts) {
  const PartsCase cases[] = {
      {"http://h:8080/a/b?q#f", "http", "h", "8080", "a/b", true, "q", "f"},
      // The last colon of the host text decides: user and password are not told apart.
      {"http://u:p@h/x", "http", "u", "p@h", "x", true, nullptr, nullptr},
      {"http://[::1]/", "http", "[:", "1]", "", true, nullptr, nullptr},
      {"http://[::1]:80/", "http", "[::1]", "80", "", true, nullptr, nullptr},
      {"http://h?q", "http", "h", nullptr, nullptr, false, "q", nullptr},
      {"//h:1", nullptr, "h", "1", nullptr, false, nullptr, nullptr},
      // A "#" is part of the path without a host (but for lynxcgi), and in news and data URLs.
      {"news:12#34", "news", nullptr, nullptr, "12#34", false, nullptr, nullptr},
      {"http:x#y", "http", nullptr, nullptr, "x#y", false, nullptr, nullptr},
      {"lynxcgi:x#y", "lynxcgi", nullptr, nullptr, "x", false, nullptr, "y"},
      {"http://h/a#b", "http", "h", nullptr, "a", true, nullptr, "b"},
      {"NEWS://h/a#b?c", "NEWS", "h", nullptr, "a#b", true, "c", nullptr},
      {"data://h/a#b", "data", "h", nullptr, "a#b", true, nullptr, nullptr},
      {"news://h#b", "news", "h", nullptr, nullptr, false, nullptr, "b"},  // no path to take the "#"
      // A path that begins with "?" is only a query.
      {"/a/b?q#f", nullptr, nullptr, nullptr, "a/b", true, "q", "f"},
      {"?q", nullptr, nullptr, nullptr, nullptr, false, "q", nullptr},
      {"/?q", nullptr, nullptr, nullptr, nullptr, false, "q", nullptr},
      // A scheme ends at the first ":" unless a "/", "?", ";" or "#" comes first.
      {"mailto:x@y", "mailto", nullptr, nullptr, "x@y", false, nullptr, nullptr},
      {"a;b:c", nullptr, nullptr, nullptr, "a;b:c", false, nullptr, nullptr},
      {"x:", "x", nullptr, nullptr, nullptr, false, nullptr, nullptr},
      {"", nullptr, nullptr, nullptr, nullptr, false, nullptr, nullptr},
      {"#f", nullptr, nullptr, nullptr, nullptr, false, nullptr, "f"},
  };
  for (const PartsCase& c : cases) {
    const Url url(c.url);
    SCOPED_TRACE(c.url);
    EXPECT_EQ(show(c.scheme), show(url.scheme()));
    EXPECT_EQ(show(c.host), show(url.host()));
    EXPECT_EQ(show(c.port), show(url.port()));
    EXPECT_EQ(show(c.path), show(url.path()));
    EXPECT_EQ(c.absolute, url.absolute());
    EXPECT_EQ(show(c.query), show(url.query()));
    EXPECT_EQ(show(c.fragment), show(url.fragment()));
    // Relative means a relative path or a fragment.
    EXPECT_EQ((c.path && !c.absolute) || c.fragment, url.relative());
  }
}

TEST(UrlTest, ScansOnceAndResetsOnEveryChange) {
  Url url("http://h/a");
  // Scribble on the cached pieces: a second scan would undo it.
  char* scheme = const_cast<char*>(url.scheme());
  scheme[0] = 'X';
  EXPECT_STREQ("h", url.host());
  EXPECT_STREQ("Xttp", url.scheme());
  EXPECT_EQ("http://h/a", url.str()) << "the text is not the cache";

  // A copy scans for itself.
  const Url copy(url);
  EXPECT_STREQ("http", copy.scheme());
  EXPECT_NE(copy.host(), url.host());

  // Each way of changing the text drops the pieces of the old one.
  url /= "b";
  EXPECT_STREQ("http", url.scheme());
  EXPECT_STREQ("b", url.path());
  url = "ftp://x/y";
  EXPECT_STREQ("x", url.host());
  url = std::string("gopher://z");
  EXPECT_STREQ("z", url.host());
  url = Url("//w/");
  EXPECT_STREQ("w", url.host());
  url.relativize("//w/v");
  EXPECT_EQ("//w/", url.str());
  url = "h/a b";
  EXPECT_STREQ("h/a b", url.path());
  url.escape();
  EXPECT_STREQ("h/a+b", url.path());

  // An empty URL has no parts, and takes new ones after a change.
  Url empty;
  EXPECT_EQ(nullptr, empty.path());
  empty = "x";
  EXPECT_STREQ("x", empty.path());
  const Url& same = url;
  url = same;
  EXPECT_EQ("h/a+b", url.str()) << "self-assignment keeps the text";
}

TEST(UrlTest, ResolvesInBothDirections) {
  // `/`: the argument against this URL, like a link in a page.
  EXPECT_EQ("http://h/a/c", (Url("http://h/a/b") / "c").str());
  EXPECT_EQ("http://h/c", (Url("http://h/a/b") / std::string("../c")).str());
  EXPECT_EQ("http://h/a/b", (Url("http://h/a/b") / "").str());
  EXPECT_EQ("http://h/a/b", (Url("http://h/a/b") / static_cast<const char*>(nullptr)).str());
  Url url("http://h/a/");
  url /= "b/";
  url /= std::string("c");
  EXPECT_EQ("http://h/a/b/c", url.str());

  // `%`: this URL against the argument, unless it is absolute already.
  EXPECT_EQ("x", (Url() % "x").str());
  EXPECT_EQ("http://h/", (Url("http://h/") % "x").str());
  EXPECT_EQ("http://h/b/a", (Url("a") % "http://h/b/c").str());
  EXPECT_EQ("http://h/b/c?q#f", (Url("#f") % std::string("http://h/b/c?q")).str());
  EXPECT_EQ("a", (Url("a") % "").str());
  EXPECT_EQ("/a", (Url("/a") % "http://h/b").str()) << "an absolute path stays as it is";
  Url relative("../x");
  relative %= "http://h/a/b/c";
  EXPECT_EQ("http://h/a/x", relative.str());
}

TEST(UrlTest, RelativizesEscapesAndValidates) {
  EXPECT_EQ("b", Url("http://h/a/b").relativize("http://h/a/c").str());
  EXPECT_EQ("../b", Url("http://h/a/b").relativize("http://h/a/c/d").str());
  EXPECT_EQ("http://h/a/b", Url("http://h/a/b").relativize("").str());
  EXPECT_EQ("http://h/a/b", Url("http://h/a/b").relativize(nullptr).str());

  EXPECT_EQ("http%3A//h/a+b", Url("http://h/a b").escape().str());
  EXPECT_EQ("a%3Fb%3Dc%26d%23e%C3%A4", Url("a?b=c&d#e\xc3\xa4").escape().str());

  EXPECT_FALSE(Url::validate("http://h"));
  EXPECT_TRUE(Url::validate("http://h/"));
  EXPECT_TRUE(Url::validate("x"));
  EXPECT_TRUE(Url::validate("#f"));
  EXPECT_FALSE(Url::validate(""));
  EXPECT_FALSE(Url::validate("?q"));
  EXPECT_FALSE(Url::validate(std::string("\0x", 2)));
}

TEST(UrlTest, ComparesTextIgnoringCase) {
  EXPECT_TRUE(Url("HTTP://H/") == "http://h/");
  EXPECT_TRUE("http://h/" == Url("HTTP://H/")) << "a text on the left compares as text";
  EXPECT_TRUE(Url("HTTP://H/") == std::string("http://h/"));
  EXPECT_TRUE(std::string("http://h/") == Url("HTTP://H/"));
  EXPECT_TRUE(Url("a") == Url("A"));
  EXPECT_TRUE(Url("http://h") != Url("http://h/")) << "texts are compared, not parts";
  EXPECT_TRUE(Url("http://h/") != "http://h");
  EXPECT_TRUE(Url() == static_cast<const char*>(nullptr));
  EXPECT_TRUE(Url("a") != static_cast<const char*>(nullptr));
  EXPECT_TRUE(Url(std::string("ab\0c", 4)) == "AB") << "the text ends at its first NUL";

  // UTF-8 is walked by characters; only ASCII letters fold.
  EXPECT_TRUE(Url("\xc3\xa4X") == "\xc3\xa4x");
  EXPECT_FALSE(Url("\xc3\x84") == "\xc3\xa4");
  EXPECT_TRUE(Url("\xc1\x81") == "a") << "a two-byte sequence decodes to its character";
  EXPECT_TRUE(Url("a") == "a\xc0\x80") << "past the end only a character that decodes to 0 matches";
  EXPECT_FALSE(Url("a") == "ab");
  EXPECT_FALSE(Url("ab") == "a");
  // Sequences cut short by the end of the text, and eight-byte lead bytes, stay inside it.
  EXPECT_FALSE(Url("\xff\x80\x80") == "\xff\x80\x81");
  EXPECT_TRUE(Url("\xe2\x82") == "\xe2\x82");
  // A stray continuation byte decodes to "?" without moving on; on both sides at once the walk
  // still ends.
  EXPECT_TRUE(Url("a\x80\x80z") == "A\x80\x80Z");
  EXPECT_FALSE(Url("a\x80y") == "a\x80z");
  EXPECT_FALSE(Url("\x80") == "?");
  EXPECT_FALSE(Url("?") == "\x80");
}

TEST(UrlTest, HashesLowerCasedTextWithFnv1a) {
  EXPECT_EQ(0xcbf29ce484222325ull, zq::hash_value(Url()));
  EXPECT_EQ(0xaf63dc4c8601ec8cull, zq::hash_value(Url("a")));
  EXPECT_EQ(0x85944171f73967e8ull, zq::hash_value(Url("FooBar")));
  EXPECT_EQ(zq::hash_value(Url("http://h/")), zq::hash_value(Url("HTTP://H/")));
  EXPECT_EQ(zq::hash_value(Url("ab")), zq::hash_value(Url(std::string("ab\0cd", 5))));
  EXPECT_NE(zq::hash_value(Url("http://h")), zq::hash_value(Url("http://h/")));
}

TEST(UrlTest, ConstructsAndPrintsText) {
  EXPECT_TRUE(Url().empty());
  EXPECT_TRUE(Url(static_cast<const char*>(nullptr)).empty());
  EXPECT_TRUE(Url(std::string("\0a", 2)).empty());
  EXPECT_FALSE(Url(" ").empty());
  EXPECT_EQ("http", Url("http://h", 4).str());
  EXPECT_STREQ("x", static_cast<const char*>(Url("x")));
  std::ostringstream out;
  out << Url("http://h/a b");
  EXPECT_EQ("http://h/a b", out.str());
}

}  // namespace
