// cat, put, mkdir, rm and mv: one stream or folder at a time.
#include "arguments.h"
#include "commands.h"
#include "container.h"
#include "host_files.h"
#include "names.h"
#include "stream_data.h"
#include "tree.h"

namespace aotool {
namespace {

std::vector<std::string> NonRootPath(const std::string& text, const char* command) {
  std::vector<std::string> names = SplitPath(text);
  if (names.empty()) Fail(Exit::kUsage, std::string(command) + " needs the path of a stream, not the root");
  return names;
}

// The folders and streams inside folder, counted.
struct Contents {
  int64_t folders = 0;
  int64_t streams = 0;
};

Contents Count(const Container& container, aoStream* folder, const TreeVisitor& also) {
  Contents contents;
  WalkTree(container, folder, true, [&](const TreeEntry& entry, aoStream* parent) {
    ++(entry.folder ? contents.folders : contents.streams);
    if (also) also(entry, parent);
  });
  return contents;
}

std::string Describe(const Contents& contents) {
  return std::to_string(contents.folders) + (contents.folders == 1 ? " folder, " : " folders, ") +
         std::to_string(contents.streams) + (contents.streams == 1 ? " stream" : " streams");
}

}  // namespace

int RunCat(const Words& words, std::ostream& out) {
  const Arguments args(words, "cat");
  args.ExpectCount(2, 2);
  const std::vector<std::string> names = NonRootPath(args[1], "cat");
  Container container = Container::Open(args[0], Access::kRead);
  const StreamPath path = OpenPath(container, names, kAoModeInspect);
  if (path.target()->IsFolder() != 0) Fail(Exit::kConflict, args[0] + ": " + Shown(args[1]) + " is a folder");
  // What can be read goes out before a failure is reported.
  ReadWhole(
      container, *path.target(), Shown(args[1]),
      [&out](const unsigned char* bytes, size_t count) {
        out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count));
      },
      nullptr);
  return 0;
}

int RunPut(const Words& words, std::ostream& out) {
  const Arguments args(words, "put");
  args.ExpectCount(2, 3);
  const std::vector<std::string> names = NonRootPath(args[1], "put");
  RequireValidNames(names);
  const std::string source = args.count() == 3 ? args[2] : "-";
  RequireOtherFile(source, args[0]);
  HostInput in(source);
  Container container = Container::OpenOrCreate(args[0]);
  const StreamPath path = OpenOrCreatePath(container, names, false);
  Progress progress("put", in.size());
  const int64_t written = WriteWhole(
      container, *path.target(), args[1], args.Has("--append"),
      [&in](unsigned char* buffer, size_t capacity) { return in.Read(buffer, capacity); }, &progress);
  progress.Finish();
  out << (args.Has("--append") ? "appended " : "wrote ") << written << " bytes to " << JoinPath(names, names.size())
      << '\n';
  return 0;
}

int RunMkdir(const Words& words, std::ostream& out) {
  const Arguments args(words, "mkdir");
  args.ExpectCount(2, 2);
  const std::vector<std::string> names = NonRootPath(args[1], "mkdir");
  RequireValidNames(names);
  Container container = Container::OpenOrCreate(args[0]);
  OpenOrCreatePath(container, names, true);
  out << "folder " << JoinPath(names, names.size()) << '\n';
  return 0;
}

int RunRm(const Words& words, std::ostream& out) {
  const Arguments args(words, "rm");
  args.ExpectCount(2, 2);
  const std::vector<std::string> names = NonRootPath(args[1], "rm");
  const std::string shown = Shown(JoinPath(names, names.size()));
  const bool dryRun = args.Has("--dry-run");
  Container container = Container::Open(args[0], dryRun ? Access::kRead : Access::kWrite);
  StreamPath path = OpenPath(container, names, dryRun ? kAoModeInspect : kAoModeEdit);
  const bool folder = path.target()->IsFolder() != 0;
  if (folder && !args.Has("-r"))
    Fail(Exit::kConflict, args[0] + ": " + shown + " is a folder (rm -r removes it with everything in it)");
  Contents contents;
  if (folder) {
    const std::string prefix = JoinPath(names, names.size()) + "/";
    contents = Count(container, path.target(), [&](const TreeEntry& entry, aoStream*) {
      if (dryRun)
        out << "would remove " << (entry.folder ? "folder " : "stream ") << Shown(prefix + entry.path) << '\n';
    });
  }
  const std::string what = (folder ? "folder " : "stream ") + shown + (folder ? " with " + Describe(contents) : "");
  if (dryRun) {
    out << "would remove " << what << '\n';
    return 0;
  }
  // Remove takes the folder's children first and releases the object itself.
  if (!path.target()->Remove()) FailWithDiagnosis(args[0], Exit::kWriteFailed, "cannot remove " + shown);
  path.DropTarget();
  out << "removed " << what << '\n';
  return 0;
}

int RunMv(const Words& words, std::ostream& out) {
  const Arguments args(words, "mv");
  args.ExpectCount(3, 3);
  const std::vector<std::string> names = NonRootPath(args[1], "mv");
  const std::string& newName = args[2];
  RequireValidNames({newName});
  Container container = Container::Open(args[0], Access::kWrite);
  const StreamPath path = OpenPath(container, names, kAoModeEdit);
  if (HeldStream(OpenChild(container, path.parent(), newName, kAoModeInspect)).get() != nullptr)
    Fail(Exit::kConflict, args[0] + ": " + newName + " already exists there");
  if (!path.target()->Rename(newName.c_str()))
    FailWithDiagnosis(args[0], Exit::kWriteFailed, "cannot rename " + Shown(args[1]));
  out << "renamed " << Shown(JoinPath(names, names.size())) << " to " << newName << '\n';
  return 0;
}

}  // namespace aotool
