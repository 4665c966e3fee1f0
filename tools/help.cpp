// The help table rendered as --help text, as a manual page and as a bash
// completion script.
#include "help.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "errors.h"

#ifndef AOSTORE_VERSION
#define AOSTORE_VERSION "unknown"
#endif

namespace aotool {
namespace {

const char kIntroduction[] =
    "aostore inspects and changes container files: one host file holding a tree of named streams,\n"
    "folders and data streams. Inside a container, paths are slash-separated (\"docs/notes/today\").";

const char kNameRule[] =
    "A name the tool writes is 1 to 51 bytes, not \".\" or \"..\", and holds no '/', no '\\' (the path\n"
    "separator on Windows: such a name could not come back out as a file there) and no control\n"
    "character (bytes below 0x20, and 0x7F). Any other byte is allowed, UTF-8 included. put, mkdir,\n"
    "mv, entries set and import refuse a name that breaks the rule, naming it (exit status 10).";

const char kEnvironment[] =
    "A progress bar is drawn on standard error for work that lasts, only when standard error is a\n"
    "terminal. AOSTORE_PROGRESS_DELAY sets how many milliseconds work runs before the bar appears\n"
    "(300).";

const char kExamples[] =
    "  aostore import docs.ao /usr/share/doc --skip-invalid\n"
    "  aostore ls docs.ao bash -l\n"
    "  aostore cat docs.ao bash/copyright | less\n"
    "  aostore export docs.ao bash /tmp/bash-doc\n"
    "  echo hello | aostore put notes.ao today/greeting\n"
    "  aostore entries notes.ao settings set width 1280\n"
    "  aostore entries notes.ao settings set key 00ff10 --type blob\n"
    "  aostore check docs.ao --json";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string OptionLabel(const OptionHelp& option) {
  return std::string(option.name) + (option.value != nullptr ? std::string(" ") + option.value : "");
}

std::string ExitTable(const std::string& indent) {
  size_t count = 0;
  const ExitStatus* statuses = ExitStatuses(count);
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    char head[32];
    std::snprintf(head, sizeof head, "%3d %-15s ", static_cast<int>(statuses[i].code), statuses[i].name);
    text += indent + head + statuses[i].meaning + "\n";
  }
  return text;
}

// troff: backslashes and hyphens escaped, no line starting with a control character.
std::string Roff(const std::string& line) {
  std::string out;
  for (const char c : line) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
  return out;
}

// Paragraphs as troff: filled text, or examples (lines indented by two spaces) kept as they are.
std::string RoffText(const std::string& text) {
  std::string out;
  bool example = false;
  for (const std::string& line : Lines(text)) {
    if (line.empty()) {
      if (example) out += ".fi\n.RE\n";
      example = false;
      out += ".PP\n";
      continue;
    }
    const bool indented = line.rfind("  ", 0) == 0;
    if (indented && !example) out += ".RS 4\n.nf\n";
    if (!indented && example) out += ".fi\n.RE\n";
    example = indented;
    out += Roff(indented ? line.substr(2) : line) + "\n";
  }
  if (example) out += ".fi\n.RE\n";
  return out;
}

}  // namespace

std::string VersionLine() { return std::string("aostore ") + AOSTORE_VERSION; }

std::string GeneralHelp() {
  std::string text =
      "usage: aostore COMMAND [ARGUMENTS]   (aostore COMMAND --help tells what it does and takes)\n"
      "       aostore --version\n\n";
  text += std::string(kIntroduction) + "\n\ncommands:\n";
  for (const CommandHelp& command : AllCommands()) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-9s %s\n", command.name, command.summary);
    text += line;
  }
  text += "\nnames:\n";
  for (const std::string& line : Lines(kNameRule)) text += "  " + line + "\n";
  text += "\nexit status:\n" + ExitTable("");
  text += "\nenvironment:\n";
  for (const std::string& line : Lines(kEnvironment)) text += "  " + line + "\n";
  return text;
}

std::string CommandHelpText(const CommandHelp& command) {
  std::string text;
  for (size_t i = 0; i < command.synopses.size(); ++i)
    text += std::string(i == 0 ? "usage: " : "       ") + "aostore " + command.synopses[i] + "\n";
  text += "\n";
  for (const std::string& line : Lines(command.text)) text += line + "\n";
  std::vector<OptionHelp> options = command.options;
  options.push_back({"--help", nullptr, "this text"});
  size_t width = 0;
  for (const OptionHelp& option : options) width = std::max(width, OptionLabel(option).size());
  text += "\noptions:\n";
  for (const OptionHelp& option : options) {
    const std::string label = OptionLabel(option);
    text += "  " + label + std::string(width - label.size() + 2, ' ') + option.text + "\n";
  }
  return text;
}

