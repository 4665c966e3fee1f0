// One file, many openers: every name of a file shares one reference in a
// process, processes keep out of each other's way, a file size limit fails
// calls instead of ending the process, and room a killed writer left behind
// is given back by the next one.
#if !defined(_WIN32)
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "aostore/aostore.h"
#include "storage/internals.h"
#include "support/container_test.h"
#include "support/temp_dir.h"

namespace {

using ao::test::Bytes;
using ao::test::Pattern;
using ao::test::ReadChild;

bool WriteStream(aoStorage* storage, const std::string& name, const Bytes& bytes) {
  aoStream* stream = storage->CreateStream(name.c_str(), kAoModeEdit);
  if (stream == nullptr) return false;
  const int64_t written = stream->Write(bytes.data(), static_cast<int64_t>(bytes.size()), true, nullptr);
  stream->Release();
  return written == static_cast<int64_t>(bytes.size());
}

// A child process that runs body and exits with its result; the parent
// and the child talk through two pipes, one byte at a time.
class Child {
 public:
  template <typename Body>
  explicit Child(Body body) {
    int toChild[2], toParent[2];
    EXPECT_EQ(::pipe(toChild), 0);
    EXPECT_EQ(::pipe(toParent), 0);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(toChild[1]);
      ::close(toParent[0]);
      in_ = toChild[0];
      out_ = toParent[1];
      ::_exit(body(*this) ? 0 : 1);
    }
    ::close(toChild[0]);
    ::close(toParent[1]);
    in_ = toParent[0];
    out_ = toChild[1];
  }
  ~Child() {
    ::close(in_);
    ::close(out_);
    if (pid_ > 0 && !waited_) Wait();
  }
  void Tell() const { EXPECT_EQ(::write(out_, "x", 1), 1); }
  bool Hear() const {
    char byte;
    return ::read(in_, &byte, 1) == 1;
  }
  // The exit status, or -1 when the child died of a signal.
  int Wait() {
    int status = 0;
    EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
    waited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int in_ = -1, out_ = -1;
  bool waited_ = false;
};

// Restores the lock wait after a test.
class LockWait {
 public:
  explicit LockWait(int milliseconds) : saved_(aoStorage::g_iLockWaitMilliseconds) {
    aoStorage::g_iLockWaitMilliseconds = milliseconds;
  }
  ~LockWait() { aoStorage::g_iLockWaitMilliseconds = saved_; }
  LockWait(const LockWait&) = delete;
  LockWait& operator=(const LockWait&) = delete;

