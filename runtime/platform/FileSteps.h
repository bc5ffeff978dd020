#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

namespace VornPlatform {

// What FreshFile, replaceFile() and flushFolderOf() have got done: no test can pull
// the plug, but each can look at the order of the steps. Any thread.
enum class FileStep { Create, Write, FlushToDisk, Close, Replace, FlushFolder };

// Called on the thread of each step, once it has succeeded; null: nobody.
VORN_EXPORT void setFileStepsForTest(void (*told)(FileStep step));

// For the functions above: notes the step, unless it has failed, and returns how it
// went.
OsError noteFileStep(FileStep step, OsError outcome);

}  // namespace VornPlatform
