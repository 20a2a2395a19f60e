#include <zq/Net/HTParse.h>
#include <zq/Net/Url.h>
#include <zq/Net/internal/HTScan.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// Takes a buffer of the parser over into a string.
std::string take(char* buffer) {
  EXPECT_NE(nullptr, buffer);
  if (!buffer) return "<null>";
  std::string text(buffer);
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

struct ParseCase {
  const char* given;
  const char* related;
  const char* expected;
};

TEST(HTParseTest, ResolvesWholeUrls) {
  const ParseCase cases[] = {
      // A bare host gets its root path, by the empty default path or by the closing "/".
      {"http://h", "", "http://h/"},
      {"gopher://h", "", "gopher://h/"},
      {"http://h?q", "", "http://h/?q"},
      // Relative references are siblings of the base's last segment.
      {"c", "http://h/a/b", "http://h/a/c"},
      {"../c", "http://h/a/b", "http://h/c"},
      {"./c/../d", "http://h/a/b", "http://h/a/d"},
      {"/c", "http://h/a/b", "http://h/c"},
      {"//x/y", "http://h/a", "http://x/y"},
      {"", "http://h/a/b?q#f", "http://h/a/b?q#f"},
      // The base's query is inherited, its fragment only on the same host.
      {"#f", "http://h/a?q", "http://h/a?q#f"},
      {"c", "http://h/a/b?q", "http://h/a/c?q"},
      {"c?mine", "http://h/a/b?q", "http://h/a/c?mine"},
      {"//x/y", "http://h/a?q#f", "http://x/y?q"},
      {"//h/y", "http://h/a?q#f", "http://h/y?q#f"},
      // Nothing is inherited across schemes.
      {"ftp:x", "http://h/a/b?q#f", "ftp:x"},
      {"x", "ftp://h/a", "ftp://h/x"},
      // Ports: the default one goes, compared exactly; a port that is no number goes too.
      {"http://h:80/", "", "http://h/"},
      {"https://h:443/x", "", "https://h/x"},
      {"https://h:80/x", "", "https://h:80/x"},
      {"snews://h:563/x", "", "snews://h/x"},
      {"rlogin://h:513", "", "rlogin://h/"},
      {"http://h:8080/", "", "http://h:8080/"},
      {"http://h:abc/", "", "http://h/"},
      {"http://h:/", "", "http://h/"},
      {"HTTP://h:80/", "", "HTTP://h:80/"},
      {"x", "http://h:80/a", "http://h/x"},
      // A trailing dot of the host goes, before a port too.
      {"http://a.b./x", "", "http://a.b/x"},
      {"http://a.b.:8080/", "", "http://a.b:8080/"},
      {"http://a.b.:80/", "", "http://a.b/"},
      // User and password: the host text starts behind "@".
      {"http://u:p@h/x", "", "http://u:p@h/x"},
      {"http://u:p@h:80/x", "", "http://u:p@h/x"},
      {"http://u@h.:81/x", "", "http://u@h:81/x"},
      // The first colon of the host text decides, so a bracketed address loses its tail.
      {"http://[::1]:80/", "", "http://[/"},
      // News: article names have no leading slash but count as absolute; no collapsing.
      {"news:12#34", "", "news:12#34"},
      {"news:", "", "news:*"},
      {"a/../b", "news://h/x", "news://h/a/../b"},
      {"a/../b", "news:x", "news:a/../b"},
      {"12@host", "nntp://h/group", "nntp://h/12@host"},
      {"12@host", "http://h/group/a", "http://h/group/12@host"},
      // The lynx schemes get no closing slash; only lynxcgi keeps a fragment without a host.
      {"lynxexec:", "", "lynxexec:"},
      {"LYNXPROG:", "", "LYNXPROG:"},
      {"lynxcgi:x#y", "", "lynxcgi:x#y"},
      {"mailto:", "", "mailto:/"},
      // Text is never decoded.
      {"%41/../b", "http://h/%2E/a", "http://h/%2E/b"},
  };
  for (const ParseCase& c : cases) {
    EXPECT_EQ(c.expected, parse(c.given, c.related)) << "given \"" << c.given << "\", related \"" << c.related << "\"";
  }
  // Null texts count as empty.
  EXPECT_EQ("/", parse(nullptr, nullptr));
  EXPECT_EQ("http://h/", parse(nullptr, "http://h"));
}

TEST(HTParseTest, WritesOnlyWhatTheMaskSelects) {
  using namespace zq;
  const char* base = "http://h:8080/a/b?q#f";
  struct MaskCase {
    const char* given;
    int mask;
    const char* expected;
  };
  const MaskCase cases[] = {
      {"", HT_SCHEME, "http"},
      {"", HT_SCHEME | HT_PUNCTUATION, "http:"},
      {"", HT_HOST, "h:8080"},
      {"", HT_HOST | HT_PUNCTUATION, "//h:8080"},
      {"", HT_SCHEME | HT_HOST | HT_PUNCTUATION, "http://h:8080"},
      // An inherited path always gets its slash; the given one only with punctuation.
      {"", HT_PATH, "/a/b"},
      {"x", HT_PATH, "/a/x"},
      {"/x", HT_PATH, "x"},
      {"/x", HT_PATH | HT_PUNCTUATION, "/x"},
      {"", HT_PATH_ONLY, "/a/b"},
      // The query brings the path with it; HT_PATH_ONLY with it means the path and the query.
      {"", HT_QUERY, "/a/bq"},
      {"", HT_QUERY | HT_PUNCTUATION, "/a/b?q"},
      {"", HT_PATH_ONLY | HT_QUERY | HT_PUNCTUATION, "/a/b?q"},
      {"?", HT_QUERY | HT_PUNCTUATION, "/a/b?q"},
      {"", HT_FRAGMENT, "f"},
      {"", HT_FRAGMENT | HT_PUNCTUATION, "#f"},
      {"#", HT_FRAGMENT | HT_PUNCTUATION, "#f"},
      {"#g", HT_FRAGMENT | HT_PUNCTUATION, "#g"},
      // The dot rules look at the result: with an empty host and no "//", the scheme's dot goes.
      {"x.://", HT_SCHEME | HT_HOST, "x"},
      {"x.://:81", HT_SCHEME | HT_HOST, "x:81"},
      {"", 0, ""},
  };
  for (const MaskCase& c : cases) {
    EXPECT_EQ(c.expected, parse(c.given, base, c.mask)) << "given \"" << c.given << "\", mask " << c.mask;
  }
}

TEST(HTParseTest, CollapseKeepsGuardedTextsUnchanged) {
  const char* unchanged[] = {
      "",
      "/",
      "a",
      "abc",
      "a..b",  // too short, or no slash
      "?/../x",
      "a?/../x",
      "ab?/../x",  // a "?" among the first three characters
      "a/..",
      "/..",
      "..",  // the walk starts at the third character
      "../../x",
      "x/../../y",  // no segment to climb over, or only ".."
      "http://h/../x",
      "http://h/a/../../x",  // the slash before "/.." belongs to the host
      "//..?x",
      "./..?x",
      "../..?x",
      "/..?x",  // closing rule: host marker, dot segments, too short
  };
  for (const char* text : unchanged) {
    const std::string expected = text == std::string("http://h/a/../../x") ? "http://h/../x" : text;
    EXPECT_EQ(expected, collapse(text)) << text;
  }
  zq::internal::HTCollapse(nullptr);  // must not crash
}

TEST(HTParseTest, CollapseRemovesDotSegments) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b/../c", "/a/c"},
      {"/a/./b", "/a/b"},
      {"/a/.", "/a/"},
      {"/a/b/..", "/a"},
      {"/a/b/../../c", "/c"},
      {"/a/b/c/./../../d", "/a/d"},
      {"/a/./?x", "/a/?x"},
      {"/a/.?x", "/a/?x"},
      {"/a/b/..?x", "/a?x"},
      {"/a/b/../c?x/../y", "/a/c?x/../y"},  // nothing behind the "?" is touched
      {"//h/../x", "//x"},                  // the slash at the very start does not protect
      {"a//../x", "a/x"},
      // The closing rule reaches the first characters when a "?" follows.
      {"a/.?x", "a/?x"},
      {"a/..?x", "?x"},
      {"ab/..?x", "?x"},
      {"http://h/..?x", "http://?x"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.second, collapse(c.first)) << c.first;
}

