#pragma once

// For the POSIX sources of this folder only.

#include "runtime/platform/OsError.h"

#include <signal.h>

namespace VornPlatform {

// Whoever starts us may ignore SIGCHLD, which we inherit. The system collects our
// children by itself then, and how they ended is lost; from here on it is not.
OsError keepEndsOfChildren();

// The signals that the process held back when watchSignals() was called, or that
// the calling thread holds back when it was not: what a program that we start
// begins with.
sigset_t maskForChildren();

}  // namespace VornPlatform
