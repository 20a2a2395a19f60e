// Url: a URL as a value — its parts on demand, resolution against other URLs, relativising,
// escaping, and comparison and hashing that ignore case.
#pragma once

#include <zq/Export.h>
#include <zq/Net/HTParse.h>

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>

namespace zq {

// The text of a URL, with its parts found lazily by the URL parser and cached. The text is
// the only part with value: copies, comparison and hashing look at the text alone, so
// "http://h" and "http://h/" differ while "HTTP://H/" equals "http://h/".
//
// Not thread-safe, not even through const operations: the part accessors fill the caches.
// A pointer returned by an accessor lives until the next change of the object.
// Nothing throws but allocation (std::bad_alloc).
class ZQ_API Url {
 public:
  Url();
  Url(const Url& other);
  Url(const std::string& url);
  Url(const char* url);  // null counts as empty
  Url(const char* url, std::size_t length);
  virtual ~Url();

  Url& operator=(const Url& other);
  Url& operator=(const std::string& url);
  Url& operator=(const char* url);

  const std::string& str() const { return m_url; }
  operator const char*() const { return m_url.c_str(); }
  // True for no text, and for a text that begins with NUL.
  bool empty() const;

  // The parts, each null when absent; none carries its separator.
  const char* scheme() const;
  const char* host() const;
  const char* port() const;
  const char* query() const;
  const char* fragment() const;
  // The absolute path (without its leading "/") if there is one, else the relative path.
  const char* path() const;
  // There is a path that began with "/".
  bool absolute() const;
  // There is a relative path or a fragment: the URL needs a base (see operator%=).
  bool relative() const;

  // Resolves `other` against this URL in place; null or empty changes nothing. Like a link in
  // a page: Url("http://h/a/b") / "c" is "http://h/a/c".
  Url& append(const char* other);
  Url& operator/=(const char* other) { return append(other); }
  Url& operator/=(const std::string& other) { return append(other.c_str()); }
  Url operator/(const char* other) const;
  Url operator/(const std::string& other) const { return *this / other.c_str(); }

  // Resolves this URL against `base` in place: an empty URL becomes `base`, a relative one
  // is resolved, an absolute one (without fragment) stays. Null or empty `base` changes
  // nothing.
  Url& operator%=(const char* base);
  Url& operator%=(const std::string& base) { return *this %= base.c_str(); }
  Url operator%(const char* base) const;
  Url operator%(const std::string& base) const { return *this % base.c_str(); }

  // Replaces the text by this URL relative to `base`; null or empty changes nothing.
  Url& relativize(const char* base);
  // Escapes the whole text as one, separators too: "http://h/a b" becomes "http%3A//h/a+b".
  Url& escape();

  // True when the text has a path or a fragment: "http://h/", "x" and "#f" are valid,
  // "http://h" and "" are not.
  static bool validate(std::string url);

  // Text comparison ignoring the case of ASCII letters, walking UTF-8 characters.
  bool operator==(const Url& other) const;
  bool operator==(const std::string& other) const;
  bool operator==(const char* other) const;  // null counts as empty
  bool operator!=(const Url& other) const { return !(*this == other); }
  bool operator!=(const std::string& other) const { return !(*this == other); }
  bool operator!=(const char* other) const { return !(*this == other); }

 protected:
  // Fills the caches from the text unless they are filled already.
  void scan() const;
  // The one way of replacing the text: resets the caches first.
  void assign(const std::string& url);
  // `other` resolved against `base`.
  static std::string append_str(const char* base, const char* other);

 private:
  std::string m_url;
  // A copy of m_url cut with NUL bytes by the parser; empty until scanned, which is the only
  // mark of a finished scan (so an empty URL is scanned at each call, at no cost).
  mutable std::string m_scanned;
  // Points into m_scanned; allocated by the first scan.
  mutable std::unique_ptr<HTParts> m_parts;
};

// Without these, a text on the left would compare as a pointer.
inline bool operator==(const char* text, const Url& url) { return url == text; }
inline bool operator!=(const char* text, const Url& url) { return url != text; }
inline bool operator==(const std::string& text, const Url& url) { return url == text; }
inline bool operator!=(const std::string& text, const Url& url) { return url != text; }

// Writes the text.
ZQ_API std::ostream& operator<<(std::ostream& out, const Url& url);
// FNV-1a (64 bits) over the text up to its first NUL with ASCII letters lower-cased, so URLs
// that differ only in letter case hash alike. Stable across runs.
ZQ_API std::size_t hash_value(const Url& url);

}  // namespace zq
