#include "runtime/platform/ThreadSlot.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cstdlib>

namespace VornPlatform {
namespace {

// The system calls the function even when its library has gone.
void keepLoaded(void (*function)(void*)) {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(function), &info) == 0) return;
    ::dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

pthread_key_t key(unsigned long slot) { return static_cast<pthread_key_t>(slot); }

}  // namespace

ThreadSlot::ThreadSlot(void (*atExit)(void*)) {
    keepLoaded(atExit);
    pthread_key_t made{};
    if (::pthread_key_create(&made, atExit) != 0) std::abort();
    key_ = made;
}

void* ThreadSlot::get() const { return ::pthread_getspecific(key(key_)); }

void ThreadSlot::set(void* value) {
    if (::pthread_setspecific(key(key_), value) != 0) std::abort();
}

}  // namespace VornPlatform
