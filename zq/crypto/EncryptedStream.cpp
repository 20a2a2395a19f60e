#include <zq/crypto/EncryptedStream.h>

#include <zq/crypto/SecureFile.h>
#include <zq/crypto/internal/Wipe.h>
#include <zq/platform/SafeFiles.h>

#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/iostreams/copy.hpp>
#include <boost/iostreams/filtering_stream.hpp>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zq {
namespace crypto {

namespace fs = boost::filesystem;
namespace io = boost::iostreams;

namespace {

constexpr std::size_t b = aes_context::k_blockSize;

// The piece that each stage of a file chain works in. Larger pieces than a kilobyte or two
// spare system calls and calls into the cipher; the bytes on disk are the same.
constexpr std::streamsize k_piece = 64 * 1024;

const char* const k_invalidPosition = "invalid string position";
const char* const k_sinkRefused = "zq::crypto: the sink of an encrypting filter takes no more bytes";
const char* const k_writeFailed = "zq::crypto: writing the target failed";
const char* const k_readShort = "zq::crypto: the source could not be read to its end";
const char* const k_openSource = "zq::crypto: the source can't be opened";
const char* const k_openTarget = "zq::crypto: the target can't be opened";
const char* const k_newFile = "zq::crypto: no new file can be made beside the file";
const char* const k_hold = "zq::crypto: the file can't be held open";
const char* const k_replace = "zq::crypto: the new content can't take the file's place";

std::error_code lastError() { return std::error_code(errno != 0 ? errno : EIO, std::system_category()); }

[[noreturn]] void throwFileError(const char* what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, boost::system::error_code(error, boost::system::system_category()));
}

// The ends of a file chain: unbuffered file streams, so that the chain's own buffers are the
// only ones, and devices that count what passes. A target that can't be opened swallows what is
// written. A write that makes no progress (a full disk, a size limit) throws, where a stream
// pushed as it stands would be retried for ever.
class FileSource {
 public:
  using char_type = char;
  using category = io::source_tag;
  FileSource(std::streambuf* buffer, std::uintmax_t* count) : m_buffer(buffer), m_count(count) {}

  std::streamsize read(char* s, std::streamsize n) {
    const std::streamsize got = m_buffer->sgetn(s, n);
    if (got <= 0) return -1;
    *m_count += static_cast<std::uintmax_t>(got);
    return got;
  }

 private:
  std::streambuf* m_buffer;
  std::uintmax_t* m_count;
};

class FileSink {
 public:
  using char_type = char;
  using category = io::sink_tag;
  FileSink(std::streambuf* buffer, std::uintmax_t* count) : m_buffer(buffer), m_count(count) {}

  std::streamsize write(const char* s, std::streamsize n) {
    if (m_buffer == nullptr) return n;
    for (std::streamsize done = 0; done < n;) {
      errno = 0;
      const std::streamsize written = m_buffer->sputn(s + done, n - done);
      if (written <= 0) throw std::ios_base::failure(k_writeFailed, lastError());
      done += written;
      *m_count += static_cast<std::uintmax_t>(written);
    }
    return n;
  }

