// cat, put, mkdir, rm and mv: one stream or folder at a time.
#include <filesystem>
#include <fstream>
#include <iostream>

#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "stream_data.h"
#include "tree.h"

namespace aotool {
namespace {

std::vector<std::string> NonRootPath(const std::string& text, const char* command) {
  std::vector<std::string> names = SplitPath(text);
  if (names.empty()) Fail(Exit::kUsage, std::string(command) + " needs the path of a stream, not the root");
  return names;
}

ByteSource SourceOf(std::istream& in) {
  return [&in](unsigned char* buffer, size_t capacity) {
    in.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(capacity));
    return static_cast<size_t>(in.gcount());
  };
}

}  // namespace

int RunCat(const Words& words, std::ostream& out) {
  const Arguments args(words, {});
  args.ExpectCount(2, 2, "cat FILE PATH");
  Container container = Container::Open(args[0], Access::kRead);
  const std::vector<std::string> names = NonRootPath(args[1], "cat");
  const StreamPath path = OpenPath(container, names, kAoModeInspect);
  if (path.target()->IsFolder() != 0) Fail(Exit::kConflict, args[0] + ": " + args[1] + " is a folder");
  ReadWhole(container, *path.target(), args[1],
            [&out](const unsigned char* bytes, size_t count) {
              out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count));
            },
            nullptr);
  return 0;
}

int RunPut(const Words& words, std::ostream& out) {
  const Arguments args(words, {{"--append"}, {}});
  args.ExpectCount(2, 3, "put FILE PATH [SRC] [--append]");
  const std::vector<std::string> names = NonRootPath(args[1], "put");
  const bool fromFile = args.count() == 3 && args[2] != "-";
  std::ifstream file;
  int64_t size = 0;
  if (fromFile) {
    file.open(args[2], std::ios::binary);
    std::error_code error;
    if (!file || std::filesystem::is_directory(args[2], error)) Fail(Exit::kHostFile, args[2] + ": cannot read the file");
    size = static_cast<int64_t>(std::filesystem::file_size(args[2], error));
  }
  std::istream& in = fromFile ? static_cast<std::istream&>(file) : std::cin;
  Container container = Container::Open(args[0], Access::kWrite);
  const StreamPath path = OpenOrCreatePath(container, names, false);
  Progress progress("put", size);
  const int64_t written =
      WriteWhole(container, *path.target(), args[1], args.Has("--append"), SourceOf(in), &progress);
  progress.Finish();
  if (in.bad()) Fail(Exit::kHostFile, (fromFile ? args[2] : std::string("standard input")) + ": read error");
  out << (args.Has("--append") ? "appended " : "wrote ") << written << " bytes to " << args[1] << '\n';
  return 0;
}

int RunMkdir(const Words& words, std::ostream& out) {
  const Arguments args(words, {});
  args.ExpectCount(2, 2, "mkdir FILE PATH");
  const std::vector<std::string> names = NonRootPath(args[1], "mkdir");
  Container container = Container::Open(args[0], Access::kWrite);
  OpenOrCreatePath(container, names, true);
  out << "folder " << JoinPath(names, names.size()) << '\n';
  return 0;
}

int RunRm(const Words& words, std::ostream& out) {
  const Arguments args(words, {});
  args.ExpectCount(2, 2, "rm FILE PATH");
  const std::vector<std::string> names = NonRootPath(args[1], "rm");
  Container container = Container::Open(args[0], Access::kWrite);
  StreamPath path = OpenPath(container, names, kAoModeEdit);
  const bool folder = path.target()->IsFolder() != 0;
  // Remove takes the folder's children first and releases the object itself.
  if (!path.target()->Remove()) FailWithDiagnosis(args[0], Exit::kWriteFailed, "cannot remove " + args[1]);
  path.DropTarget();
  out << "removed " << (folder ? "folder " : "stream ") << JoinPath(names, names.size()) << '\n';
  return 0;
}

int RunMv(const Words& words, std::ostream& out) {
  const Arguments args(words, {});
  args.ExpectCount(3, 3, "mv FILE PATH NEWNAME");
  const std::vector<std::string> names = NonRootPath(args[1], "mv");
  const std::string& newName = args[2];
  if (newName.empty() || newName.find('/') != std::string::npos || newName.size() > static_cast<size_t>(kAoMaxNameLength))
    Fail(Exit::kUsage, "the new name must be one name of 1 to " + std::to_string(kAoMaxNameLength) + " bytes without '/'");
  Container container = Container::Open(args[0], Access::kWrite);
  const StreamPath path = OpenPath(container, names, kAoModeEdit);
  if (HeldStream(OpenChild(container, path.parent(), newName, kAoModeInspect)).get() != nullptr)
    Fail(Exit::kConflict, args[0] + ": " + newName + " already exists there");
  if (!path.target()->Rename(newName.c_str()))
    FailWithDiagnosis(args[0], Exit::kWriteFailed, "cannot rename " + args[1]);
  out << "renamed " << JoinPath(names, names.size()) << " to " << newName << '\n';
  return 0;
}

}  // namespace aotool
