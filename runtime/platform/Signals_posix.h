#pragma once

// For the POSIX sources of this folder only.

#include <signal.h>

namespace VornPlatform {

// The signals that the process held back when watchSignals() was called, or that
// the calling thread holds back when it was not: what a program that we start
// begins with.
sigset_t maskForChildren();

}  // namespace VornPlatform
