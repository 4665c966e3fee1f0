// The writer that the crash test kills: it edits a container round after
// round and, after every step that finished, appends the step's promises to
// a journal (each line reaches the operating system before the next step).
//   aostore_crash_writer CONTAINER JOURNAL
#include <cstdio>
#include <fstream>

#include "aostore/aostore.h"
#include "session.h"
#include "support/file_mapping.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s CONTAINER JOURNAL\n", argv[0]);
    return 2;
  }
  ao::test::ApplyFileMappingSetting();
  std::ofstream journal(argv[2], std::ios::trunc);
  aoStorage* storage = aoStorage::Create(argv[1], kAoModeEdit, 0);
  if (storage == nullptr) return 1;
  journal << "ready" << std::endl;
  storage->StartRecording();
  for (int round = 0; round < 1000; ++round) {
    for (const auto& step : ao::test::MakeSession(round)) {
      if (!step.run(*storage)) return 1;
      for (const auto& promise : step.promises)
        journal << (promise.entry ? "entry " : "stream ") << promise.name << ' '
                << (promise.entry ? promise.value : promise.length) << std::endl;
    }
    // A recorded session is handed out and dropped now and then.
    delete storage->StopRecording();
    storage->StartRecording();
  }
  storage->Release();
  return 0;
}
