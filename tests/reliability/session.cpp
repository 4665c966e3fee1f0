#include "session.h"

#include <cstring>

#include "aostore/aostore.h"

namespace ao::test {
namespace {

uint32_t Mix(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352dU;
  x ^= x >> 15;
  x *= 0x846ca68bU;
  return x ^ (x >> 16);
}

uint32_t NameSeed(const std::string& name) {
  uint32_t seed = 2166136261u;
  for (unsigned char c : name) seed = (seed ^ c) * 16777619u;
  return seed;
}

// Opens "name" or "folder/child", creating what is missing.
aoStream* OpenForWriting(aoStorage& storage, const std::string& name, aoStream** folder) {
  *folder = nullptr;
  const size_t slash = name.find('/');
  if (slash == std::string::npos) return storage.OpenOrCreateStream(name.c_str(), 0);
  *folder = storage.OpenOrCreateStream(name.substr(0, slash).c_str(), 1);
  if (*folder == nullptr) return nullptr;
  return (*folder)->OpenOrCreateStream(name.substr(slash + 1).c_str(), 0u, kAoModeEdit);
}

aoStream* OpenForReading(aoStorage& storage, const std::string& name, aoStream** folder) {
  *folder = nullptr;
  const size_t slash = name.find('/');
  if (slash == std::string::npos) return storage.OpenStream(name.c_str(), kAoModeInspect);
  *folder = storage.OpenStream(name.substr(0, slash).c_str(), kAoModeInspect);
  if (*folder == nullptr) return nullptr;
  return (*folder)->OpenStream(name.substr(slash + 1).c_str(), kAoModeInspect);
}

void Close(aoStream* stream, aoStream* folder) {
  if (stream != nullptr) stream->Release();
  if (folder != nullptr) folder->Release();
}

// Writes bytes [from, from + count) of the stream's content at position from.
bool WriteRange(aoStorage& storage, const std::string& name, int64_t from, int64_t count) {
  aoStream* folder = nullptr;
  aoStream* stream = OpenForWriting(storage, name, &folder);
  bool ok = stream != nullptr;
  if (ok && from > 0) ok = stream->Seek(from, 0, true) == 0;
  if (ok) {
    const auto bytes = StreamBytes(name, from, count);
    ok = stream->Write(bytes.data(), count, false, nullptr) == count;
  }
  Close(stream, folder);
  return ok;
}

}  // namespace

std::vector<unsigned char> StreamBytes(const std::string& name, int64_t from, int64_t count) {
  std::vector<unsigned char> bytes(static_cast<size_t>(count));
  const uint32_t seed = NameSeed(name);
  for (int64_t i = 0; i < count; ++i) bytes[static_cast<size_t>(i)] = static_cast<unsigned char>(Mix(seed + static_cast<uint32_t>(from + i)));
  return bytes;
}

std::vector<SessionStep> MakeSession(int round) {
  const std::string r = std::to_string(round);
  const std::string a = "a" + r, folder = "f" + r, child = folder + "/c", other = folder + "/d";
  std::vector<SessionStep> steps;
  steps.push_back({"create " + a, [=](aoStorage& s) { return WriteRange(s, a, 0, 3000); }, {{a, 3000}}});
  steps.push_back({"create " + child, [=](aoStorage& s) { return WriteRange(s, child, 0, 5000); }, {{child, 5000}}});
  steps.push_back({"append to " + a, [=](aoStorage& s) { return WriteRange(s, a, 3000, 20000); }, {{a, 23000}}});
  steps.push_back({"entries", [=](aoStorage& s) { return s.SetEntry(("n" + r).c_str(), 42 + round) == 1; },
                   {{"n" + r, 0, true, 42 + round}}});
  steps.push_back({"create temporary", [=](aoStorage& s) { return WriteRange(s, "tmp" + r, 0, 100); }, {}});
  steps.push_back({"remove temporary",
                   [=](aoStorage& s) {
                     aoStream* stream = s.OpenStream(("tmp" + r).c_str(), kAoModeEdit);
                     if (stream == nullptr) return false;
                     if (stream->Remove()) return true;
                     stream->Release();
                     return false;
                   },
                   {}});
  std::vector<Promise> many;
  for (int i = 0; i < 70; ++i) many.push_back({"m" + r + "_" + std::to_string(i), 10});
  steps.push_back({"many root streams",
                   [=](aoStorage& s) {
                     bool ok = true;
                     for (const Promise& p : many) ok = WriteRange(s, p.name, 0, 10) && ok;
                     return ok;
                   },
                   many});
  steps.push_back({"create " + other, [=](aoStorage& s) { return WriteRange(s, other, 0, 70000); }, {{other, 70000}}});
  steps.push_back({"overwrite middle of " + a, [=](aoStorage& s) { return WriteRange(s, a, 1000, 5000); }, {{a, 23000}}});
  steps.push_back({"grow " + child, [=](aoStorage& s) { return WriteRange(s, child, 5000, 9000); }, {{child, 14000}}});
  return steps;
}

std::string CheckPromise(aoStorage& storage, const Promise& promise) {
  if (promise.entry) {
    const int value = storage.GetEntry(promise.name.c_str(), -1);
    return value == promise.value ? "" : promise.name + " holds " + std::to_string(value);
  }
  aoStream* folder = nullptr;
  aoStream* stream = OpenForReading(storage, promise.name, &folder);
  if (stream == nullptr) {
    Close(stream, folder);
    return promise.name + " is missing";
  }
  std::string problem;
  if (stream->GetLength() < promise.length) {
    problem = promise.name + " is " + std::to_string(stream->GetLength()) + " bytes";
  } else {
    std::vector<unsigned char> bytes(static_cast<size_t>(promise.length));
    const int64_t got = stream->Read(bytes.data(), promise.length);
    if (got != promise.length || bytes != StreamBytes(promise.name, 0, promise.length))
      problem = promise.name + " reads back differently";
  }
  Close(stream, folder);
  return problem;
}

}  // namespace ao::test