// The collapsing rules applied word for word, shifting the tail at each removal, to check the
// library's single pass against.
std::string referenceCollapse(std::string text) {
  char* path = &text[0];
  if (!path[0] || !path[1] || path[0] == '?' || path[1] == '?' || path[2] == '?' || !std::strchr(path, '/')) {
    return text;
  }
  const auto closeUp = [](char* to, char* from) { std::memmove(to, from, std::strlen(from) + 1); };
  char* p = path + 2;
  while (*p && *p != '?') {
    if (*p != '/') {
      ++p;
    } else if (p[1] == '.' && p[2] == '.' && (p[3] == 0 || p[3] == '/' || p[3] == '?')) {
      char* q = p - 1;
      while (q > path && *q != '/') --q;
      if (*q != '/' || std::strncmp(q, "/../", 4) == 0 || std::strncmp(q, "/..?", 4) == 0 ||
          (q > path + 1 && q[-1] == '/')) {
        ++p;
      } else {
        closeUp(q, p + 3);
        p = q;
      }
    } else if (p[1] == '.' && p[2] == '/') {
      closeUp(p, p + 2);
    } else if (p[1] == '.' && (p[2] == '?' || p[2] == 0)) {
      closeUp(p + 1, p + 2);
    } else {
      ++p;
    }
  }
  if (*p == '?' && p - path >= 2 && p[-1] == '.') {
    if (p[-2] == '/') {
      closeUp(p - 1, p);
    } else if (p[-2] == '.' && p - path >= 4 && p[-3] == '/') {
      char* q = p - 4;
      if (*q == '/' && (p - path == 4 || (q > path && q[-1] == ':'))) return text.c_str();
      while (q > path && *q != '/') --q;
      if (*q == '/') {
        if (q == path + 1 && path[0] == '/') return text.c_str();
        ++q;
      }
      if (std::strncmp(q, "../", 3) != 0 && std::strncmp(q, "./", 2) != 0) closeUp(q, p);
    }
  }
  return text.c_str();
}

