// The URL parser: a small C-style unit over NUL-terminated narrow text.
//
// It rebuilds a URL from a given text and a related (base) text part by part under a mask,
// makes one URL relative to another, and escapes text. The rules (default ports, news schemes,
// the "lynxcgi", "lynxexec" and "lynxprog" schemes) are those that stored URLs depend on, so
// they are kept exactly, oddities included. Nothing is decoded: "%41" stays "%41".
//
// Every returned buffer comes from malloc and is the caller's to free(). On allocation failure
// the functions write "HTParse.cpp: out of memory, <function>" to standard error and return
// null. All functions are reentrant; there is no shared state.
#pragma once

#include <zq/Export.h>

namespace zq {

// The seven parts of a URL as pointers into one text that the scanner has cut with NUL bytes;
// each is null when its part is absent, and none carries its separator.
struct HTParts {
  char* scheme;    // before the first ":"
  char* host;      // after "//", up to the next "/" (or "?"), without ":port"
  char* port;      // after the last ":" of the host text
  char* absolute;  // a path that had a leading "/", without that "/"
  char* relative;  // a path without a leading "/"
  char* query;     // after the first "?" of the path
  char* fragment;  // after the first "#"
};

// Mask bits of HTParse.
enum : int {
  HT_PUNCTUATION = 1,  // also write the separators ":", "//", "/", "?", "#"
  HT_FRAGMENT = 2,
  HT_PATH = 4,
  HT_HOST = 8,  // host and port
  HT_SCHEME = 16,
  HT_PATH_ONLY = 32,  // the path without any query
  HT_QUERY = 64,
  HT_ALL = 95  // a whole URL: everything but HT_PATH_ONLY
};

// Resolves `given` against `related` and writes the parts that `mask` selects. Null texts
// count as empty. Returns a new buffer (free() it), or null when memory ran out.
ZQ_API char* HTParse(const char* given, const char* related, int mask);

// `name` made relative to `related`: "../" for each further level of `related`, a path from
// the root, or `name` from behind the common scheme. Returns a new buffer (free() it).
ZQ_API char* HTRelative(const char* name, const char* related);

// Escapes `text`: a blank becomes "+", a character whose class bits meet `mask` stays, all
// others become "%XX". Classes: letters, digits and "*-.@_" have bits 1|2|4, "+" has 2|4,
// "/" has 4, everything else (bytes from 0x80 and control characters too) none.
// Returns a new buffer (free() it).
ZQ_API char* HTEscape(const char* text, unsigned char mask);

}  // namespace zq
