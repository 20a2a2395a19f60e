// Encrypting and decrypting a 256 MiB file with the file-to-file operations, beside the openssl
// command on the same file (wall time, the files in the page cache: on /dev/shm where it has
// room, so that no disk write-back times in). Before timing, the library's output is checked
// against the command's: the same cipher text behind the vector.
#include <zq/crypto/EncryptedStream.h>
#include <zq/crypto/SecureFile.h>

#include "tests/support/Hex.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>

#include <random>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace {

namespace fs = boost::filesystem;
namespace crypto = zq::crypto;

constexpr std::size_t kSize = std::size_t(256) << 20;

std::string readAll(const fs::path& path) {
  fs::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs a command without a shell; true if it exited with 0.
bool run(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) return false;
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The files of the run, made once and removed at exit.
struct Files {
  Files() : folder(base() / fs::unique_path("zq-aes-bench-%%%%%%%%")) {
    fs::create_directories(folder);
    key = crypto::randomKey(64);
    hexKey = zq::test::hexOf(std::string(key.data(), 32));
    std::vector<char> block(1 << 20);
    std::mt19937_64 gen(1);
    fs::ofstream out(plain, std::ios::binary);
    for (std::size_t written = 0; written < kSize; written += block.size()) {
      for (char& c : block) c = static_cast<char>(gen());
      out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    out.close();
    // Our form, and the same cipher text from the command under our vector.
    crypto::encrypt(plain, ours, key, nullptr);
    const std::string form = readAll(ours);
    hexIv = zq::test::hexOf(form.substr(0, 16));
    fs::ofstream(body, std::ios::binary) << form.substr(16);
    identical = run(openssl(false, plain, folder / "theirs")) && readAll(folder / "theirs") == form.substr(16);
    fs::remove(folder / "theirs");
  }
  ~Files() {
    boost::system::error_code ignored;
    fs::remove_all(folder, ignored);
  }

  static fs::path base() {
    boost::system::error_code ec;
    const fs::space_info shm = fs::space("/dev/shm", ec);
    return !ec && shm.available > 4 * kSize ? fs::path("/dev/shm") : fs::temp_directory_path();
  }

  std::vector<std::string> openssl(bool decrypting, const fs::path& in, const fs::path& out) const {
    std::vector<std::string> argv{"openssl", "enc"};
    if (decrypting) argv.push_back("-d");
    for (const char* a : {"-aes-256-cbc", "-K"}) argv.push_back(a);
    argv.insert(argv.end(), {hexKey, "-iv", hexIv, "-in", in.string(), "-out", out.string()});
    return argv;
  }

  fs::path folder;
  fs::path plain = folder / "plain", ours = folder / "ours", body = folder / "body", out = folder / "out";
  crypto::secure_string key;
  std::string hexKey, hexIv;
  bool identical = false;
};

const Files& files() {
  static const Files f;
  return f;
}

void setUp(benchmark::State& state) {
  if (!files().identical) state.SkipWithError("the library's cipher text differs from the openssl command's");
}

void finish(benchmark::State& state) { state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize)); }

void BM_ZqEncryptFile(benchmark::State& state) {
  setUp(state);
  for (auto _ : state) crypto::encrypt(files().plain, files().out, files().key, nullptr);
  finish(state);
}

void BM_ZqEncryptFileWithDigest(benchmark::State& state) {
  setUp(state);
  for (auto _ : state) {
    crypto::MessageDigest digest;
    crypto::encrypt(files().plain, files().out, files().key, &digest);
  }
  finish(state);
}

void BM_OpensslCommandEncrypt(benchmark::State& state) {
  setUp(state);
  const std::vector<std::string> argv = files().openssl(false, files().plain, files().out);
  for (auto _ : state)
    if (!run(argv)) state.SkipWithError("openssl enc failed");
  finish(state);
}

void BM_ZqDecryptFile(benchmark::State& state) {
  setUp(state);
  for (auto _ : state) crypto::decrypt(files().ours, files().out, files().key, nullptr);
  finish(state);
}

void BM_ZqDecryptFileWithDigest(benchmark::State& state) {
  setUp(state);
  for (auto _ : state) {
    crypto::MessageDigest digest;
    crypto::decrypt(files().ours, files().out, files().key, &digest);
  }
  finish(state);
}

void BM_OpensslCommandDecrypt(benchmark::State& state) {
  setUp(state);
  const std::vector<std::string> argv = files().openssl(true, files().body, files().out);
  for (auto _ : state)
    if (!run(argv)) state.SkipWithError("openssl enc -d failed");
  finish(state);
}

// Whole seconds per run: a few iterations, each on the same files, taken by the clock on the wall.
#define ZQ_FILE_BENCHMARK(name) BENCHMARK(name)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0)

ZQ_FILE_BENCHMARK(BM_ZqEncryptFile);
ZQ_FILE_BENCHMARK(BM_OpensslCommandEncrypt);
ZQ_FILE_BENCHMARK(BM_ZqEncryptFileWithDigest);
ZQ_FILE_BENCHMARK(BM_ZqDecryptFile);
ZQ_FILE_BENCHMARK(BM_OpensslCommandDecrypt);
ZQ_FILE_BENCHMARK(BM_ZqDecryptFileWithDigest);

}  // namespace
