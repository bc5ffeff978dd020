#pragma once

#include <stddef.h>

namespace RuvoCmd {

constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

// The whole of a batch file, read before its first line is run: it may be
// deleted then. A zero byte stands behind its `size` bytes. Null, with the error's
// number in errno, when it cannot be read. The caller frees it with free().
char* readBatchFile(const char* file, size_t& size);

// Runs the steps of a text, which it changes, one after the other, commands
// through the shell. A step that fails does not keep the next ones from being run.
// The result is the status of the last step, 0 when there is none. When that is a
// command, the shell takes the place of this process and nothing is returned.
int runBatch(char* text, size_t size);

}  // namespace RuvoCmd
