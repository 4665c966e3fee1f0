// entries: typed values stored as streams of the root or of a folder.
#include <cstdio>
#include <iostream>

#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "entry_values.h"
#include "stream_data.h"
#include "tree.h"

namespace aotool {
namespace {

constexpr int64_t kShownBytes = 4096;

// The first bytes of an entry's stream (all of a small one).
std::vector<unsigned char> Head(const Container& container, aoStream& stream, const std::string& path) {
  std::vector<unsigned char> bytes(static_cast<size_t>(std::min(stream.GetLength(), kShownBytes)));
  if (bytes.empty()) return bytes;
  if (stream.Seek(0, 0, true) != 0 || stream.Read(bytes.data(), static_cast<int64_t>(bytes.size())) !=
                                          static_cast<int64_t>(bytes.size()))
    FailWithDiagnosis(container.file(), Exit::kUnreadable, "cannot read " + path);
  return bytes;
}

std::string ReadStandardInput() {
  std::string all;
  char piece[4096];
  while (std::cin.read(piece, sizeof piece) || std::cin.gcount() > 0)
    all.append(piece, static_cast<size_t>(std::cin.gcount()));
  return all;
}

// The entry name inside folder (the root when null) as a data stream; fails
// when it is missing or a folder.
aoStream* OpenEntry(const Container& container, aoStream* folder, const std::string& name, const std::string& path) {
  aoStream* stream = OpenChild(container, folder, name, kAoModeInspect);
  if (stream == nullptr) Fail(Exit::kNoSuchStream, container.file() + ": no such entry: " + path);
  if (stream->IsFolder() != 0) {
    stream->Release();
    Fail(Exit::kConflict, container.file() + ": " + path + " is a folder, not an entry");
  }
  return stream;
}

int List(const Container& container, aoStream* folder, std::ostream& out) {
  for (const TreeEntry& entry : ListChildren(container, folder)) {
    if (entry.folder) continue;
    const HeldStream stream(OpenEntry(container, folder, entry.name, entry.name));
    const std::vector<unsigned char> bytes = Head(container, *stream.get(), entry.name);
    char line[80];
    std::snprintf(line, sizeof line, "%-24s %10lld  ", entry.name.c_str(), static_cast<long long>(entry.length));
    out << line << ShowValue(bytes, entry.length, (entry.flags & kAoFlagSizePrefix) != 0, EntryType::kGuess) << '\n';
  }
  return 0;
}

int Get(const Container& container, aoStream* folder, const std::string& name, EntryType type, std::ostream& out) {
  bool prefixed = false;
  int64_t length = 0;
  std::vector<unsigned char> bytes;
  {
    const HeldStream stream(OpenEntry(container, folder, name, name));
    prefixed = (stream->GetHeader().flags & kAoFlagSizePrefix) != 0;
    length = stream->GetLength();
    bytes = Head(container, *stream.get(), name);
  }
  if (type != EntryType::kBlob) {
    out << ShowValue(bytes, length, prefixed, type) << '\n';
    return 0;
  }
  // A blob's bytes as they are, without the size in front of them.
  void* data = nullptr;
  unsigned int size = 0;
  const int read = folder == nullptr ? container.storage().GetEntryErasedOld(name.c_str(), &data, &size)
                                     : folder->GetEntryErasedOld(name.c_str(), &data, &size);
  if (read == 0) FailWithDiagnosis(container.file(), Exit::kConflict, name + ": its size prefix does not match its length");
  out.write(static_cast<const char*>(data), size);
  aoFreeBuffer(data);
  return 0;
}

int Set(const Container& container, aoStream* folder, const std::string& name, const std::string& text,
        EntryType type, std::ostream& out) {
  if (name.empty() || name.find('/') != std::string::npos || name.size() > static_cast<size_t>(kAoMaxNameLength))
    Fail(Exit::kUsage, "an entry name is 1 to " + std::to_string(kAoMaxNameLength) + " bytes without '/'");
  // The setters open an existing stream of the name whatever it is: a
  // folder must not have a value written over its records.
  {
    const HeldStream existing(OpenChild(container, folder, name, kAoModeInspect));
    if (existing.get() != nullptr && existing->IsFolder() != 0)
      Fail(Exit::kConflict, container.file() + ": " + name + " is a folder, not an entry");
  }
  if (type == EntryType::kGuess) type = GuessFromText(text);
  aoStorage& storage = container.storage();
  int done = 0;
  std::string value = text;
  switch (type) {
    case EntryType::kInt: {
      const int32_t v = ParseInt(text);
      done = folder == nullptr ? storage.SetEntry(name.c_str(), static_cast<int>(v)) : folder->SetEntry(name.c_str(), static_cast<int>(v));
      break;
    }
    case EntryType::kInt64: {
      const int64_t v = ParseInt64(text);
      done = folder == nullptr ? storage.SetEntry(name.c_str(), v) : folder->SetEntry(name.c_str(), v);
      break;
    }
    case EntryType::kDouble: {
      const double v = ParseDouble(text);
      done = folder == nullptr ? storage.SetEntry(name.c_str(), v) : folder->SetEntry(name.c_str(), v);
      break;
    }
    case EntryType::kString:
      done = folder == nullptr ? storage.SetEntry(name.c_str(), text.c_str()) : folder->SetEntry(name.c_str(), text.c_str());
      break;
    case EntryType::kRect:
    case EntryType::kSize: {
      if (folder == nullptr) Fail(Exit::kUsage, "rect and size entries are kept in folders; give a PATH");
      const bool rect = type == EntryType::kRect;
      const std::vector<int32_t> v = ParseInts(text, rect ? 4 : 2, rect ? "rect" : "size");
      if (rect) {
        RECT r{v[0], v[1], v[2], v[3]};
        done = folder->SetEntry(name.c_str(), &r);
      } else {
        SIZE s{v[0], v[1]};
        done = folder->SetEntry(name.c_str(), &s);
      }
      break;
    }
    case EntryType::kBlob: {
      // "-" takes the bytes from standard input.
      if (text == "-") value = ReadStandardInput();
      auto* data = value.empty() ? nullptr : value.data();
      const auto size = static_cast<uint32_t>(value.size());
      done = folder == nullptr ? storage.SetEntryEraseOld(name.c_str(), data, size, 1)
                               : folder->SetEntryEraseOld(name.c_str(), data, size, 1);
      if (text == "-") value = std::to_string(size) + " bytes";
      break;
    }
    case EntryType::kGuess:
      break;
  }
  if (done == 0) FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot set the entry " + name);
  out << "set " << name << " = " << value << " (" << EntryTypeName(type) << ")\n";
  return 0;
}

}  // namespace

int RunEntries(const Words& words, std::ostream& out) {
  const Arguments args(words, {{}, {"--type"}});
  const char* usage = "entries FILE [PATH] [get NAME | set NAME VALUE] [--type T]";
  args.ExpectCount(1, 5, usage);
  // The verb stands right after FILE or after FILE PATH.
  size_t verb = args.count();
  for (size_t at = 1; at <= 2 && at < args.count(); ++at) {
    if (args[at] == "get" || args[at] == "set") {
      verb = at;
      break;
    }
  }
  const std::string mode = verb < args.count() ? args[verb] : "list";
  const size_t operands = verb < args.count() ? args.count() - verb - 1 : 0;
  if ((mode == "list" && args.count() > 2) || (mode == "get" && operands != 1) || (mode == "set" && operands != 2))
    Fail(Exit::kUsage, std::string("usage: aostore ") + usage);
  const EntryType type = args.Value("--type", "").empty() ? EntryType::kGuess : ParseEntryType(args.Value("--type", ""));
  const std::vector<std::string> names = SplitPath(verb >= 2 && args.count() > 1 ? args[1] : "");
  const bool write = mode == "set";
  Container container = Container::Open(args[0], write ? Access::kWrite : Access::kRead);
  const StreamPath path = write && !names.empty() ? OpenOrCreatePath(container, names, true)
                                                  : OpenPath(container, names, kAoModeInspect);
  aoStream* folder = path.target();
  if (folder != nullptr && folder->IsFolder() == 0)
    Fail(Exit::kConflict, args[0] + ": " + JoinPath(names, names.size()) + " is a data stream, not a folder");
  if (mode == "list") return List(container, folder, out);
  if (mode == "get") return Get(container, folder, args[verb + 1], type, out);
  return Set(container, folder, args[verb + 1], args[verb + 2], type, out);
}

}  // namespace aotool
