#include <zq/values/DataStream.h>

namespace zq {

namespace {
std::ios_base::openmode openMode(int mode) { return static_cast<std::ios_base::openmode>(mode); }
}  // namespace

DataOutStream::DataOutStream(std::wstreambuf* buffer) : std::wostream(buffer) {}
DataOutStream::~DataOutStream() = default;

DataInStream::DataInStream(std::wstreambuf* buffer) : std::wistream(buffer) {}
DataInStream::~DataInStream() = default;

StringStreamCommon::StringStreamCommon(const std::wstring& text, int mode) : m_buffer(text, openMode(mode)) {}
StringStreamCommon::StringStreamCommon(int mode) : m_buffer(openMode(mode)) {}
StringStreamCommon::~StringStreamCommon() = default;

std::wstring StringStreamCommon::str() const { return m_buffer.str(); }
void StringStreamCommon::str(const std::wstring& text) { m_buffer.str(text); }

// The stream base comes first, without a buffer; the buffer base is built next, and only then
// can the stream be pointed at it. The bases die in reverse order: buffer before stream.
StringDataOutStream::StringDataOutStream(int mode) : DataOutStream(nullptr), StringStreamCommon(mode) {
  init(stringBuffer());
}
StringDataOutStream::StringDataOutStream(const std::wstring& text, int mode)
    : DataOutStream(nullptr), StringStreamCommon(text, mode) {
  init(stringBuffer());
}
StringDataOutStream::~StringDataOutStream() = default;

StringDataInStream::StringDataInStream(int mode) : DataInStream(nullptr), StringStreamCommon(mode) {
  init(stringBuffer());
}
StringDataInStream::StringDataInStream(const std::wstring& text, int mode)
    : DataInStream(nullptr), StringStreamCommon(text, mode) {
  init(stringBuffer());
}
StringDataInStream::~StringDataInStream() = default;

}  // namespace zq
