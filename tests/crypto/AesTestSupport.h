// What the AES tests share: text of bytes, a reference cipher straight from OpenSSL, temporary
// folders, and a child process for the tests that change limits or users.
#pragma once

#include <zq/crypto/SecureString.h>

#include "tests/support/Hex.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace zq {
namespace test {

using crypto::secure_string;

inline std::string hex(const secure_string& bytes) { return hexOf(bytes); }

// `size` bytes that differ from run to run only by `seed`.
inline secure_string bytesOf(std::size_t size, unsigned seed = 1) {
  std::mt19937 gen(seed);
  secure_string s(size, '\0');
  for (char& c : s) c = static_cast<char>(gen());
  return s;
}

// AES-256-CBC with PKCS padding in one call of OpenSSL's own, the reference for our streaming.
inline secure_string referenceCbc(bool encrypting, const secure_string& key32, const secure_string& iv,
                                  const secure_string& input) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  secure_string out(input.size() + 32, '\0');
  int n = 0, m = 0;
  EVP_CipherInit_ex(ctx, EVP_aes_256_cbc(), nullptr, reinterpret_cast<const unsigned char*>(key32.data()),
                    reinterpret_cast<const unsigned char*>(iv.data()), encrypting ? 1 : 0);
  EVP_CipherUpdate(ctx, reinterpret_cast<unsigned char*>(&out[0]), &n,
                   reinterpret_cast<const unsigned char*>(input.data()), static_cast<int>(input.size()));
  const bool ok = EVP_CipherFinal_ex(ctx, reinterpret_cast<unsigned char*>(&out[n]), &m) == 1;
  EVP_CIPHER_CTX_free(ctx);
  out.resize(ok ? static_cast<std::size_t>(n + m) : 0);
  return out;
}

// A key brought to 32 bytes with blanks, as the cipher sees an encrypting key.
inline secure_string blankPadded(secure_string key) {
  key.resize(32, ' ');
  return key;
}

// A fresh folder, removed with all it holds at the end of the test.
class TempFolder {
 public:
  TempFolder() : m_path(boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("zq-aes-%%%%%%%%")) {
    boost::filesystem::create_directories(m_path);
  }
  ~TempFolder() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const boost::filesystem::path& path() const { return m_path; }
  boost::filesystem::path operator/(const std::string& name) const { return m_path / name; }
  // The names in the folder, sorted.
  std::string listing() const {
    std::vector<std::string> names;
    for (const auto& entry : boost::filesystem::directory_iterator(m_path))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    std::string out;
    for (const auto& name : names) out += name + " ";
    return out;
  }

 private:
  boost::filesystem::path m_path;
};

inline void writeFile(const boost::filesystem::path& path, const secure_string& content) {
  boost::filesystem::ofstream out(path, std::ios::out | std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

inline secure_string readFile(const boost::filesystem::path& path) {
  boost::filesystem::ifstream in(path, std::ios::in | std::ios::binary);
  return secure_string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs `body` in a forked child and returns its exit code; a child that is killed (or runs past
// a minute) gives 128 plus the signal.
inline int inChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(60);
    int code = 99;
    try {
      code = body();
    } catch (...) {
      code = 98;
    }
    ::_exit(code);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace test
}  // namespace zq
