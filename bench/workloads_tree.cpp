// Workloads of many small streams: a tree of folders (W1), a flat directory
// looked up by name (W4), and the name index of one big folder.
#include <memory>
#include <string>
#include <vector>

#include "workloads.h"

namespace bench {
namespace {

constexpr std::uint64_t kSmallKeys = 1ull << 40;
constexpr std::uint64_t kLookupKeys = 2ull << 40;

std::string Suffix(int factor) {
  if (factor == 1) return {};
  std::string suffix = "x";
  suffix += std::to_string(factor);
  return suffix;
}

}  // namespace

// W1: folders of 4 KiB streams, written, closed, reopened and read back. The
// scaling run has ten times the streams in every folder.
Workload SmallStreamsWorkload(const Sizes& sizes, int factor) {
  const int folders = sizes.w1Folders;
  const int perFolder = sizes.w1PerFolder * factor;
  const std::size_t bytes = sizes.w1StreamBytes;
  const std::string id = "W1" + Suffix(factor);
  const std::string title = "small: " + std::to_string(folders) + " folders x " + std::to_string(perFolder) +
                            " streams of " + std::to_string(bytes) + " B";
  auto run = [=](Backend& backend, const Context& context) {
    const std::string path = ContainerPath(context, backend, id);
    const std::vector<std::string> folderNames = NumberedNames("f", static_cast<std::uint64_t>(folders));
    const std::vector<std::string> streamNames = NumberedNames("s", static_cast<std::uint64_t>(perFolder));
    auto key = [&](int f, int s) { return kSmallKeys + static_cast<std::uint64_t>(f) * perFolder + s; };
    const std::uint64_t streams = static_cast<std::uint64_t>(folders) * perFolder;

    Stopwatch write;
    write.Start();
    {
      auto container = backend.Create(path);
      for (int f = 0; f < folders; ++f) {
        auto folder = container->Root().CreateFolder(folderNames[f]);
        for (int s = 0; s < perFolder; ++s) folder->CreateStream(streamNames[s])->Append(context.payload.At(key(f, s), 0, bytes), bytes);
      }
    }
    write.Stop();

    std::vector<unsigned char> buffer(bytes);
    Stopwatch read;
    read.Start();
    {
      auto container = backend.Open(path, Access::kRead);
      for (int f = 0; f < folders; ++f) {
        auto folder = container->Root().OpenFolder(folderNames[f]);
        for (int s = 0; s < perFolder; ++s) {
          auto reader = folder->OpenStream(streamNames[s]);
          ReadAndVerify(*reader, buffer.data(), bytes, context, key(f, s), 0, read,
                        id + " " + folderNames[f] + "/" + streamNames[s]);
        }
      }
    }
    read.Stop();
    backend.Remove(path);
    return Samples{{id, "write", write.Seconds(), streams * bytes, streams},
                   {id, "read", read.Seconds(), streams * bytes, streams}};
  };
  return {id, {{id, title}}, run};
}

// W4: many tiny root streams, then opened by name in a fixed random order.
Workload LookupWorkload(const Sizes& sizes, int factor) {
  const auto count = static_cast<std::uint32_t>(sizes.w4Streams) * static_cast<std::uint32_t>(factor);
  const std::size_t bytes = sizes.w4StreamBytes;
  const std::string id = "W4" + Suffix(factor);
  const std::string title = "lookup: " + std::to_string(count) + " root streams of " + std::to_string(bytes) +
                            " B, opened by name in random order";
  auto run = [=](Backend& backend, const Context& context) {
    const std::string path = ContainerPath(context, backend, id);
    const std::vector<std::string> names = NumberedNames("r", count);
    const std::vector<std::uint32_t> order = ShuffledIndexes(count, 4);

    Stopwatch create;
    create.Start();
    {
      auto container = backend.Create(path);
      for (std::uint32_t i = 0; i < count; ++i)
        container->Root().CreateStream(names[i])->Append(context.payload.At(kLookupKeys + i, 0, bytes), bytes);
    }
    create.Stop();

    // Reopening (and closing) the container is timed apart from the look-ups
    // and reported as its own phase: a backend that indexes the names when
    // it opens pays for that there, once, not in every look-up.
    unsigned char buffer[64];
    Stopwatch session;
    Stopwatch lookup;
    session.Start();
    auto container = backend.Open(path, Access::kRead);
    session.Stop();
    lookup.Start();
    for (const std::uint32_t i : order) {
      auto reader = container->Root().OpenStream(names[i]);
      ReadAndVerify(*reader, buffer, bytes, context, kLookupKeys + i, 0, lookup, id + " " + names[i]);
    }
    lookup.Stop();
    session.Start();
    container.reset();
    session.Stop();
    backend.Remove(path);
    return Samples{{id, "create", create.Seconds(), count * bytes, count},
                   {id, "open+close", session.Seconds(), 0, 1},
                   {id, "lookup", lookup.Seconds(), count * bytes, count}};
  };
  return {id, {{id, title}}, run};
}

// The name index of one folder: children created (without data) and then
// found by name, in one session. aostore preloads the folder's children.
Workload FolderIndexWorkload(const Sizes& sizes, int factor) {
  const auto count = static_cast<std::uint32_t>(sizes.folderChildren) * static_cast<std::uint32_t>(factor);
  const std::string id = "PF" + Suffix(factor);
  const std::string title = "preloaded folder: create then find " + std::to_string(count) + " children";
  auto run = [=](Backend& backend, const Context& context) {
    const std::string path = ContainerPath(context, backend, id);
    const std::vector<std::string> names = NumberedNames("c", count);
    const std::vector<std::uint32_t> order = ShuffledIndexes(count, 5);
    Stopwatch create;
    Stopwatch find;
    {
      auto container = backend.Create(path);
      auto folder = container->Root().CreateFolder("index");
      create.Start();
      for (std::uint32_t i = 0; i < count; ++i) folder->CreateEmpty(names[i]);
      create.Stop();
      find.Start();
      for (const std::uint32_t i : order)
        if (!folder->Contains(names[i])) throw BackendError(id + ": child not found: " + names[i]);
      find.Stop();
      if (folder->Contains("absent")) throw BackendError(id + ": found a child never created");
    }
    backend.Remove(path);
    // The index is judged by the whole job, creating and then finding.
    return Samples{{id, "create", create.Seconds(), 0, count},
                   {id, "find", find.Seconds(), 0, count},
                   {id, "create+find", create.Seconds() + find.Seconds(), 0, count}};
  };
  return {id, {{id, title}}, run};
}

}  // namespace bench
