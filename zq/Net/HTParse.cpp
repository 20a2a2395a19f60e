#include <zq/Net/HTParse.h>
#include <zq/Net/internal/HTScan.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zq {
namespace {

// Allocation failure is reported, not thrown: the callers are C-style and test for null.
char* allocate(size_t size, const char* function) {
  char* buffer = static_cast<char*>(std::malloc(size));
  if (!buffer) std::fprintf(stderr, "%s: out of memory, %s\n", "HTParse.cpp", function);
  return buffer;
}

char* copyOf(const char* text, size_t length, const char* function) {
  char* copy = allocate(length + 1, function);
  if (copy) {
    std::memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

// ASCII only, so that results never depend on the program's locale.
char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool startsWithNoCase(const char* text, const char* prefix) {
  for (; *prefix; ++text, ++prefix) {
    if (lowerAscii(*text) != *prefix) return false;
  }
  return true;
}

bool equalsNoCase(const char* text, const char* lowerCase) {
  return startsWithNoCase(text, lowerCase) && text[std::strlen(lowerCase)] == '\0';
}

bool isNewsLike(const char* scheme) {
  return equalsNoCase(scheme, "nntp") || equalsNoCase(scheme, "snews") || equalsNoCase(scheme, "news");
}

// Ports that go without saying; the scheme is compared exactly, so "HTTP" keeps ":80".
const char* defaultPort(const char* scheme) {
  static const struct {
    const char* scheme;
    const char* port;
  } k_ports[] = {{"http", ":80"},       {"https", ":443"}, {"gopher", ":70"},     {"ftp", ":21"},
                 {"wais", ":210"},      {"nntp", ":119"},  {"news", ":119"},      {"newspost", ":119"},
                 {"newsreply", ":119"}, {"snews", ":563"}, {"snewspost", ":563"}, {"snewsreply", ":563"},
                 {"finger", ":79"},     {"telnet", ":23"}, {"tn3270", ":23"},     {"rlogin", ":513"},
                 {"cso", ":105"}};
  for (const auto& entry : k_ports) {
    if (std::strcmp(entry.scheme, scheme) == 0) return entry.port;
  }
  return nullptr;
}

// Class bits of the characters 0x20 to 0x7F for HTEscape.
const unsigned char k_escapeClass[96] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 6, 0, 7, 7, 4,  //  !"#$%&'()*+,-./
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 0, 0, 0, 0, 0, 0,  // 0123456789:;<=>?
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7,  // @ABCDEFGHIJKLMNO
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 0, 0, 0, 0, 7,  // PQRSTUVWXYZ[\]^_
    0, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7,  // `abcdefghijklmno
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 0, 0, 0, 0, 0,  // pqrstuvwxyz{|}~ DEL
};

unsigned char escapeClass(unsigned char c) { return (c >= 0x20 && c < 0x80) ? k_escapeClass[c - 0x20] : 0; }

// The result under construction, always NUL-terminated so that the string functions and
// HTCollapse can work on it. The workspace is sized so that it cannot overflow: every piece
// written is a distinct part of one of the two inputs, plus at most seven separators.
struct Result {
  char* begin;
  char* end;

  explicit Result(char* workspace) : begin(workspace), end(workspace) { *end = '\0'; }
  void put(char c) {
    *end++ = c;
    *end = '\0';
  }
  void put(const char* text) {
    const size_t length = std::strlen(text);
    std::memcpy(end, text, length + 1);
    end += length;
  }
  void cutAt(char* place) {
    end = place;
    *end = '\0';
  }
};

void writeHost(Result& out, const HTParts& from, const char* scheme, bool punctuation) {
  char* const hostStart = out.end;
  if (punctuation) out.put("//");
  out.put(from.host);
  if (from.port) {
    out.put(':');
    out.put(from.port);
  }
  char* hostText = std::strchr(out.begin, '@');
  hostText = hostText ? hostText + 1 : hostStart;
  char* colon = std::strchr(hostText, ':');
  if (!colon) {
    if (out.end > out.begin && out.end[-1] == '.') out.cutAt(out.end - 1);
    return;
  }
  if (colon[1] < '0' || colon[1] > '9') {
    out.cutAt(colon);
  } else if (scheme) {
    const char* port = defaultPort(scheme);
    if (port && std::strcmp(colon, port) == 0) out.cutAt(colon);
  }
  // A trailing dot of the host goes, whether or not a port stays. Both dot rules look at the
  // result: with an empty host and no "//", that is the scheme's last character.
  if (colon > out.begin && colon[-1] == '.') {
    std::memmove(colon - 1, colon, static_cast<size_t>(out.end - colon) + 1);
    --out.end;
  }
}

bool isLynxScheme(const char* given) {
  return startsWithNoCase(given, "lynxcgi:") || startsWithNoCase(given, "lynxexec:") ||
         startsWithNoCase(given, "lynxprog:");
}

// `path` is the given absolute path, or "" when a bare host of http, https or ftp asks for "/".
void writePath(Result& out, const char* given, const char* path, const char* rel, const HTParts& r, const char* scheme,
               bool punctuation, bool dropQuery) {
  char* pathStart = out.end;
  // News article names count as absolute though they have no leading slash.
  if (!path && rel && scheme &&
      (equalsNoCase(scheme, "nntp") || equalsNoCase(scheme, "snews") ||
       (equalsNoCase(scheme, "news") && startsWithNoCase(out.begin, "news://")))) {
    path = rel;
    rel = nullptr;
  }
  if (path) {
    if (punctuation) out.put('/');
    out.put(path);
  } else if (r.absolute) {
    out.put('/');
    out.put(r.absolute);
    if (rel) {
      char* from = std::strchr(out.begin, '?');
      if (!from) from = out.end - 1;
      while (from > out.begin && *from != '/') --from;
      if (*from == '/') out.cutAt(from + 1);
      out.put(rel);
      internal::HTCollapse(out.begin);
      out.end = out.begin + std::strlen(out.begin);
      if (pathStart > out.end) pathStart = out.end;
    }
  } else if (rel) {
    out.put(rel);
  } else if (r.relative) {
    out.put(r.relative);
  } else {
    if (!isLynxScheme(given)) out.put('/');
    if (std::strcmp(out.begin, "news:/") == 0) out.end[-1] = '*';
  }
  if (dropQuery) {
    if (char* question = std::strchr(pathStart, '?')) out.cutAt(question);
  }
}

}  // namespace

namespace internal {

void HTScan(char* text, HTParts* parts) {
  *parts = HTParts{};
  char* rest = text;
  for (char* p = text; *p; ++p) {
    if (*p == ':') {
      *p = '\0';
      parts->scheme = text;
      rest = p + 1;
      break;
    }
    if (*p == '/' || *p == '?' || *p == ';' || *p == '#') break;
  }
  if (char* hash = std::strchr(rest, '#')) {
    *hash = '\0';
    parts->fragment = hash + 1;
  }
  if (rest[0] == '/' && rest[1] == '/') {
    char* host = rest + 2;
    parts->host = host;
    rest[0] = '\0';
    if (char* slash = std::strchr(host, '/')) {
      *slash = '\0';
      parts->absolute = slash + 1;
    } else if (char* question = std::strchr(host, '?')) {
      *question = '\0';
      parts->query = question + 1;
    }
    // The last colon decides, so "user:password@host" is not told apart from "host:port".
    if (char* colon = std::strrchr(host, ':')) {
      *colon = '\0';
      parts->port = colon + 1;
    }
  } else if (rest[0] == '/') {
    parts->absolute = rest + 1;
  } else if (rest[0] != '\0') {
    parts->relative = rest;
  }
  // Without a host (lynxcgi aside) and in news and data URLs a "#" belongs to the path.
  if (parts->scheme && parts->fragment && (parts->absolute || parts->relative) &&
      ((!parts->host && !equalsNoCase(parts->scheme, "lynxcgi")) || isNewsLike(parts->scheme) ||
       equalsNoCase(parts->scheme, "data"))) {
    parts->fragment[-1] = '#';
    parts->fragment = nullptr;
  }
  char* path = parts->absolute ? parts->absolute : parts->relative;
  if (path) {
    if (char* question = std::strchr(path, '?')) {
      *question = '\0';
      parts->query = question + 1;
      if (question == path) parts->absolute = parts->relative = nullptr;
    }
  }
}

// The walk runs once over the text with a write place `w` behind the read place `r`
// (w <= r): the text as the rules see it is [path, w) followed by [r, ...). Removing a segment
// moves `w` back or `r` on instead of shifting the tail, so long paths stay linear.
void HTCollapse(char* path) {
  if (!path || !path[0] || !path[1]) return;
  if (path[0] == '?' || path[1] == '?' || path[2] == '?') return;
  if (!std::strchr(path, '/')) return;

  char* w = path + 2;
  char* r = path + 2;
  const auto at = [&](const char* place) { return place < w ? *place : r[place - w]; };
  while (*r && *r != '?') {
    if (*r == '/' && r[1] == '.') {
      if (r[2] == '.' && (r[3] == '\0' || r[3] == '/' || r[3] == '?')) {
        char* q = w;
        while (q > path && q[-1] != '/') --q;
        if (q > path) {
          --q;
          const bool climbsDots = at(q + 1) == '.' && at(q + 2) == '.' && (at(q + 3) == '/' || at(q + 3) == '?');
          // A slash after another one, past the very start, ends a host: never eat it.
          const bool afterHost = q > path + 1 && q[-1] == '/';
          if (!climbsDots && !afterHost) {
            w = q;
            r += 3;
            continue;
          }
        }
      } else if (r[2] == '/') {
        r += 2;
        continue;
      } else if (r[2] == '?' || r[2] == '\0') {
        // Drop the "." and keep the "/".
        *w++ = '/';
        r += 2;
        continue;
      }
    }
    *w++ = *r++;
  }
  if (w != r) std::memmove(w, r, std::strlen(r) + 1);

  // The first characters are out of the walk's reach; a "/.?" or "/..?" there still goes.
  char* const p = w;
  if (*p != '?' || p - path < 2 || p[-1] != '.') return;
  if (p[-2] == '/') {
    std::memmove(p - 1, p, std::strlen(p) + 1);
    return;
  }
  if (p[-2] != '.' || p - path < 4 || p[-3] != '/') return;
  char* q = p - 4;
  if (*q == '/' && (p - path == 4 || (q > path && q[-1] == ':'))) return;
  while (q > path && *q != '/') --q;
  if (*q == '/') {
    if (q - path == 1 && q[-1] == '/') return;
    ++q;
  }
  if ((q[0] == '.' && q[1] == '.' && q[2] == '/') || (q[0] == '.' && q[1] == '/')) return;
  std::memmove(q, p, std::strlen(p) + 1);
}

}  // namespace internal

char* HTParse(const char* given, const char* related, int mask) {
  if (!given) given = "";
  if (!related) related = "";
  if ((mask & HT_PATH_ONLY) && (mask & HT_QUERY)) mask |= HT_PATH;
  if ((mask & (HT_PATH_ONLY | HT_QUERY)) && (mask & HT_PATH)) mask &= ~HT_PATH_ONLY;
  const bool punctuation = (mask & HT_PUNCTUATION) != 0;

  // Both copies and the workspace in one block; the workspace last, so that a slip past its
  // end would leave the block.
  const size_t givenLength = std::strlen(given);
  const size_t relatedLength = std::strlen(related);
  char* const block = allocate(2 * (givenLength + relatedLength) + 12, "HTParse");
  if (!block) return nullptr;
  char* const givenCopy = block;
  char* const relatedCopy = givenCopy + givenLength + 1;
  std::memcpy(givenCopy, given, givenLength + 1);
  std::memcpy(relatedCopy, related, relatedLength + 1);
  Result out(relatedCopy + relatedLength + 1);

  HTParts g;
  HTParts r;
  internal::HTScan(givenCopy, &g);
  internal::HTScan(relatedCopy, &r);

  const char* path = g.absolute;
  if (g.scheme && g.host && !g.relative && !g.absolute &&
      (std::strcmp(g.scheme, "http") == 0 || std::strcmp(g.scheme, "https") == 0 ||
       std::strcmp(g.scheme, "ftp") == 0)) {
    path = "";
  }

  const char* const scheme = g.scheme ? g.scheme : r.scheme;
  if ((mask & HT_SCHEME) && scheme) {
    out.put(scheme);
    if (punctuation) out.put(':');
  }
  // Nothing is inherited across schemes.
  if (g.scheme && r.scheme && std::strcmp(g.scheme, r.scheme) != 0) {
    char* const relatedScheme = r.scheme;
    r = HTParts{};
    r.scheme = relatedScheme;
  }

  if ((mask & HT_HOST) && (g.host || r.host)) writeHost(out, g.host ? g : r, scheme, punctuation);

  // Another host: its path and fragment are not ours, but its query still is.
  const char* relatedFragment = r.fragment;
  if (g.host && r.host && std::strcmp(g.host, r.host) != 0) {
    r.absolute = r.relative = nullptr;
    relatedFragment = nullptr;
  }

  if (mask & (HT_PATH | HT_PATH_ONLY | HT_QUERY)) {
    writePath(out, given, path, g.relative, r, scheme, punctuation, (mask & (HT_PATH_ONLY | HT_QUERY)) != 0);
  }
  if ((mask & HT_QUERY) && (g.query || r.query)) {
    if (punctuation) out.put('?');
    if (g.query && *g.query) {
      out.put(g.query);
    } else if (r.query && *r.query) {
      out.put(r.query);
    }
  }
  if ((mask & HT_FRAGMENT) && (g.fragment || relatedFragment)) {
    if (punctuation) out.put('#');
    if (g.fragment && *g.fragment) {
      out.put(g.fragment);
    } else if (relatedFragment && *relatedFragment) {
      out.put(relatedFragment);
    }
  }

  char* const result = copyOf(out.begin, static_cast<size_t>(out.end - out.begin), "HTParse");
  std::free(block);
  return result;
}

char* HTRelative(const char* name, const char* related) {
  if (!name) name = "";
  if (!related) related = "";
  size_t common = 0;
  const char* afterColon = nullptr;
  size_t slashes = 0;
  size_t lastSlash = 0;
  size_t thirdSlash = 0;
  for (; name[common] && name[common] == related[common]; ++common) {
    if (name[common] == ':') {
      afterColon = name + common + 1;
    } else if (name[common] == '/') {
      lastSlash = common;
      if (++slashes == 3) thirdSlash = common;
    }
  }

  const char* tail = name;
  size_t levelsUp = 0;
  if (!afterColon) {
    // Nothing in common that could be left out.
  } else if (slashes < 3) {
    tail = afterColon;
  } else if (slashes == 3) {
    tail = name + thirdSlash;
  } else {
    for (const char* s = related + common; *s && *s != '#'; ++s) {
      if (*s == '/') ++levelsUp;
    }
    tail = name + lastSlash + 1;
  }

  const size_t tailLength = std::strlen(tail);
  char* const result = allocate(3 * levelsUp + tailLength + 1, "HTRelative");
  if (!result) return nullptr;
  char* out = result;
  for (size_t i = 0; i < levelsUp; ++i) {
    *out++ = '.';
    *out++ = '.';
    *out++ = '/';
  }
  std::memcpy(out, tail, tailLength + 1);
  return result;
}

char* HTEscape(const char* text, unsigned char mask) {
  if (!text) text = "";
  const auto keeps = [mask](unsigned char c) { return c == ' ' || (escapeClass(c) & mask) != 0; };
  size_t length = 0;
  size_t escaped = 0;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p, ++length) {
    if (!keeps(*p)) ++escaped;
  }
  char* const result = allocate(length + 2 * escaped + 1, "HTEscape");
  if (!result) return nullptr;
  static const char k_hex[] = "0123456789ABCDEF";
  char* out = result;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
    if (*p == ' ') {
      *out++ = '+';
    } else if (keeps(*p)) {
      *out++ = static_cast<char>(*p);
    } else {
      *out++ = '%';
      *out++ = k_hex[*p >> 4];
      *out++ = k_hex[*p & 15];
    }
  }
  *out = '\0';
  return result;
}

}  // namespace zq