 private:
  std::streambuf* m_buffer;
  std::uintmax_t* m_count;
};

// What one file-to-file pass moved, for the check that it moved everything.
struct Moved {
  bool targetOpen = false;
  std::uintmax_t read = 0;     // from the source, vector included
  std::uintmax_t written = 0;  // to the target, vector included
  std::uintmax_t expected = 0;
};

struct FileEnds {
  FileEnds() {
    source.rdbuf()->pubsetbuf(nullptr, 0);
    target.rdbuf()->pubsetbuf(nullptr, 0);
  }
  fs::ifstream source;
  fs::ofstream target;
};

// Opens one end of a pass; whether it is open. With `strict`, one that can't be opened throws.
template <class Stream>
bool openEnd(Stream& stream, const fs::path& path, std::ios_base::openmode mode, bool strict, const char* what) {
  errno = 0;
  stream.open(path, mode | std::ios_base::binary);
  if (strict && !stream.is_open()) throwFileError(what, path, lastError().value());
  return stream.is_open();
}

// Runs a pass. A target that did not receive all it should have is removed (unless it is no
// regular file) and reported, rather than left half-written.
template <class Pass>
Moved runPass(const fs::path& target, Pass pass) {
  Moved moved;
  try {
    pass(moved);
    if (moved.targetOpen && moved.written != moved.expected)
      throw std::ios_base::failure(k_writeFailed, std::error_code(EIO, std::system_category()));
  } catch (...) {
    boost::system::error_code ignored;
    if (moved.targetOpen && fs::is_regular_file(target, ignored)) fs::remove(target, ignored);
    throw;
  }
  return moved;
}

Moved encryptFile(const fs::path& source, const fs::path& target, secure_string key, MessageDigest* digest,
                  bool strict) {
  return runPass(target, [&](Moved& moved) {
    FileEnds ends;
    aes_context context(k_piece + b);  // holds the cipher text of one piece
    secure_string iv = context.init_for_encrypting(std::move(key));
    // The target exists before the source is opened, with the vector in front.
    moved.targetOpen = openEnd(ends.target, target, std::ios_base::out, strict, k_openTarget);
    FileSink sink(moved.targetOpen ? ends.target.rdbuf() : nullptr, &moved.written);
    sink.write(iv.data(), static_cast<std::streamsize>(iv.size()));
    internal::wipe(iv);
    openEnd(ends.source, source, std::ios_base::in, strict, k_openSource);
    {
      io::filtering_ostream chain;
      if (digest != nullptr) chain.push(digesting_output_filter(digest), k_piece);
      chain.push(encrypting_output_filter(&context), k_piece);
      chain.push(sink, k_piece);
      // The copy closes the chain at its end, which writes the last block.
      io::copy(FileSource(ends.source.rdbuf(), &moved.read), chain, k_piece);
    }
    moved.expected = b + (moved.read / b + 1) * b;
  });
}

Moved decryptFile(const fs::path& source, const fs::path& target, secure_string key, MessageDigest* digest,
                  bool strict) {
  return runPass(target, [&](Moved& moved) {
    FileEnds ends;
    openEnd(ends.source, source, std::ios_base::in, strict, k_openSource);
    FileSource input(ends.source.rdbuf(), &moved.read);
    // What a short file has of a vector, the rest zero.
    secure_string iv(b, '\0');
    for (std::size_t at = 0; at < b;) {
      const std::streamsize got = input.read(&iv[at], static_cast<std::streamsize>(b - at));
      if (got <= 0) break;
      at += static_cast<std::size_t>(got);
    }
    aes_context context(k_piece + b);
    context.init_for_decrypting(std::move(key), std::move(iv));
    io::filtering_istream chain;
    if (digest != nullptr) chain.push(digesting_input_filter(digest), k_piece);
    chain.push(decrypting_input_filter(&context), k_piece);
    chain.push(input, k_piece);
    moved.targetOpen = openEnd(ends.target, target, std::ios_base::out, strict, k_openTarget);
    moved.expected = static_cast<std::uintmax_t>(
        io::copy(chain, FileSink(moved.targetOpen ? ends.target.rdbuf() : nullptr, &moved.written), k_piece));
  });
}

// A new empty file beside `file`, under a random name of the form "%%%%-%%%%-%%%%-%%%%".
fs::path createBeside(const fs::path& file) {
  const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
  for (;;) {
    const fs::path candidate = folder / fs::unique_path("%%%%-%%%%-%%%%-%%%%");
    const int error = platform::createNewFile(candidate.string());
    if (error == 0) return candidate;
    if (error != EEXIST) throwFileError(k_newFile, candidate, error);
  }
}

// The in-place form of a pass. The new content is written beside the file, so that the rename
// that puts it in place stays on one file system and is atomic; replaceFile forces it to the
// device first. The old content is held open and zeroed only once the new one has its name: up
// to then, any failure leaves the file as it was and removes the new file.
template <class FilePass>
void replaceInPlace(const fs::path& file, FilePass pass) {
  const std::uintmax_t size = fs::file_size(file);  // a missing file throws here, before anything is made
  const fs::path temporary = createBeside(file);
  platform::HeldFile old;
  try {
    const Moved moved = pass(file, temporary);
    if (moved.read != size) throw std::ios_base::failure(k_readShort, std::error_code(EIO, std::system_category()));
    if (const int error = old.open(file.string())) throwFileError(k_hold, file, error);
    errno = 0;
    if (!replaceFile(file, temporary)) throwFileError(k_replace, file, errno != 0 ? errno : EIO);
  } catch (...) {
    boost::system::error_code ignored;
    fs::remove(temporary, ignored);
    throw;
  }
  zeroOut(fs::path(old.path()), 1);
}

}  // namespace

namespace internal {
void throwSinkRefused() { throw std::ios_base::failure(k_sinkRefused, std::error_code(EIO, std::system_category())); }
}  // namespace internal

secure_string encrypt(secure_string plain, secure_string key) {
  // A ring that holds the whole output: the text, padded.
  aes_context context(plain.size() + b);
  secure_string result = context.init_for_encrypting(std::move(key));
  aes_context::range_type in(reinterpret_cast<unsigned char*>(plain.data()), plain.size());
  context.encrypt_buffer(in);
  context.encrypt_final(false);
  const aes_context::range_type out = context.buffer().filled_range();
  result.reserve(result.size() + out.second);
  result.append(reinterpret_cast<const char*>(out.first), out.second);
  context.close();
  internal::wipe(plain);
  return result;
}

secure_string decrypt(secure_string data, secure_string key) {
  if (data.size() < b) throw std::out_of_range(k_invalidPosition);
  const std::size_t size = data.size() - b;
  aes_context context(size + b);
  aes_context::range_type in(reinterpret_cast<unsigned char*>(data.data()) + b, size);
  context.buffer().write(in);
  secure_bytes plain(context.buffer().capacity());
  context.init_for_decrypting(std::move(key), data.substr(0, b));
  aes_context::range_type out(plain.data(), plain.size());
  context.decrypt_buffer(out);
  context.decrypt_final(out);
  internal::wipe(data);
  return secure_string(reinterpret_cast<const char*>(plain.data()), plain.size() - out.second);
}

void encrypt(const fs::path& source, const fs::path& target, secure_string key, MessageDigest* digest) {
  encryptFile(source, target, std::move(key), digest, false);
}

void decrypt(const fs::path& source, const fs::path& target, secure_string key, MessageDigest* digest) {
  decryptFile(source, target, std::move(key), digest, false);
}

void encrypt(const fs::path& file, secure_string key, MessageDigest* digest) {
  replaceInPlace(file, [&](const fs::path& from, const fs::path& to) {
    return encryptFile(from, to, std::move(key), digest, true);
  });
}

void decrypt(const fs::path& file, secure_string key, MessageDigest* digest) {
  replaceInPlace(file, [&](const fs::path& from, const fs::path& to) {
    return decryptFile(from, to, std::move(key), digest, true);
  });
}

}  // namespace crypto
}  // namespace zq