TEST(HTParseTest, CollapseAgreesWithTheRulesOnRandomPaths) {
  std::mt19937 random(12345);
  const char alphabet[] = "//..?a:";
  for (int i = 0; i < 200000; ++i) {
    std::string path(random() % 14, ' ');
    for (char& c : path) c = alphabet[random() % (sizeof alphabet - 1)];
    ASSERT_EQ(referenceCollapse(path), collapse(path)) << "path \"" << path << "\"";
  }
}

TEST(HTRelativeTest, CountsCommonSlashes) {
  const ParseCase cases[] = {
      {"http://a/x", "http://b/y", "//a/x"},  // fewer than three: from behind the scheme
      {"mailto:a", "mailto:b", "a"},
      {"http://h/a/b", "http://h/x/y/z", "/a/b"},  // three: from the root
      {"http://h/a/b", "http://h/a/c", "b"},       // more: a sibling
      {"http://h/a/b", "http://h/a/c/d", "../b"},  // one level up per further slash
      {"http://h/a/b/c/x", "http://h/a/b/c/y/z/w", "../../x"},
      {"http://h/a/b", "http://h/a/c/d#e/f", "../b"},     // the count stops at "#"
      {"http://h/a/b", "http://h/a/c/d?e/f", "../../b"},  // but not at "?"
      {"http://h/a/", "http://h/a/b/c", "../"},
      {"http://h/a/b", "http://h/a/b", "b"},
      {"http://h/a/b", "ftp://h/a/b", "http://h/a/b"},  // no common colon: unchanged
      {"a/b", "a/c", "a/b"},
      {"", "http://h/", ""},
  };
  for (const ParseCase& c : cases) {
    EXPECT_EQ(c.expected, relative(c.given, c.related))
        << "name \"" << c.given << "\", related \"" << c.related << "\"";
  }
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
  EXPECT_EQ("", escape("", 7));
  EXPECT_EQ("", take(zq::HTEscape(nullptr, 7)));
}

// Random and mutated texts through every entry point: each must give a result, within the
// bounds its rules allow, without a crash (run under the sanitizers).
TEST(HTParseRobustnessTest, RandomAndMutatedInputs) {
  std::mt19937 random(2024);
  const std::vector<std::string> seeds = {"http://u:p@h.example.:8080/a/./b/../c?q=1#f",
                                          "news:12@host#34",
                                          "lynxcgi:/x#y",
                                          "//h/a?b#c",
                                          "ftp://[::1]:21",
                                          "../../x/./y?",
                                          "#",
                                          "?",
                                          "",
                                          ":",
                                          "///",
                                          "snews://h:563/g",
                                          "data:x#y",
                                          "a;b:c/d"};
  const char separators[] = ":/?#;@.%[]";
  const auto mutate = [&](std::string text) {
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int e = 0; e < edits; ++e) {
      const size_t at = text.empty() ? 0 : random() % (text.size() + 1);
      const unsigned kind = random() % 4;
      if (kind == 0) {
        text.insert(at, 1, separators[random() % (sizeof separators - 1)]);
      } else if (kind == 1) {
        text.insert(at, 1, static_cast<char>(1 + random() % 255));
      } else if (kind == 2 && at < text.size()) {
        text.erase(at, 1 + random() % 3);
      } else {
        text.insert(at, at % 2 ? "/.." : "/.");
      }
    }
    return text;
  };
  for (int i = 0; i < 150000; ++i) {
    const std::string given = mutate(seeds[random() % seeds.size()]);
    const std::string related = mutate(seeds[random() % seeds.size()]);
    const int mask = static_cast<int>(random() % 128);

    const std::string parsed = parse(given.c_str(), related.c_str(), mask);
    ASSERT_LE(parsed.size(), given.size() + related.size() + 8) << given << " | " << related << " | " << mask;
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

  for (const char* odd : {"", ":", "/", "?", "#", ";", "//", ":::", "???", "###", "\xff\x80\xfe", "::://?#?#"}) {
    EXPECT_NO_FATAL_FAILURE(parse(odd, odd)) << odd;
    EXPECT_NO_FATAL_FAILURE(relative(odd, odd)) << odd;
  }
}

}  // namespace
