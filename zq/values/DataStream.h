// Wide-character stream classes that stream-based code builds on: DataOutStream and
// DataInStream over a caller's buffer, and StringDataOutStream and StringDataInStream over a
// string buffer of their own. The work is the standard streams'; these give it names.
#pragma once

#include <zq/Export.h>

#include <istream>
#include <ostream>
#include <sstream>
#include <string>

namespace zq {

// An output stream over `buffer`, which stays the caller's and must outlive the stream.
// One thread at a time, as any standard stream.
class ZQ_API DataOutStream : public std::wostream {
 public:
  explicit DataOutStream(std::wstreambuf* buffer);
  ~DataOutStream() override;
};

// An input stream over `buffer`, which stays the caller's and must outlive the stream.
// One thread at a time, as any standard stream.
class ZQ_API DataInStream : public std::wistream {
 public:
  explicit DataInStream(std::wstreambuf* buffer);
  ~DataInStream() override;
};

// The string buffer behind the two string streams. A mode is a std::ios_base::openmode value
// carried as an int.
class ZQ_API StringStreamCommon {
 public:
  StringStreamCommon(const std::wstring& text, int mode);
  explicit StringStreamCommon(int mode);
  virtual ~StringStreamCommon();

  // The buffer's present text (for an output stream, what has been written).
  std::wstring str() const;
  // Replaces the buffer's text and moves its positions to the start.
  void str(const std::wstring& text);
  std::wstringbuf* stringBuffer() { return &m_buffer; }

 private:
  std::wstringbuf m_buffer;
};

// Writes into a string of its own; str() gives the text. One thread at a time.
class ZQ_API StringDataOutStream : public DataOutStream, public StringStreamCommon {
 public:
  explicit StringDataOutStream(int mode = std::ios::out);
  // Starts from a copy of `text`; without std::ios::ate or app, writing overwrites it from the start.
  explicit StringDataOutStream(const std::wstring& text, int mode = std::ios::out);
  ~StringDataOutStream() override;
};

// Reads from a string of its own. One thread at a time.
class ZQ_API StringDataInStream : public DataInStream, public StringStreamCommon {
 public:
  explicit StringDataInStream(int mode = std::ios::in);
  // Reads from a copy of `text`.
  explicit StringDataInStream(const std::wstring& text, int mode = std::ios::in);
  ~StringDataInStream() override;
};

}  // namespace zq