 private:
  int saved_;
};

TEST(FileSharing, EverySpellingAndLinkOfAFileSharesOneReference) {
  ao::test::TempDir dir;
  std::filesystem::create_directory(dir.File("sub"));
  const std::string path = dir.File("sub/c.dat");
  aoStorage* first = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(first, nullptr);
  ASSERT_EQ(::link(path.c_str(), dir.File("hard.dat").c_str()), 0);
  ASSERT_EQ(::symlink(path.c_str(), dir.File("soft.dat").c_str()), 0);
  const std::vector<std::string> names = {dir.path() + "/sub//c.dat", dir.path() + "/sub/./c.dat",
                                          dir.path() + "/sub/../sub/c.dat", dir.File("hard.dat"),
                                          dir.File("soft.dat")};
  std::vector<aoStorage*> openers = {first};
  for (const std::string& name : names) {
    aoStorage* storage = aoStorage::Open(name.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(storage, nullptr) << name;
    EXPECT_EQ(ao::StorageInternals::FileRef(*storage), ao::StorageInternals::FileRef(*first)) << name;
    EXPECT_STREQ(storage->GetPath(), name.c_str());
    openers.push_back(storage);
  }
  // Streams created through each name in turn: each takes a slot of its own
  // (200 of them fill several root tables) and appends after the others.
  for (int round = 0; round < 40; ++round)
    for (size_t k = 0; k < openers.size(); ++k) {
      const std::string name = "s" + std::to_string(round) + "-" + std::to_string(k);
      ASSERT_TRUE(WriteStream(openers[k], name, Pattern(300 + round, static_cast<uint32_t>(round * 10 + k))));
    }
  for (aoStorage* storage : openers) storage->Release();

  aoStorage* reopened = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(reopened, nullptr);
  for (int round = 0; round < 40; ++round)
    for (size_t k = 0; k < openers.size(); ++k) {
      const std::string name = "s" + std::to_string(round) + "-" + std::to_string(k);
      EXPECT_EQ(ReadChild(reopened, name.c_str()), Pattern(300 + round, static_cast<uint32_t>(round * 10 + k)))
          << name;
    }
  reopened->Release();
  EXPECT_EQ(ao::CheckContainer(path.c_str()).problemCount, 0);
}

TEST(FileSharing, OneProcessWritesAtATimeAndNoneReadsBesideIt) {
  ao::test::TempDir dir;
  const std::string path = dir.File("c.dat");
  aoStorage* made = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
  ASSERT_NE(made, nullptr);
  made->Release();

  Child writer([&](const Child& parent) {
    aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
    if (storage == nullptr) return false;
    bool ok = WriteStream(storage, "child-1", Pattern(5000, 1));
    parent.Tell();  // open and written
    parent.Hear();  // the parent has tried
    for (int i = 2; i <= 20 && ok; ++i) ok = WriteStream(storage, "child-" + std::to_string(i), Pattern(5000, i));
    storage->Release();
    return ok;
  });
  ASSERT_TRUE(writer.Hear());
  EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0), nullptr);
  EXPECT_EQ(ao::LastError(), ao::errc::busy);
  EXPECT_EQ(aoStorage::OpenOrCreate(path.c_str(), kAoModeEdit, 0), nullptr);
  EXPECT_EQ(aoStorage::Create(path.c_str(), kAoModeEdit, 0), nullptr);
  EXPECT_EQ(ao::LastError(), ao::errc::busy);
  EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0), nullptr);
  EXPECT_EQ(aoStorage::OpenFast(path.c_str(), kAoModeInspect, 0), nullptr);
  const ao::CheckReport report = ao::CheckContainer(path.c_str());
  EXPECT_FALSE(report.readable);
  EXPECT_NE(report.readError.find("written by another process"), std::string::npos) << report.readError;

  // Asked to wait, an open goes on once the writer has finished.
  {
    LockWait wait(20000);
    writer.Tell();
    aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(storage, nullptr);
    EXPECT_TRUE(WriteStream(storage, "parent", Pattern(7000, 99)));
    storage->Release();
  }
  EXPECT_EQ(writer.Wait(), 0);
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(storage, nullptr);
  for (int i = 1; i <= 20; ++i)
    EXPECT_EQ(ReadChild(storage, ("child-" + std::to_string(i)).c_str()), Pattern(5000, i)) << i;
  EXPECT_EQ(ReadChild(storage, "parent"), Pattern(7000, 99));
  storage->Release();

  // Readers in two processes at once; a writer waits for both. (A child
  // forked while the parent has the file open shares the parent's lock.)
  Child reader([&](const Child& parent) {
    aoStorage* mine = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
    parent.Tell();
    parent.Hear();
    if (mine != nullptr) mine->Release();
    return mine != nullptr;
  });
  ASSERT_TRUE(reader.Hear());
  storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(storage, nullptr);
  EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0), nullptr);
  EXPECT_EQ(ao::LastError(), ao::errc::read_elsewhere);
  storage->Release();
  EXPECT_EQ(aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0), nullptr);
  EXPECT_EQ(ao::LastError(), ao::errc::read_elsewhere);
  reader.Tell();
  EXPECT_EQ(reader.Wait(), 0);
  storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(storage, nullptr);
  EXPECT_EQ(storage->Sync(), 1);
  storage->Release();
}

TEST(FileSharing, TheFileSizeLimitFailsWritesAndLeavesAValidContainer) {
  ao::test::TempDir dir;
  const std::string path = dir.File("c.dat");
  constexpr rlim_t kLimit = 300 * 1024;
  Child limited([&](const Child&) {
    ::signal(SIGXFSZ, SIG_DFL);
    const struct rlimit limit = {kLimit, kLimit};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
    aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
    if (storage == nullptr) return false;
    int written = 0;
    while (WriteStream(storage, "s" + std::to_string(written), Pattern(16384, written))) ++written;
    std::ofstream(path + ".count") << written;
    // The limit stops one write, not the container: what fits still goes in.
    const bool small = WriteStream(storage, "small", Pattern(100, 7));
    storage->Release();
    return written > 5 && small;
  });
  ASSERT_EQ(limited.Wait(), 0);
  EXPECT_LE(ao::test::FileSize(path), static_cast<int64_t>(kLimit));
  EXPECT_EQ(ao::CheckContainer(path.c_str()).problemCount, 0);
  int written = 0;
  std::ifstream(path + ".count") >> written;
  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(storage, nullptr);
  for (int i = 0; i < written; ++i) EXPECT_EQ(ReadChild(storage, ("s" + std::to_string(i)).c_str()), Pattern(16384, i));
  EXPECT_EQ(ReadChild(storage, "small"), Pattern(100, 7));
  storage->Release();
}

