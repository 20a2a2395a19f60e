#include <zq/Net/HTParse.h>
#include <zq/Net/Url.h>
#include <zq/Net/internal/HTScan.h>

#include "tests/support/RandomText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Takes a buffer of the parser over into a string.
std::string take(char* buffer) {
  EXPECT_NE(nullptr, buffer);
  std::string text(buffer ? buffer : "<null>");
  std::free(buffer);
  return text;
}

std::string parse(const char* given, const char* related, int mask = zq::HT_ALL) {
  return take(zq::HTParse(given, related, mask));
}
std::string relative(const char* name, const char* related) { return take(zq::HTRelative(name, related)); }
std::string escape(const std::string& text, unsigned char mask) { return take(zq::HTEscape(text.c_str(), mask)); }
std::string collapse(std::string path) {
  zq::internal::HTCollapse(&path[0]);
  return path.c_str();
}

struct Case {
  const char* given;
  const char* related;
  const char* expected;
};

TEST(HTParseTest, ResolvesWholeUrls) {
  // clang-format off
  const Case cases[] = {
      // A bare host gets its root path.
      {"http://h", "", "http://h/"}, {"http://h?q", "", "http://h/?q"},
      // Relative references are siblings of the base's last segment.
      {"c", "http://h/a/b", "http://h/a/c"}, {"../c", "http://h/a/b", "http://h/c"},
      {"./c/../d", "http://h/a/b", "http://h/a/d"}, {"/c", "http://h/a/b", "http://h/c"},
      {"//x/y", "http://h/a", "http://x/y"}, {"", "http://h/a/b?q#f", "http://h/a/b?q#f"},
      // The base's query is inherited, its fragment only on the same host.
      {"#f", "http://h/a?q", "http://h/a?q#f"}, {"c", "http://h/a/b?q", "http://h/a/c?q"},
      {"c?mine", "http://h/a/b?q", "http://h/a/c?mine"}, {"//x/y", "http://h/a?q#f", "http://x/y?q"},
      {"//h/y", "http://h/a?q#f", "http://h/y?q#f"},
      // Nothing is inherited across schemes.
      {"ftp:x", "http://h/a/b?q#f", "ftp:x"}, {"x", "ftp://h/a", "ftp://h/x"},
      // Ports: the default one goes, compared exactly; a port that is no number goes too.
      {"http://h:80/", "", "http://h/"}, {"https://h:443/x", "", "https://h/x"},
      {"https://h:80/x", "", "https://h:80/x"}, {"snews://h:563/x", "", "snews://h/x"},
      {"rlogin://h:513", "", "rlogin://h/"}, {"http://h:8080/", "", "http://h:8080/"},
      {"http://h:abc/", "", "http://h/"}, {"HTTP://h:80/", "", "HTTP://h:80/"}, {"x", "http://h:80/a", "http://h/x"},
      // A trailing dot of the host goes, before a port too.
      {"http://a.b./x", "", "http://a.b/x"}, {"http://a.b.:8080/", "", "http://a.b:8080/"},
      {"http://a.b.:80/", "", "http://a.b/"},
      // User and password: the host text starts behind "@".
      {"http://u:p@h/x", "", "http://u:p@h/x"}, {"http://u:p@h:80/x", "", "http://u:p@h/x"},
      {"http://u@h.:81/x", "", "http://u@h:81/x"},
      // The first colon of the host text decides, so a bracketed address loses its tail.
      {"http://[::1]:80/", "", "http://[/"},
      // News: article names have no leading slash but count as absolute; no collapsing.
      {"news:12#34", "", "news:12#34"}, {"news:", "", "news:*"}, {"a/../b", "news://h/x", "news://h/a/../b"},
      {"a/../b", "news:x", "news:a/../b"}, {"12@host", "nntp://h/group", "nntp://h/12@host"},
      {"12@host", "http://h/group/a", "http://h/group/12@host"},
      // The lynx schemes get no closing slash; only lynxcgi keeps a fragment without a host.
      {"lynxexec:", "", "lynxexec:"}, {"LYNXPROG:", "", "LYNXPROG:"}, {"lynxcgi:x#y", "", "lynxcgi:x#y"},
      {"mailto:", "", "mailto:/"},
      // Text is never decoded.
      {"%41/../b", "http://h/%2E/a", "http://h/%2E/b"},
  };
  // clang-format on
  for (const Case& c : cases) EXPECT_EQ(c.expected, parse(c.given, c.related)) << c.given << " against " << c.related;
  // Null texts count as empty.
  EXPECT_EQ("/", parse(nullptr, nullptr));
  EXPECT_EQ("http://h/", parse(nullptr, "http://h"));
}

