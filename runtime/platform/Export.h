#pragma once

// VORN_EXPORT marks what a shared library of the suite shows to others; the
// build hides everything else. One macro serves builder and user alike: on
// Windows the linker's auto-import makes a separate "import" spelling
// unnecessary with the toolchain we build with. The client library brings its
// own copies of some of these sources and shows none of them.
#if defined(VORN_EXPORT_NOTHING)
#define VORN_EXPORT
#elif defined(_WIN32)
#define VORN_EXPORT __declspec(dllexport)
#else
#define VORN_EXPORT __attribute__((visibility("default")))
#endif