TEST(FileSharing, RoomAKilledWriterLeftIsGivenBackByTheNextWriter) {
  if (aoStorage::g_bUseFileMapping == 0) GTEST_SKIP() << "file mapping is off: no room is grown ahead";
  ao::test::TempDir dir;
  const std::string path = dir.File("c.dat");
  // 44 MiB of streams: the file was last grown at 43 MiB, to 49 MiB.
  constexpr int kStreams = 44;
  Child killed([&](const Child& parent) {
    aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
    for (int i = 0; i < kStreams && storage != nullptr; ++i) WriteStream(storage, "s" + std::to_string(i), Pattern(1 << 20, i));
    parent.Tell();
    ::raise(SIGKILL);
    return false;
  });
  EXPECT_TRUE(killed.Hear());
  EXPECT_EQ(killed.Wait(), -1);
  const int64_t left = ao::test::FileSize(path);
  const ao::CheckReport before = ao::CheckContainer(path.c_str());
  EXPECT_EQ(before.problemCount, 0);
  EXPECT_GT(before.facts.unreferencedBytes, 4 << 20);

  aoStorage* storage = aoStorage::Open(path.c_str(), kAoModeEdit, 0, 0);
  ASSERT_NE(storage, nullptr);
  EXPECT_TRUE(WriteStream(storage, "after", Pattern(5000, 1000)));
  storage->Release();
  const ao::CheckReport report = ao::CheckContainer(path.c_str());
  EXPECT_EQ(report.problemCount, 0);
  EXPECT_LT(report.facts.unreferencedBytes, 1 << 20);
  EXPECT_LT(ao::test::FileSize(path), left);
  storage = aoStorage::Open(path.c_str(), kAoModeInspect, 0, 0);
  ASSERT_NE(storage, nullptr);
  for (int i = 0; i < kStreams; ++i) EXPECT_EQ(ReadChild(storage, ("s" + std::to_string(i)).c_str()), Pattern(1 << 20, i));
  EXPECT_EQ(ReadChild(storage, "after"), Pattern(5000, 1000));
  storage->Release();
}

// Whether the process maps the file at path (by its identity, as the
// system lists mappings).
bool Mapped(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return false;
  std::ifstream maps("/proc/self/maps");
  std::string line;
  const std::string inode = " " + std::to_string(info.st_ino) + " ";
  while (std::getline(maps, line))
    if (line.find(inode) != std::string::npos && line.find(std::filesystem::path(path).filename().string()) != std::string::npos)
      return true;
  return false;
}

TEST(FileSharing, TheMappingSwitchDecidesForContainersOpenedAfterIt) {
  if (!std::filesystem::exists("/proc/self/maps")) GTEST_SKIP() << "no /proc/self/maps to look at";
  ao::test::TempDir dir;
  const int saved = aoStorage::g_bUseFileMapping;
  for (const int mapping : {0, 1}) {
    aoStorage::g_bUseFileMapping = mapping;
    const std::string path = dir.File("mapping-" + std::to_string(mapping) + ".dat");
    aoStorage* storage = aoStorage::Create(path.c_str(), kAoModeEdit, 0);
    ASSERT_NE(storage, nullptr);
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(WriteStream(storage, "s" + std::to_string(i), Pattern(100 + i, i)));
    for (int i = 0; i < 50; ++i) EXPECT_EQ(ReadChild(storage, ("s" + std::to_string(i)).c_str()), Pattern(100 + i, i));
    EXPECT_EQ(Mapped(path), mapping != 0) << "mapping " << mapping;
    EXPECT_EQ(storage->Sync(), 1);
    storage->Release();
  }
  aoStorage::g_bUseFileMapping = saved;
}

}  // namespace
#endif
