// File operations that tools built on the library need for safe maintenance
// of container files (a compacted copy made durable before it replaces the
// original), and the few facts about the host console they need.
#ifndef AOSTORE_MAINTENANCE_H
#define AOSTORE_MAINTENANCE_H

#include "aostore/export.h"

// The names keep clear of the Windows API's ReplaceFile and DeleteFile macros.
namespace ao {

// Makes everything written to the file at path reach the disk. False when the
// file cannot be opened or flushed.
AOSTORE_API bool SyncFile(const char* path);

// Replaces the file at to by the file at from in one step: afterwards to is
// either the old file or the whole new one, never a mixture. False on failure
// (both files are then as they were).
AOSTORE_API bool RenameOver(const char* from, const char* to);

// Deletes the file at path. False on failure.
AOSTORE_API bool RemoveFile(const char* path);

// True when the process's standard error is an interactive terminal.
AOSTORE_API bool StandardErrorIsTerminal();

// Columns of the terminal on standard error; 80 when unknown.
AOSTORE_API int StandardErrorColumns();

}  // namespace ao

#endif  // AOSTORE_MAINTENANCE_H
