// A writer process is killed at random moments. After each kill the
// container opens, passes the structural check, and every stream and entry
// whose step had finished reads back exactly.
//
// What an interrupted step may leave, and the check accepts, is space that
// nothing refers to: a block appended for a stream whose header was not yet
// updated, or a root table appended but not yet linked. The data of the
// interrupted step itself may be missing or partly there. The room the
// writer had grown ahead of the file's end is given back by the next writer.
#if !defined(_WIN32)
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "aostore/aostore.h"
#include "aostore/check.h"
#include "session.h"
#include "support/temp_dir.h"

extern char** environ;

namespace {

int KillsWanted() {
  const char* text = std::getenv("AOSTORE_CRASH_KILLS");
  return text != nullptr ? std::max(1, std::atoi(text)) : 200;
}

pid_t StartWriter(const std::string& container, const std::string& journal) {
  std::string program = AOSTORE_CRASH_WRITER;
  char* argv[] = {program.data(), const_cast<char*>(container.c_str()), const_cast<char*>(journal.c_str()), nullptr};
  pid_t pid = -1;
  if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0) return -1;
  return pid;
}

struct Journal {
  bool ready = false;
  std::map<std::string, ao::test::Promise> promises;  // the last word on each name
};

Journal ReadJournal(const std::string& path) {
  Journal journal;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string kind, name;
    long long number = 0;
    fields >> kind;
    if (kind == "ready") {
      journal.ready = true;
      continue;
    }
    // A line cut off by the kill has no number yet.
    if (!(fields >> name >> number)) break;
    ao::test::Promise promise;
    promise.name = name;
    promise.entry = kind == "entry";
    if (promise.entry) {
      promise.value = static_cast<int>(number);
    } else {
      promise.length = number;
    }
    journal.promises[name] = promise;
  }
  return journal;
}

TEST(CrashSafety, KilledWritersLoseNothingThatWasFinished) {
  ao::test::TempDir dir;
  const std::string container = dir.File("crash.dat");
  const std::string journalPath = dir.File("journal.txt");
  std::mt19937 random(20261123);
  std::uniform_int_distribution<int> delay(0, 60000);
  const int kills = KillsWanted();
  int checked = 0, promisesVerified = 0;
  for (int kill = 0; kill < kills; ++kill) {
    std::remove(container.c_str());
    std::remove(journalPath.c_str());
    const pid_t pid = StartWriter(container, journalPath);
    ASSERT_GT(pid, 0);
    // The kill falls at a random moment of the editing, not of the start-up.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!ReadJournal(journalPath).ready && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
    ::kill(pid, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);

    const Journal journal = ReadJournal(journalPath);
    if (!journal.ready) continue;  // killed while the container was being made
    const ao::CheckReport report = ao::CheckContainer(container.c_str());
    ASSERT_TRUE(report.directorySound) << "kill " << kill;
    EXPECT_EQ(report.problemCount, 0) << "kill " << kill << ": "
                                      << (report.problems.empty() ? "" : report.problems[0].message);
    aoStorage* storage = aoStorage::Open(container.c_str(), kAoModeInspect, 0, 0);
    ASSERT_NE(storage, nullptr) << "kill " << kill;
    for (const auto& [name, promise] : journal.promises) {
      EXPECT_EQ(ao::test::CheckPromise(*storage, promise), "") << "kill " << kill;
      ++promisesVerified;
    }
    storage->Release();
    // The next writer gives back the room the killed one had grown ahead.
    storage = aoStorage::Open(container.c_str(), kAoModeEdit, 0, 0);
    ASSERT_NE(storage, nullptr) << "kill " << kill;
    aoStream* after = storage->OpenOrCreateStream("after the kill", 0);
    ASSERT_NE(after, nullptr) << "kill " << kill;
    EXPECT_EQ(after->Write("more", 4, false, nullptr), 4);
    after->Release();
    storage->Release();
    const ao::CheckReport reopened = ao::CheckContainer(container.c_str());
    EXPECT_EQ(reopened.problemCount, 0) << "kill " << kill;
    EXPECT_LT(reopened.facts.unreferencedBytes, 1 << 20) << "kill " << kill;
    ++checked;
  }
  std::printf("crash test: %d kills, %d containers checked, %d promises verified\n", kills, checked,
              promisesVerified);
  EXPECT_EQ(checked, kills);
}

}  // namespace
#endif
