// entries: typed values stored as streams of the root or of a folder.
#include <algorithm>
#include <cstdio>
#include <functional>

#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "entry_values.h"
#include "host_files.h"
#include "json.h"
#include "names.h"
#include "stream_data.h"
#include "tree.h"

namespace aotool {
namespace {

constexpr int64_t kShownBytes = 4096;

// The entry name inside folder (the root when null) as a data stream; fails
// when it is missing or a folder.
aoStream* OpenEntry(const Container& container, aoStream* folder, const std::string& name, uint32_t mode) {
  aoStream* stream = OpenChild(container, folder, name, mode);
  if (stream == nullptr) Fail(Exit::kNoSuchStream, container.file() + ": no such entry: " + Shown(name));
  if (stream->IsFolder() != 0) {
    stream->Release();
    Fail(Exit::kConflict, container.file() + ": " + Shown(name) + " is a folder, not an entry");
  }
  return stream;
}

// The entry's flags, length and first bytes (all of a small one).
StoredValue Stored(const Container& container, aoStream* folder, const std::string& name) {
  const HeldStream stream(OpenEntry(container, folder, name, kAoModeInspect));
  StoredValue value;
  value.sizePrefixed = (stream->GetHeader().flags & kAoFlagSizePrefix) != 0;
  value.length = stream->GetLength();
  value.bytes.resize(static_cast<size_t>(std::clamp<int64_t>(value.length, 0, kShownBytes)));
  if (value.bytes.empty()) return value;
  if (stream->Seek(0, 0, true) != 0 || stream->Read(value.bytes.data(), static_cast<int64_t>(value.bytes.size())) !=
                                           static_cast<int64_t>(value.bytes.size()))
    FailWithDiagnosis(container.file(), Exit::kUnreadable, "cannot read the entry " + Shown(name));
  return value;
}

int64_t List(const Container& container, aoStream* folder, bool json, std::ostream& out) {
  bool first = true;
  if (json) out << '[';
  for (const TreeEntry& entry : ListChildren(container, folder)) {
    if (entry.folder) continue;
    const StoredValue value = Stored(container, folder, entry.name);
    if (json) {
      out << (first ? "\n" : ",\n") << "  {\"name\": " << JsonString(entry.name) << ", \"length\": " << entry.length
          << ", " << ValueJson(value) << '}';
    } else {
      char line[80];
      std::snprintf(line, sizeof line, "%-24s %10lld  ", Shown(entry.name).c_str(),
                    static_cast<long long>(entry.length));
      out << line << ShowValue(value, EntryType::kGuess) << '\n';
    }
    first = false;
  }
  if (json) out << (first ? "]\n" : "\n]\n");
  return 0;
}

int Get(const Container& container, aoStream* folder, const std::string& name, EntryType type, std::ostream& out) {
  const StoredValue value = Stored(container, folder, name);
  if (type != EntryType::kBlob) {
    const std::vector<EntryType> types = StoredTypes(value);
    if (type != EntryType::kGuess && std::find(types.begin(), types.end(), type) == types.end()) {
      Fail(Exit::kConflict,
           container.file() + ": " + Shown(name) + " holds " + DescribeStored(value) + ", not " + WithArticle(type));
    }
    out << ShowValue(value, type) << '\n';
    return 0;
  }
  // A blob's bytes as they are, without the size in front of them.
  void* data = nullptr;
  unsigned int size = 0;
  const int read = folder == nullptr ? container.storage().GetEntryErasedOld(name.c_str(), &data, &size)
                                     : folder->GetEntryErasedOld(name.c_str(), &data, &size);
  if (read == 0)
    FailWithDiagnosis(container.file(), Exit::kConflict, Shown(name) + ": its size prefix does not match its length");
  out.write(static_cast<const char*>(data), size);
  aoFreeBuffer(data);
  return 0;
}

// The bytes of a blob given on the command line: hexadecimal, @FILE, or - for standard input.
std::vector<unsigned char> BlobBytes(const std::string& text) {
  if (text != "-" && text.rfind('@', 0) != 0) return ParseHex(text);
  HostInput in(text == "-" ? text : text.substr(1));
  std::vector<unsigned char> bytes;
  unsigned char* piece = Scratch(0);
  for (size_t got = in.Read(piece, kScratchBytes); got > 0; got = in.Read(piece, kScratchBytes)) {
    if (bytes.size() + got > UINT32_MAX) Fail(Exit::kUsage, in.name() + ": a blob holds at most 4 GiB");
    bytes.insert(bytes.end(), piece, piece + got);
  }
  return bytes;
}

// The call of the library's setter that stores text as type, the text
// parsed first, so that a value that does not parse changes nothing. Root
// entries are set on the container, others on their folder.
std::function<int()> Setter(const Container& container, aoStream* folder, const std::string& name,
                            const std::string& text, EntryType type, const std::vector<unsigned char>& blob) {
  aoStorage& storage = container.storage();
  const auto set = [&storage, folder, name](auto value) {
    return [&storage, folder, name, value]() {
      return folder == nullptr ? storage.SetEntry(name.c_str(), value) : folder->SetEntry(name.c_str(), value);
    };
  };
  switch (type) {
    case EntryType::kInt:
      return set(static_cast<int>(ParseInt(text)));
    case EntryType::kUInt:
      return set(ParseUInt(text));
    case EntryType::kInt64:
      return set(ParseInt64(text));
    // The same eight bytes as the int64 of the same bits.
    case EntryType::kUInt64:
      return set(static_cast<int64_t>(ParseUInt64(text)));
    case EntryType::kDouble:
      return set(ParseDouble(text));
    case EntryType::kString:
      return [&storage, folder, name, text]() {
        return folder == nullptr ? storage.SetEntry(name.c_str(), text.c_str())
                                 : folder->SetEntry(name.c_str(), text.c_str());
      };
    case EntryType::kRect: {
      const std::vector<int32_t> v = ParseInts(text, 4, "rect");
      return [folder, name, r = RECT{v[0], v[1], v[2], v[3]}]() mutable { return folder->SetEntry(name.c_str(), &r); };
    }
    case EntryType::kSize: {
      const std::vector<int32_t> v = ParseInts(text, 2, "size");
      return [folder, name, s = SIZE{v[0], v[1]}]() mutable { return folder->SetEntry(name.c_str(), &s); };
    }
    case EntryType::kBlob:
    case EntryType::kGuess:
      break;
  }
  return [&container, folder, name, bytes = blob]() mutable {
    if (bytes.empty()) {
      // The setters store nothing for no bytes: the empty blob is an empty stream.
      const HeldStream empty(folder == nullptr ? container.storage().CreateStream(name.c_str(), 0, kAoModeEdit)
                                               : folder->CreateStream(name.c_str(), 0, kAoModeEdit, 1));
      return empty.get() != nullptr ? 1 : 0;
    }
    const auto size = static_cast<uint32_t>(bytes.size());
    return folder == nullptr ? container.storage().SetEntryEraseOld(name.c_str(), bytes.data(), size, 1)
                             : folder->SetEntryEraseOld(name.c_str(), bytes.data(), size, 1);
  };
}

int Set(const Container& container, aoStream* folder, const std::string& name, const std::string& text, EntryType type,
        std::ostream& out) {
  RequireValidNames({name});
  if (type == EntryType::kGuess) type = GuessFromText(text);
  if ((type == EntryType::kRect || type == EntryType::kSize) && folder == nullptr)
    Fail(Exit::kUsage, "rect and size entries are kept in folders; give a PATH");
  const std::vector<unsigned char> blob = type == EntryType::kBlob ? BlobBytes(text) : std::vector<unsigned char>();
  const std::function<int()> store = Setter(container, folder, name, text, type, blob);
  // The setters write over the old value in place and keep its length and
  // its size prefix: the old stream goes, so that the value is all there is.
  if (aoStream* existing = OpenChild(container, folder, name, kAoModeEdit)) {
    if (existing->IsFolder() != 0) {
      existing->Release();
      Fail(Exit::kConflict, container.file() + ": " + name + " is a folder, not an entry");
    }
    if (!existing->Remove())
      FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot replace the entry " + name);
  }
  if (store() == 0) FailWithDiagnosis(container.file(), Exit::kWriteFailed, "cannot set the entry " + name);
  out << "set " << name << " = " << (type == EntryType::kBlob ? std::to_string(blob.size()) + " bytes" : text) << " ("
      << EntryTypeName(type) << ")\n";
  return 0;
}

}  // namespace

int RunEntries(const Words& words, std::ostream& out) {
  const Arguments args(words, "entries");
  args.ExpectCount(1, 5);
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
    args.FailUsage();
  const EntryType type =
      args.Value("--type", "").empty() ? EntryType::kGuess : ParseEntryType(args.Value("--type", ""));
  const std::vector<std::string> names = SplitPath(verb >= 2 && args.count() > 1 ? args[1] : "");
  const std::string& file = args[0];
  if (mode == "set") {
    RequireValidNames(names);
    Container container = Container::OpenOrCreate(file);
    const StreamPath path = OpenOrCreatePath(container, names, true);
    return Set(container, path.target(), args[verb + 1], args[verb + 2], type, out);
  }
  const auto folderAt = [&](const Container& container) {
    StreamPath path = OpenPath(container, names, kAoModeInspect);
    if (path.target() != nullptr && path.target()->IsFolder() == 0)
      Fail(Exit::kConflict, file + ": " + Shown(JoinPath(names, names.size())) + " is a data stream, not a folder");
    return path;
  };
  if (mode == "get") {
    const Container container = Container::Open(file, Access::kRead);
    const StreamPath path = folderAt(container);
    return Get(container, path.target(), args[verb + 1], type, out);
  }
  const ao::CheckReport health = CheckForReading(file);
  const Container container = Container::Open(file, health);
  return ReadChecked(file, health, [&]() -> int64_t {
    const StreamPath path = folderAt(container);
    return List(container, path.target(), args.Has("--json"), out);
  });
}

}  // namespace aotool
