// The commands of the aostore tool. Each takes the words after its name,
// writes its results to out and returns the exit status; failures are
// thrown as ToolError.
#ifndef AOSTORE_TOOLS_COMMANDS_H
#define AOSTORE_TOOLS_COMMANDS_H

#include <ostream>
#include <string>
#include <vector>

namespace aotool {

using Words = std::vector<std::string>;

int RunCreate(const Words& words, std::ostream& out);
int RunInfo(const Words& words, std::ostream& out);
int RunLs(const Words& words, std::ostream& out);
int RunCat(const Words& words, std::ostream& out);
int RunPut(const Words& words, std::ostream& out);
int RunMkdir(const Words& words, std::ostream& out);
int RunRm(const Words& words, std::ostream& out);
int RunMv(const Words& words, std::ostream& out);
int RunImport(const Words& words, std::ostream& out);
int RunExport(const Words& words, std::ostream& out);
int RunEntries(const Words& words, std::ostream& out);
int RunCheck(const Words& words, std::ostream& out);
int RunCompact(const Words& words, std::ostream& out);
int RunStress(const Words& words, std::ostream& out);
int RunDemo(const Words& words, std::ostream& out);
int RunHelp(const Words& words, std::ostream& out);

}  // namespace aotool

#endif  // AOSTORE_TOOLS_COMMANDS_H