TEST(HTParseTest, WritesOnlyWhatTheMaskSelects) {
  using namespace zq;
  const int P = HT_PUNCTUATION;
  const std::pair<int, std::vector<const char*>> cases[] = {
      // clang-format off
      {HT_SCHEME, {"", "http"}}, {HT_SCHEME | P, {"", "http:"}}, {HT_HOST, {"", "h:8080"}},
      {HT_HOST | P, {"", "//h:8080"}}, {HT_SCHEME | HT_HOST | P, {"", "http://h:8080"}}, {0, {"", ""}},
      // An inherited path always gets its slash; the given one only with punctuation.
      {HT_PATH, {"", "/a/b", "x", "/a/x", "/x", "x"}}, {HT_PATH | P, {"/x", "/x"}}, {HT_PATH_ONLY, {"", "/a/b"}},
      // The query brings the path with it; HT_PATH_ONLY with it means the path and the query.
      {HT_QUERY, {"", "/a/bq"}}, {HT_QUERY | P, {"", "/a/b?q", "?", "/a/b?q"}}, {HT_PATH_ONLY | HT_QUERY | P, {"", "/a/b?q"}},
      {HT_FRAGMENT, {"", "f"}}, {HT_FRAGMENT | P, {"", "#f", "#", "#f", "#g", "#g"}},
      // The dot rules look at the result: with an empty host and no "//", the scheme's dot goes.
      {HT_SCHEME | HT_HOST, {"x.://", "x", "x.://:81", "x:81"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    for (size_t i = 0; i < c.second.size(); i += 2) {
      EXPECT_EQ(c.second[i + 1], parse(c.second[i], "http://h:8080/a/b?q#f", c.first))
          << c.second[i] << ", " << c.first;
    }
  }
}

TEST(HTParseTest, CollapseGuardsAndRules) {
  // Unchanged: too short or no slash; a "?" among the first three characters; the walk starts
  // at the third character; no segment to climb over, or only ".."; the closing rule's guards.
  for (const char* text : {"", "/", "a", "abc", "a..b", "?/../x", "a?/../x", "ab?/../x", "a/..", "/..", "..", "../../x",
                           "x/../../y", "http://h/../x", "//..?x", "./..?x", "../..?x", "/..?x"}) {
    EXPECT_EQ(text, collapse(text));
  }
  // clang-format off
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b/../c", "/a/c"}, {"/a/./b", "/a/b"}, {"/a/.", "/a/"}, {"/a/b/..", "/a"}, {"/a/b/../../c", "/c"},
      {"/a/b/c/./../../d", "/a/d"}, {"/a/./?x", "/a/?x"}, {"/a/.?x", "/a/?x"}, {"/a/b/..?x", "/a?x"},
      {"/a/b/../c?x/../y", "/a/c?x/../y"},  // nothing behind the "?" is touched
      {"http://h/a/../../x", "http://h/../x"}, {"a//../x", "a/x"},  // a host's slash is never climbed over
      {"//h/../x", "//x"},  // but the slash at the very start does not protect
      {"a/.?x", "a/?x"}, {"a/..?x", "?x"}, {"ab/..?x", "?x"}, {"http://h/..?x", "http://?x"},  // closing rule
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(c.second, collapse(c.first)) << c.first;
  zq::internal::HTCollapse(nullptr);  // must not crash
}

TEST(HTRelativeTest, CountsCommonSlashes) {
  // clang-format off
  const Case cases[] = {
      // Fewer than three: from behind the scheme; three: from the root; more: a sibling, and one
      // level up per further slash of the related text, counted up to its "#" but through its "?".
      {"http://a/x", "http://b/y", "//a/x"}, {"mailto:a", "mailto:b", "a"}, {"http://h/a/b", "http://h/x/y/z", "/a/b"},
      {"http://h/a/b", "http://h/a/c", "b"}, {"http://h/a/b", "http://h/a/b", "b"},
      {"http://h/a/b", "http://h/a/c/d", "../b"}, {"http://h/a/b/c/x", "http://h/a/b/c/y/z/w", "../../x"},
      {"http://h/a/", "http://h/a/b/c", "../"}, {"http://h/a/b", "http://h/a/c/", "../b"},
      {"http://h/a/b", "http://h/a/c/d#e/f", "../b"}, {"http://h/a/b", "http://h/a/c/d?e/f", "../../b"},
      // No common colon: unchanged.
      {"http://h/a/b", "ftp://h/a/b", "http://h/a/b"}, {"a/b", "a/c", "a/b"}, {"", "http://h/", ""},
  };
  // clang-format on
  for (const Case& c : cases) EXPECT_EQ(c.expected, relative(c.given, c.related)) << c.given << " to " << c.related;
  EXPECT_EQ("", relative(nullptr, nullptr));
}

TEST(HTEscapeTest, KeepsWhatTheMaskAllowsAndEscapesTheRest) {
  const std::string text = "aZ09*-.@_+/: ~%";
  EXPECT_EQ("aZ09*-.@_%2B%2F%3A+%7E%25", escape(text, 1));
  EXPECT_EQ("aZ09*-.@_+%2F%3A+%7E%25", escape(text, 2));
  EXPECT_EQ("aZ09*-.@_+/%3A+%7E%25", escape(text, 4));
  EXPECT_EQ("%61%5A%30%39%2A%2D%2E%40%5F%2B%2F%3A+%7E%25", escape(text, 0));  // a blank is always "+"
  // Control characters, DEL and bytes from 0x80 on belong to no class.
  EXPECT_EQ("%01%1F%7F%80%C3%A4%FF", escape("\x01\x1f\x7f\x80\xc3\xa4\xff", 0xFF));
  EXPECT_EQ("", take(zq::HTEscape(nullptr, 7)));
}

// Random and mutated texts through every entry point: each must give a result, within the
// bounds its rules allow, without a crash (run under the sanitizers).
TEST(HTParseRobustnessTest, RandomAndMutatedInputs) {
  zq::test::RandomText random(
      {"http://u:p@h.example.:8080/a/./b/../c?q=1#f", "news:12@host#34", "lynxcgi:/x#y", "//h/a?b#c", "ftp://[::1]:21",
       "../../x/./y?", "#", "?", "", ":", "///", "snews://h:563/g", "data:x#y", "a;b:c/d"},
      ":/?#;@.%[]/../ab", 2024);
  for (int i = 0; i < 150000; ++i) {
    const std::string given = random.next(), related = random.next();
    const int mask = i % 128;
    ASSERT_LE(parse(given.c_str(), related.c_str(), mask).size(), given.size() + related.size() + 8)
        << given << " | " << related << " | " << mask;
    relative(given.c_str(), related.c_str());
    ASSERT_LE(escape(given, static_cast<unsigned char>(mask)).size(), 3 * given.size());

    zq::Url url(given);
    url.scheme(), url.host(), url.port(), url.path(), url.query(), url.fragment();
    zq::Url resolved = url / related;
    resolved %= given;
    zq::Url(given).relativize(related.c_str());
    zq::Url::validate(given);
    EXPECT_EQ(url == related, zq::Url(related) == given);
    (void)zq::hash_value(resolved);
  }
}

TEST(HTParseRobustnessTest, LongAndOddTexts) {
  // A megabyte of dot segments collapses in one pass, not one shift per segment.
  std::string longPath = "x/";
  while (longPath.size() < (1u << 20)) longPath += "a/./../";
  EXPECT_EQ("http://h/d/x/", parse(longPath.c_str(), "http://h/d/e"));
  const std::string longHost = "http://" + std::string(1u << 20, 'h') + ":80";
  EXPECT_EQ(longHost.size() - 3 + 1, parse(longHost.c_str(), "").size());
  const size_t slashes = static_cast<size_t>(std::count(longPath.begin(), longPath.end(), '/'));
  EXPECT_EQ(longPath.size() + 2 * slashes, escape(longPath, 1).size());
  EXPECT_EQ(longPath.substr(2), relative(("http://h/" + longPath).c_str(), "http://h/x/y"));
}

}  // namespace
