// Workloads that move bulk data: one large stream (W2) with random reads in it
// (W5), many streams growing in turns (W3), and two writer threads (W6).
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "workloads.h"

namespace bench {
namespace {

constexpr std::uint64_t kLargeKey = 3ull << 40;
constexpr std::uint64_t kInterleavedKeys = 4ull << 40;
constexpr std::uint64_t kParallelKeys = 5ull << 40;

std::string Mib(std::uint64_t bytes) {
  return bytes % (1 << 20) == 0 ? std::to_string(bytes >> 20) + " MiB" : std::to_string(bytes >> 10) + " KiB";
}

void WriteChunks(StreamWriter& writer, const Context& context, std::uint64_t stream, std::uint64_t bytes) {
  for (std::uint64_t offset = 0; offset < bytes; offset += kChunk)
    writer.Append(context.payload.At(stream, offset, kChunk), kChunk);
}

void ReadChunks(StreamReader& reader, unsigned char* buffer, const Context& context, std::uint64_t stream,
                std::uint64_t bytes, Stopwatch& clock, const std::string& where) {
  for (std::uint64_t offset = 0; offset < bytes; offset += kChunk)
    ReadAndVerify(reader, buffer, kChunk, context, stream, offset, clock, where);
}

}  // namespace

// W2: one large stream written and read in 16 KiB pieces; W5: random 4 KiB
// reads at byte offsets in it, the same offsets for every backend.
Workload LargeStreamWorkload(const Sizes& sizes) {
  const std::uint64_t bytes = sizes.w2Bytes;
  const int reads = sizes.w5Reads;
  const std::size_t readBytes = sizes.w5ReadBytes;
  const std::string w2 = "large: one " + Mib(bytes) + " stream, 16 KiB writes, reopen, 16 KiB reads";
  const std::string w5 = "random read: " + std::to_string(reads) + " reads of " + std::to_string(readBytes) +
                         " B at random offsets of the W2 stream";
  auto run = [=](Backend& backend, const Context& context) {
    const std::string path = ContainerPath(context, backend, "W2");
    std::vector<std::uint64_t> offsets(static_cast<std::size_t>(reads));
    std::mt19937_64 random(2);
    for (auto& offset : offsets) offset = random() % (bytes - readBytes + 1);

    Stopwatch write;
    write.Start();
    {
      auto container = backend.Create(path);
      WriteChunks(*container->Root().CreateStream("large"), context, kLargeKey, bytes);
    }
    write.Stop();

    std::vector<unsigned char> buffer(kChunk);
    Stopwatch read;
    read.Start();
    {
      auto container = backend.Open(path, Access::kRead);
      ReadChunks(*container->Root().OpenStream("large"), buffer.data(), context, kLargeKey, bytes, read, "W2");
    }
    read.Stop();

    Stopwatch randomRead;
    randomRead.Start();
    {
      auto container = backend.Open(path, Access::kRead);
      auto reader = container->Root().OpenStream("large");
      for (const std::uint64_t offset : offsets) {
        const std::size_t got = reader->ReadAt(offset, buffer.data(), readBytes);
        randomRead.Stop();
        if (got != readBytes) throw BackendError("W5: short read at " + std::to_string(offset));
        context.payload.Verify(kLargeKey, offset, buffer.data(), readBytes, "W5");
        randomRead.Start();
      }
    }
    randomRead.Stop();
    backend.Remove(path);
    const auto chunks = bytes / kChunk;
    const auto count = static_cast<std::uint64_t>(reads);
    return Samples{{"W2", "write", write.Seconds(), bytes, chunks},
                   {"W2", "read", read.Seconds(), bytes, chunks},
                   {"W5", "read", randomRead.Seconds(), count * readBytes, count}};
  };
  return {"W2", {{"W2", w2}, {"W5", w5}}, run};
}

// W3: streams grown round-robin, one 16 KiB append each in turn, so that no
// stream's next bytes can simply follow its previous ones in the file.
Workload InterleavedWorkload(const Sizes& sizes) {
  const int streams = sizes.w3Streams;
  const std::uint64_t bytes = sizes.w3Bytes;
  const std::string title = "interleaved: " + std::to_string(streams) + " streams grown round-robin by 16 KiB to " +
                            Mib(bytes) + " each, reopen, 16 KiB reads";
  auto run = [=](Backend& backend, const Context& context) {
    const std::string path = ContainerPath(context, backend, "W3");
    const std::vector<std::string> names = NumberedNames("i", static_cast<std::uint64_t>(streams));
    const std::uint64_t total = bytes * static_cast<std::uint64_t>(streams);

    Stopwatch write;
    write.Start();
    {
      auto container = backend.Create(path);
      std::vector<std::unique_ptr<StreamWriter>> writers;
      for (const auto& name : names) writers.push_back(container->Root().CreateStream(name));
      for (std::uint64_t offset = 0; offset < bytes; offset += kChunk)
        for (int s = 0; s < streams; ++s)
          writers[s]->Append(context.payload.At(kInterleavedKeys + s, offset, kChunk), kChunk);
    }
    write.Stop();

    std::vector<unsigned char> buffer(kChunk);
    Stopwatch read;
    read.Start();
    {
      auto container = backend.Open(path, Access::kRead);
      for (int s = 0; s < streams; ++s)
        ReadChunks(*container->Root().OpenStream(names[s]), buffer.data(), context, kInterleavedKeys + s, bytes, read,
                   "W3 " + names[s]);
    }
    read.Stop();
    backend.Remove(path);
    return Samples{{"W3", "write", write.Seconds(), total, total / kChunk},
                   {"W3", "read", read.Seconds(), total, total / kChunk}};
  };
  return {"W3", {{"W3", title}}, run};
}

// W6: threads writing streams of their own into one container at once, each
// through its own open of the container. Read back and checked untimed.
Workload ParallelWorkload(const Sizes& sizes) {
  const int threads = sizes.w6Threads;
  const int perThread = sizes.w6PerThread;
  const std::uint64_t bytes = sizes.w6Bytes;
  const std::string title = "parallel: " + std::to_string(threads) + " threads each writing " +
                            std::to_string(perThread) + " streams of " + Mib(bytes) + " in 16 KiB writes, one container";
  auto run = [=](Backend& backend, const Context& context) {
    const std::string path = ContainerPath(context, backend, "W6");
    std::vector<std::vector<std::string>> names;
    for (int t = 0; t < threads; ++t) {
      std::string prefix = "t";
      prefix += std::to_string(t);
      prefix += '-';
      names.push_back(NumberedNames(prefix.c_str(), static_cast<std::uint64_t>(perThread)));
    }
    auto key = [&](int t, int s) { return kParallelKeys + static_cast<std::uint64_t>(t) * perThread + s; };
    backend.Create(path);

    std::vector<std::exception_ptr> errors(static_cast<std::size_t>(threads));
    Stopwatch write;
    write.Start();
    {
      std::vector<std::thread> workers;
      for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
          try {
            auto container = backend.Open(path, Access::kWrite);
            for (int s = 0; s < perThread; ++s)
              WriteChunks(*container->Root().CreateStream(names[t][s]), context, key(t, s), bytes);
          } catch (...) {
            errors[t] = std::current_exception();
          }
        });
      }
      for (auto& worker : workers) worker.join();
    }
    write.Stop();
    for (const auto& error : errors)
      if (error) std::rethrow_exception(error);

    std::vector<unsigned char> buffer(kChunk);
    Stopwatch untimed;
    {
      auto container = backend.Open(path, Access::kRead);
      for (int t = 0; t < threads; ++t)
        for (int s = 0; s < perThread; ++s)
          ReadChunks(*container->Root().OpenStream(names[t][s]), buffer.data(), context, key(t, s), bytes, untimed,
                     "W6 " + names[t][s]);
    }
    backend.Remove(path);
    const std::uint64_t total = bytes * static_cast<std::uint64_t>(threads * perThread);
    return Samples{{"W6", "write", write.Seconds(), total, total / kChunk}};
  };
  return {"W6", {{"W6", title}}, run};
}

}  // namespace bench
