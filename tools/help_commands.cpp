// The table of commands behind --help, the manual page and the completion.
#include "help.h"

namespace aotool {

const std::vector<CommandHelp>& AllCommands() {
  static const std::vector<CommandHelp> commands = {
      {"create",
       {"create FILE [--32] [--force]"},
       "a new empty container",
       "Writes a new empty container at FILE, with 64-bit offsets (version 2) unless --32 asks for 32-bit\n"
       "ones (version 1: smaller records, files up to 4 GiB). An existing file is kept unless --force.",
       {{"--32", nullptr, "32-bit offsets"}, {"--force", nullptr, "replace an existing file"}},
       -1},
      {"info",
       {"info FILE [--json]"},
       "format, tables, tree, space in use and reclaimable, health",
       "Checks the whole container and prints its format, root tables, tree, the space its data uses and\n"
       "the space a compaction would give back. A damaged container is reported after the facts, with\n"
       "exit status 1.",
       {{"--json", nullptr, "one JSON object: status, facts and the problem count"}},
       -1},
      {"ls",
       {"ls FILE [PATH] [-l] [-R] [--json]"},
       "names of streams and folders",
       "Lists the streams and folders of the root, or of the folder at PATH, in name order; folders end\n"
       "in '/'. The whole container is checked as well: when it is damaged, ls lists what it can read,\n"
       "then says so on standard error and exits with status 1.",
       {{"-l", nullptr, "kind, length, duration and flags (p: size prefix, i: child information) of each"},
        {"-R", nullptr, "everything below, each folder before what it holds"},
        {"--json", nullptr, "a JSON array with one object per stream"}},
       1},
      {"cat",
       {"cat FILE PATH"},
       "a stream's data to standard output",
       "Writes the data of the stream at PATH to standard output. When its chain of blocks is damaged,\n"
       "cat writes the bytes it could read, says so on standard error and exits with status 1.",
       {},
       1},
      {"put",
       {"put FILE PATH [SRC] [--append]"},
       "a file's (or standard input's) bytes into a stream",
       "Replaces the data of the stream at PATH with the bytes of the host file SRC, or of standard\n"
       "input when SRC is '-' or missing. Missing folders on the way, the stream itself and the container\n"
       "are created. Every name of PATH must follow the name rule.",
       {{"--append", nullptr, "add the bytes after the stream's data instead"}},
       1},
      {"mkdir",
       {"mkdir FILE PATH"},
       "folders along PATH",
       "Creates the folders along PATH that are missing, and the container when there is none.\n"
       "Every name of PATH must follow the name rule.",
       {},
       1},
      {"rm",
       {"rm FILE PATH [-r] [--dry-run]"},
       "removes a stream, or with -r a folder and everything in it",
       "Removes the data stream at PATH. A folder is removed only with -r, together with everything it\n"
       "holds.",
       {{"-r", nullptr, "remove a folder with everything in it"},
        {"--dry-run", nullptr, "list what would be removed and change nothing"}},
       1},
      {"mv",
       {"mv FILE PATH NEWNAME"},
       "renames a stream or folder in its folder",
       "Gives the stream or folder at PATH the name NEWNAME in the same folder. NEWNAME must follow the\n"
       "name rule and must not be taken.",
       {},
       1},
      {"import",
       {"import FILE DIR [PATH] [--skip-invalid] [--dry-run] [-v]"},
       "a directory tree into folders and streams",
       "Copies the tree under the host directory DIR into the folder at PATH (the root when missing):\n"
       "folders for directories, streams for files, whose data is replaced. The container is created\n"
       "when there is none. Symbolic links and special files are skipped.\n"
       "\n"
       "Every name is checked against the name rule before anything is written. Without\n"
       "--skip-invalid, one name that breaks it stops the import: the names are listed on standard\n"
       "error, nothing is written and no new container is left behind (exit status 10).",
       {{"--skip-invalid", nullptr, "import the rest; list what was skipped, and why, on standard error"},
        {"--dry-run", nullptr, "list what would be imported and change nothing"},
        {"-v", nullptr, "list every skipped symbolic link and special file by name on standard error"}},
       2},
      {"export",
       {"export FILE [PATH] DIR [--force] [--skip-invalid] [--dry-run]"},
       "folders and streams into a directory tree",
       "Copies the folder (or the single stream) at PATH, the root when missing, into the host\n"
       "directory DIR, which is created when missing. Existing files are not written over: export\n"
       "stops before writing anything (exit status 5) unless --force.\n"
       "\n"
       "A stream whose name cannot be a file name here (a container written elsewhere may hold names\n"
       "that break the name rule) is skipped and listed on standard error; the rest is exported and\n"
       "the exit status is 10, or 0 with --skip-invalid. On a damaged container, export saves what\n"
       "can be read, lists what cannot, and exits with status 1.",
       {{"--force", nullptr, "write over existing files"},
        {"--skip-invalid", nullptr, "exit with status 0 when names were skipped"},
        {"--dry-run", nullptr, "list the files that would be written and change nothing"}},
       1},
      {"entries",
       {"entries FILE [PATH] [--json]", "entries FILE [PATH] get NAME [--type T]",
        "entries FILE [PATH] set NAME VALUE [--type T]"},
       "typed entries of the root or of a folder",
       "Lists, reads or writes the typed entries (small named values) of the root or of the folder at\n"
       "PATH. T is int (32 bits), uint, int64, uint64, double, string, rect (l,t,r,b), size (cx,cy) or\n"
       "blob. Without --type, set takes a whole number as int, int64 or uint64 by its size, a number\n"
       "with a fraction as double, and anything else as string.\n"
       "\n"
       "A blob VALUE is hexadecimal (\"00ff10\"), @FILE for the bytes of a host file, or '-' for\n"
       "standard input; get --type blob writes the bytes themselves to standard output.\n"
       "\n"
       "The container keeps no type with a value: its type is told by its length and shape (4 bytes an\n"
       "int, 8 bytes an int64, a double or a size, 16 bytes a rect, a length and characters a string, a\n"
       "size prefix a blob). get with a type the stored value cannot have fails, naming what it holds\n"
       "(exit status 5); every value reads as a blob.",
       {{"--type", "T", "the type to read or write"},
        {"--json", nullptr, "list as a JSON array with one object per entry"}},
       1},
      {"check",
       {"check FILE [--json]"},
       "verifies the whole structure",
       "Verifies the header, the root tables, every record, every chain of blocks in both directions,\n"
       "every folder, and that no two structures share bytes. Lists each problem at its offset; exit\n"
       "status 1 when there are problems, 3 when the file is not a container.",
       {{"--json", nullptr, "one JSON object: status, facts and every problem"}},
       -1},
      {"compact",
       {"compact FILE"},
       "rebuilds the container without unused space",
       "Copies the container into a new file beside it, compares the two stream by stream, flushes the\n"
       "copy to disk and only then puts it in the original's place. Only a sound container is\n"
       "compacted; aostore export saves what can be read from a damaged one.",
       {},
       -1},
      {"stress",
       {"stress [--threads N] [--passes N] [--path P]"},
       "concurrent write test, every stream verified",
       "Runs the library's write stress test: N threads (32) write 1 MiB each to one new container at\n"
       "P (a fresh file of the temporary folder), every stream is read back and compared, and the file\n"
       "is removed; as many passes as asked (2).",
       {{"--threads", "N", "writer threads, 1 to 1024"},
        {"--passes", "N", "passes, 1 to 1000"},
        {"--path", "P", "the container to create and delete; it must not exist"}},
       -1},
      {"demo",
       {"demo [DIR]"},
       "a tour: import, inspect, record and replay, check, export",
       "Imports this project's source tree into a container in DIR (a new temporary folder, removed\n"
       "afterwards, when missing), inspects it, writes typed entries, records a session of edits and\n"
       "replays it into a copy, checks both, exports the tree and compares it with the source, and\n"
       "runs a short stress pass.",
       {},
       -1},
      {"help",
       {"help [COMMAND]", "help --man", "help --bash-completion"},
       "this text, or what COMMAND does",
       "Prints the list of commands, or the help of COMMAND (as aostore COMMAND --help does). --man\n"
       "prints this manual page in troff and --bash-completion the completion script; the build\n"
       "installs both.",
       {{"--man", nullptr, "the manual page"}, {"--bash-completion", nullptr, "the bash completion script"}},
       -1},
  };
  return commands;
}

const CommandHelp* FindCommand(const std::string& name) {
  for (const CommandHelp& command : AllCommands())
    if (name == command.name) return &command;
  return nullptr;
}

}  // namespace aotool
