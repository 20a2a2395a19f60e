#include <zq/crypto/SecureFile.h>

#include <tests/support/ChildProcess.h>

#include <gtest/gtest.h>
#include <boost/filesystem.hpp>

#include <atomic>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = boost::filesystem;
using zq::crypto::randomKey;
using zq::crypto::replaceFile;

void writeFile(const fs::path& path, const std::string& content) {
  std::ofstream out(path.string(), std::ios::binary | std::ios::trunc);
  out << content;
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path.string(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct stat statOf(const fs::path& path) {
  struct stat s {};
  EXPECT_EQ(0, ::stat(path.c_str(), &s)) << path;
  return s;
}

// A fresh folder beside the test program (on disk), and one on a tmpfs when there is one.
class SecureFile : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string name = fs::unique_path("zq-securefile-%%%%-%%%%").string();
    m_disk = fs::path(zq::test::selfExecutable()).parent_path() / name;
    fs::create_directories(m_disk);
    if (fs::is_directory("/dev/shm")) {
      m_other = fs::path("/dev/shm") / name;
      fs::create_directories(m_other);
    }
  }
  void TearDown() override {
    fs::remove_all(m_disk);
    if (!m_other.empty()) fs::remove_all(m_other);
  }
  // Names other than the given ones in the disk folder: temporaries left behind.
  std::size_t strayFiles(std::size_t expected) const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_disk), fs::directory_iterator())) - expected;
  }
  bool haveOtherFileSystem() const { return !m_other.empty() && statOf(m_other).st_dev != statOf(m_disk).st_dev; }

  fs::path m_disk, m_other;
};

TEST_F(SecureFile, OverwritePassesAndBlocks) {
  const fs::path f = m_disk / "f";
  struct Case {
    std::size_t size;
    int passes;
    std::size_t after;
    char fill;  // 'r': random
  } const cases[] = {{1, 1, 4096, '\0'},    {0, 1, 0, '\0'},    {4097, 1, 8192, '\0'}, {4096, 1, 4096, '\0'},
                     {10, 2, 4096, '\xFF'}, {10, 3, 4096, 'r'}, {10, 4, 4096, '\0'},   {5000, 5, 8192, '\xFF'}};
  for (const Case& c : cases) {
    writeFile(f, std::string(c.size, 'p'));
    const ino_t inode = statOf(f).st_ino;
    zq::crypto::zeroOut(f, c.passes);
    const std::string after = readFile(f);
    EXPECT_EQ(c.after, after.size()) << c.size << " bytes, " << c.passes << " passes";
    EXPECT_EQ(inode, statOf(f).st_ino) << "the file stays itself";
    if (c.fill == 'r') {
      EXPECT_NE(std::string::npos, after.find_first_not_of('\0'));
      EXPECT_NE(std::string::npos, after.find_first_not_of('\xFF'));
      EXPECT_NE(std::string(c.size, 'p'), after.substr(0, c.size));
    } else {
      EXPECT_EQ(std::string::npos, after.find_first_not_of(c.fill)) << c.size << " bytes, " << c.passes << " passes";
    }
  }
  writeFile(f, "keep");
  zq::crypto::zeroOut(f, 0);
  zq::crypto::zeroOut(f, -1);
  EXPECT_EQ("keep", readFile(f));
}

TEST_F(SecureFile, OverwriteOfWhatIsNoFileThrows) {
  EXPECT_THROW(zq::crypto::zeroOut(m_disk / "missing", 1), fs::filesystem_error);
  EXPECT_FALSE(fs::exists(m_disk / "missing"));
  EXPECT_THROW(zq::crypto::zeroOut(m_disk, 1), fs::filesystem_error);
  zq::crypto::zeroOut(m_disk / "missing", 0);  // no pass, no look at the file
}

// On either road (one file system, or from a tmpfs onto disk) a reader never finds the target
// missing or half written; the target keeps its permissions, the replacement's name goes, and no
// temporary file stays.
TEST_F(SecureFile, ReplaceIsAtomicOnEitherRoad) {
  const fs::path target = m_disk / "target";
  const std::string oldContent(200000, 'o');
  std::string newContent(300000, '\0');
  for (std::size_t i = 0; i < newContent.size(); ++i) newContent[i] = static_cast<char>(i * 7);
  for (const fs::path& folder : {m_disk, m_other}) {
    if (folder.empty() || (folder == m_other && !haveOtherFileSystem())) continue;
    for (int round = 0; round < 3; ++round) {
      const fs::path replacement = folder / "replacement";
      writeFile(target, oldContent);
      ::chmod(target.c_str(), 0640);
      writeFile(replacement, newContent);
      std::atomic<bool> done{false};
      std::atomic<int> bad{0}, reads{0};
      std::thread reader([&] {
        while (!done.load() || reads.load() == 0) {
          const std::string seen = readFile(target);
          if (seen != oldContent && seen != newContent) ++bad;
          ++reads;
        }
      });
      EXPECT_TRUE(replaceFile(target, replacement)) << folder;
      done = true;
      reader.join();
      EXPECT_EQ(0, bad.load()) << folder;
      EXPECT_TRUE(newContent == readFile(target)) << folder;
      EXPECT_FALSE(fs::exists(replacement)) << folder;
      EXPECT_EQ(0640u, statOf(target).st_mode & 07777) << folder;
    }
  }
  EXPECT_EQ(0u, strayFiles(1));
}

TEST_F(SecureFile, ReplaceRefusalsKeepBoth) {
  const fs::path target = m_disk / "target", replacement = m_disk / "replacement";
  writeFile(target, "old");
  writeFile(replacement, "new");
  EXPECT_FALSE(replaceFile(target, m_disk / "missing"));
  EXPECT_FALSE(replaceFile(m_disk / "missing", replacement));
  EXPECT_FALSE(fs::exists(m_disk / "missing"));
  EXPECT_FALSE(replaceFile(target, target));
  EXPECT_FALSE(replaceFile(target, m_disk / "." / "target"));
  EXPECT_FALSE(replaceFile(target, m_disk));
  EXPECT_FALSE(replaceFile(m_disk, replacement));
  EXPECT_EQ("old", readFile(target));
  EXPECT_EQ("new", readFile(replacement));
  EXPECT_EQ(0u, strayFiles(2));
}

// A copy that fails half-way (here: the file size limit) keeps the old target and leaves no
// temporary file.
TEST_F(SecureFile, ReplaceThatFailsKeepsTheTarget) {
  if (!haveOtherFileSystem()) GTEST_SKIP() << "no tmpfs at /dev/shm";
  const fs::path target = m_disk / "target", replacement = m_other / "replacement";
  writeFile(target, "old");
  writeFile(replacement, std::string(100000, 'n'));
  const pid_t child = ::fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{50000, 50000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    _exit(replaceFile(target, replacement) ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << "the replacement reported success";
  EXPECT_EQ("old", readFile(target));
  EXPECT_EQ(100000u, fs::file_size(replacement));
  EXPECT_EQ(0u, strayFiles(1));
}

TEST(SecureRandom, Keys) {
  zq::crypto::randomize();
  EXPECT_TRUE(randomKey(0).empty());
  const auto a = randomKey(64), b = randomKey(64);
  EXPECT_EQ(64u, a.size());
  EXPECT_NE(a, b);
  EXPECT_NE(zq::crypto::secure_string(64, '\0'), a);
}

}  // namespace
