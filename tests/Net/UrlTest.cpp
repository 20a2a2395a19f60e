#include <zq/Net/Url.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using zq::Url;

// The parts as "scheme|host|port|path|query|fragment", "-" for an absent part, an absolute
// path with its "/".
std::string parts(const Url& url) {
  std::string s;
  for (const char* part : {url.scheme(), url.host(), url.port()}) s += std::string(part ? part : "-") + "|";
  s += std::string(url.absolute() ? "/" : "") + (url.path() ? url.path() : "-");
  for (const char* part : {url.query(), url.fragment()}) s += "|" + std::string(part ? part : "-");
  return s;
}

struct Case {
  const char *left, *right;
  bool equal;
};

TEST(UrlTest, SplitsIntoParts) {
  // clang-format off
  const std::pair<const char*, const char*> cases[] = {
      {"http://h:8080/a/b?q#f", "http|h|8080|/a/b|q|f"}, {"http://h?q", "http|h|-|-|q|-"}, {"//h:1", "-|h|1|-|-|-"},
      // The last colon of the host text decides: user and password are not told apart.
      {"http://u:p@h/x", "http|u|p@h|/x|-|-"}, {"http://[::1]/", "http|[:|1]|/|-|-"},
      {"http://[::1]:80/", "http|[::1]|80|/|-|-"},
      // A "#" is part of the path without a host (but for lynxcgi), and in news and data URLs.
      {"news:12#34", "news|-|-|12#34|-|-"}, {"http:x#y", "http|-|-|x#y|-|-"}, {"lynxcgi:x#y", "lynxcgi|-|-|x|-|y"},
      {"http://h/a#b", "http|h|-|/a|-|b"}, {"NEWS://h/a#b?c", "NEWS|h|-|/a#b|c|-"},
      {"data://h/a#b", "data|h|-|/a#b|-|-"}, {"news://h#b", "news|h|-|-|-|b"},  // no path to take the "#"
      // A path that begins with "?" is only a query.
      {"/a/b?q#f", "-|-|-|/a/b|q|f"}, {"?q", "-|-|-|-|q|-"}, {"/?q", "-|-|-|-|q|-"},
      // A scheme ends at the first ":" unless a "/", "?", ";" or "#" comes first.
      {"mailto:x@y", "mailto|-|-|x@y|-|-"}, {"a;b:c", "-|-|-|a;b:c|-|-"}, {"x:", "x|-|-|-|-|-"},
      {"", "-|-|-|-|-|-"}, {"#f", "-|-|-|-|-|f"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const Url url(c.first);
    EXPECT_EQ(c.second, parts(url)) << c.first;
    EXPECT_EQ((url.path() && !url.absolute()) || url.fragment(), url.relative()) << c.first;
  }
}

TEST(UrlTest, ScansOnceAndResetsOnEveryChange) {
  Url url("http://h/a");
  // Scribble on the cached pieces: a second scan would undo it.
  const_cast<char*>(url.scheme())[0] = 'X';
  EXPECT_STREQ("h", url.host());
  EXPECT_STREQ("Xttp", url.scheme());
  EXPECT_EQ("http://h/a", url.str()) << "the text is not the cache";
  const Url copy(url);
  EXPECT_STREQ("http", copy.scheme()) << "a copy scans for itself";

  // Each way of changing the text drops the pieces of the old one.
  url /= "b";
  EXPECT_STREQ("http", url.scheme());
  EXPECT_STREQ("b", url.path());
  url = std::string("gopher://z");
  EXPECT_STREQ("z", url.host());
  url = Url("//w/");
  EXPECT_STREQ("w", url.host());
  url = "http://h/a/b";
  url.relativize("http://h/a/c");
  EXPECT_STREQ("b", url.path());
  url = "h/a b";
  url.escape();
  EXPECT_STREQ("h/a+b", url.path());
  const Url& same = url;
  url = same;
  EXPECT_EQ("h/a+b", url.str()) << "self-assignment keeps the text";

  Url empty;  // no parts, and new ones after a change
  EXPECT_EQ(nullptr, empty.path());
  empty = "x";
  EXPECT_STREQ("x", empty.path());
}

TEST(UrlTest, ResolvesInBothDirections) {
  // `/`: the argument against this URL, like a link in a page.
  EXPECT_EQ("http://h/c", (Url("http://h/a/b") / std::string("../c")).str());
  EXPECT_EQ("http://h/a/b", (Url("http://h/a/b") / "" / static_cast<const char*>(nullptr)).str());
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
  EXPECT_EQ("../b", Url("http://h/a/b").relativize("http://h/a/c/d").str());
  EXPECT_EQ("http://h/a/b", Url("http://h/a/b").relativize("").relativize(nullptr).str());
  EXPECT_EQ("http%3A//h/a+b", Url("http://h/a b").escape().str());
  EXPECT_EQ("a%3Fb%3Dc%26d%23e%C3%A4", Url("a?b=c&d#e\xc3\xa4").escape().str());
  for (const char* valid : {"http://h/", "x", "#f"}) EXPECT_TRUE(Url::validate(valid)) << valid;
  for (const char* invalid : {"http://h", "", "?q"}) EXPECT_FALSE(Url::validate(invalid)) << invalid;
  EXPECT_FALSE(Url::validate(std::string("\0x", 2)));
}

TEST(UrlTest, ComparesTextIgnoringCase) {
  EXPECT_TRUE("http://h/" == Url("HTTP://H/")) << "a text on the left compares as text";
  EXPECT_TRUE(std::string("http://h/") == Url("HTTP://H/"));
  EXPECT_TRUE(Url("a") == Url("A"));
  EXPECT_TRUE(Url() == static_cast<const char*>(nullptr));
  EXPECT_TRUE(Url("a") != static_cast<const char*>(nullptr));
  EXPECT_TRUE(Url(std::string("ab\0c", 4)) == "AB") << "the text ends at its first NUL";
  // clang-format off
  const Case cases[] = {
      {"http://h", "http://h/", false},  // texts are compared, not parts
      // UTF-8 is walked by characters; only ASCII letters fold.
      {"\xc3\xa4X", "\xc3\xa4x", true}, {"\xc3\x84", "\xc3\xa4", false},
      {"\xc1\x81", "a", true},  // a two-byte sequence decodes to its character
      {"a", "a\xc0\x80", true},  // past the end only a character that decodes to 0 matches
      {"a", "ab", false}, {"ab", "a", false},
      // Sequences cut short by the end of the text, and eight-byte lead bytes, stay inside it.
      {"\xff\x80\x80", "\xff\x80\x81", false}, {"\xe2\x82", "\xe2\x82", true},
      // A stray continuation byte decodes to "?" without moving on; on both sides the walk ends.
      {"a\x80\x80z", "A\x80\x80Z", true}, {"a\x80y", "a\x80z", false}, {"\x80", "?", false}, {"?", "\x80", false},
  };
  // clang-format on
  for (const Case& c : cases) EXPECT_EQ(c.equal, Url(c.left) == c.right) << c.left << " vs " << c.right;
}

TEST(UrlTest, HashesLowerCasedTextWithFnv1a) {
  EXPECT_EQ(0xcbf29ce484222325ull, zq::hash_value(Url()));
  EXPECT_EQ(0xaf63dc4c8601ec8cull, zq::hash_value(Url("a")));
  EXPECT_EQ(0x85944171f73967e8ull, zq::hash_value(Url("FooBar")));
  EXPECT_EQ(zq::hash_value(Url("http://h/")), zq::hash_value(Url("HTTP://H/")));
  EXPECT_EQ(zq::hash_value(Url("ab")), zq::hash_value(Url(std::string("ab\0cd", 5))));
}

TEST(UrlTest, ConstructsAndPrintsText) {
  EXPECT_TRUE(Url(static_cast<const char*>(nullptr)).empty() && Url(std::string("\0a", 2)).empty());
  EXPECT_FALSE(Url(" ").empty());
  EXPECT_EQ("http", Url("http://h", 4).str());
  std::ostringstream out;
  out << Url("http://h/a b");
  EXPECT_EQ("http://h/a b", out.str());
}

}  // namespace