std::string ManualPage() {
  std::string page = ".TH AOSTORE 1 \"\" \"" + Roff(VersionLine()) + "\" \"User Commands\"\n";
  page += ".SH NAME\naostore \\- inspect and change container files\n.SH SYNOPSIS\n";
  for (const CommandHelp& command : AllCommands())
    for (const char* synopsis : command.synopses) page += ".br\n.B aostore\n" + Roff(synopsis) + "\n";
  page += ".br\n.B aostore\n\\-\\-version\n";
  page += ".SH DESCRIPTION\n" + RoffText(kIntroduction) + ".PP\nEvery command takes \\-\\-help.\n";
  page += ".SH COMMANDS\n";
  for (const CommandHelp& command : AllCommands()) {
    page += ".SS " + std::string(command.name) + "\n";
    for (const char* synopsis : command.synopses) page += ".B aostore " + Roff(synopsis) + "\n.br\n";
    page += ".PP\n" + RoffText(command.text);
    for (const OptionHelp& option : command.options)
      page += ".TP\n.B " + Roff(OptionLabel(option)) + "\n" + Roff(option.text) + "\n";
  }
  page += ".SH NAMES\n" + RoffText(kNameRule);
  page += ".SH EXIT STATUS\n";
  size_t count = 0;
  const ExitStatus* statuses = ExitStatuses(count);
  for (size_t i = 0; i < count; ++i) {
    page += ".TP\n.B " + std::to_string(static_cast<int>(statuses[i].code)) + " " + Roff(statuses[i].name) + "\n" +
            Roff(statuses[i].meaning) + "\n";
  }
  page += ".SH ENVIRONMENT\n" + RoffText(kEnvironment);
  page += ".SH EXAMPLES\n" + RoffText(kExamples);
  return page;
}

std::string BashCompletion() {
  std::string commands;
  for (const CommandHelp& command : AllCommands()) commands += std::string(commands.empty() ? "" : " ") + command.name;
  std::string options, valued, paths;
  for (const CommandHelp& command : AllCommands()) {
    std::string names = "--help";
    for (const OptionHelp& option : command.options) {
      names += std::string(" ") + option.name;
      if (option.value != nullptr) valued += std::string(valued.empty() ? "" : "|") + command.name + ":" + option.name;
    }
    options += std::string("    ") + command.name + ") options=\"" + names + "\" ;;\n";
    if (command.pathOperand >= 0)
      paths += std::string(paths.empty() ? "" : "|") + command.name + ":" + std::to_string(command.pathOperand);
  }
  return "# bash completion for aostore (made by aostore help --bash-completion)\n"
         "_aostore_paths() {\n"
         "  # Names inside the container, one folder level at a time.\n"
         "  local file=$1 cur=$2 dir=\n"
         "  [[ $cur == */* ]] && dir=${cur%/*}/\n"
         "  local IFS=$'\\n' name\n"
         "  for name in $(aostore ls \"$file\" \"$dir\" 2>/dev/null); do\n"
         "    [[ $dir$name == \"$cur\"* ]] && COMPREPLY+=(\"$dir$name\")\n"
         "  done\n"
         "  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace 2>/dev/null\n"
         "}\n"
         "_aostore() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} options= i operand=0 file=\n"
         "  COMPREPLY=()\n"
         "  if (( COMP_CWORD == 1 )); then\n"
         "    COMPREPLY=($(compgen -W \"" +
         commands +
         " --help --version\" -- \"$cur\"))\n"
         "    return\n"
         "  fi\n"
         "  case $command in\n" +
         options +
         "  esac\n"
         "  if [[ $cur == -* ]]; then\n"
         "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
         "    return\n"
         "  fi\n"
         "  # The operand being completed: words that are neither options nor their values.\n"
         "  for (( i = 2; i < COMP_CWORD; i++ )); do\n"
         "    case \"$command:${COMP_WORDS[i]}\" in\n"
         "      " +
         (valued.empty() ? std::string("__none__") : valued) +
         ") i=$((i + 1)); continue ;;\n"
         "    esac\n"
         "    [[ ${COMP_WORDS[i]} == -* ]] && continue\n"
         "    (( operand == 0 )) && file=${COMP_WORDS[i]}\n"
         "    operand=$((operand + 1))\n"
         "  done\n"
         "  case \"$command:$operand\" in\n"
         "    " +
         (paths.empty() ? std::string("__none__") : paths) +
         ") _aostore_paths \"$file\" \"$cur\"; return ;;\n"
         "  esac\n"
         "  case $command in\n"
         "    help) COMPREPLY=($(compgen -W \"" +
         commands +
         "\" -- \"$cur\")) ;;\n"
         "    *) COMPREPLY=($(compgen -f -- \"$cur\")) ;;\n"
         "  esac\n"
         "}\n"
         "complete -o filenames -F _aostore aostore\n";
}

}  // namespace aotool
