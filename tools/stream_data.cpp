#include "stream_data.h"

#include <vector>

namespace aotool {
unsigned char* Scratch(int which) {
  thread_local std::vector<unsigned char> buffers[2];
  std::vector<unsigned char>& buffer = buffers[which & 1];
  if (buffer.empty()) buffer.resize(kScratchBytes);
  return buffer.data();
}

int64_t ReadAvailable(aoStream& stream, const ByteSink& sink, Progress* progress) {
  const int64_t length = stream.GetLength();
  if (length <= 0 || stream.Seek(0, 0, true) != 0) return 0;
  unsigned char* buffer = Scratch(0);
  int64_t total = 0;
  auto piece = static_cast<int64_t>(kScratchBytes);
  while (total < length) {
    const int64_t got = stream.Read(buffer, piece);
    if (got > 0) {
      sink(buffer, static_cast<size_t>(got));
      total += got;
      if (progress != nullptr) progress->Advance(got);
      continue;
    }
    // A read that reaches a damaged block delivers nothing: smaller pieces
    // from where the last good one ended get the bytes in front of it.
    if (piece == 1 || stream.Seek(total, 0, true) != 0) break;
    piece /= 2;
  }
  return total;
}

int64_t ReadWhole(const Container& container, aoStream& stream, const std::string& path, const ByteSink& sink,
                  Progress* progress) {
  const int64_t length = stream.GetLength();
  const int64_t total = ReadAvailable(stream, sink, progress);
  if (total != length) {
    FailWithDiagnosis(container.file(), Exit::kUnreadable,
                      path + " holds only " + std::to_string(total) + " of its " + std::to_string(length) + " bytes");
  }
  return total;
}

int64_t WriteWhole(const Container& container, aoStream& stream, const std::string& path, bool append,
                   const ByteSource& source, Progress* progress) {
  if (append) {
    stream.Seek(0, 1, true);  // to the end of the data
  } else if (!stream.Erase()) {
    FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot replace the data of " + path);
  }
  unsigned char* buffer = Scratch(0);
  int64_t total = 0;
  while (true) {
    const size_t got = source(buffer, kScratchBytes);
    if (got == 0) break;
    const int64_t put = stream.Write(buffer, static_cast<int64_t>(got), false, nullptr);
    if (put < 0) {
      const std::string why = ao::ErrorText(ao::LastIoError());
      FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot write " + path + " (" + why + ")");
    }
    total += put;
    if (progress != nullptr) progress->Advance(put);
    if (put < static_cast<int64_t>(got)) {
      Fail(Exit::kWriteFailed, container.file() + ": " + path + " is full after " + std::to_string(total) +
                                   " bytes (the largest stream or file the format allows)");
    }
  }
  return total;
}

}  // namespace aotool
