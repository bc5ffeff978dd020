#pragma once

// What the core module shows to the program that hosts it: one exported
// function that returns this table. Plain C, so that the host needs none of the
// module's libraries to be built. No exception leaves any of these functions.
//
// A process has one service at a time. `stop` and `reload` may be called from
// any thread at any time, before `create` and after `destroy` as well; the
// others from one thread, in the order create, run, destroy. Texts are UTF-8.
// An error is written as text, cut to the size of the buffer and terminated.

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RUVO_HOST_API_VERSION 1
#define RUVO_HOST_API_FUNCTION "ruvoHostApi"

typedef struct RuvoHostApi {
    int version;              // RUVO_HOST_API_VERSION of the module
    const char* moduleVersion;  // "1.0.0"

    // Makes the monitors and the service. 0 on success.
    int (*create)(const char* propertiesPath, const char* hostArgument, char* error,
                  size_t errorSize);
    // Runs the service until it is stopped; 0 when it was started and stopped.
    // `started` is called once, on another thread, when every monitor has been
    // started that can be.
    int (*run)(void (*started)(void* context), void* context, char* error, size_t errorSize);
    // Asks run to return; one that comes before run holds for it.
    void (*stop)(void);
    // Asks for the properties file to be read again.
    void (*reload)(void);
    // The address of each open listener, one line each ("tcp:0.0.0.0:4711\n").
    // Between the call of `started` and the end of run.
    void (*addresses)(char* text, size_t textSize);
    // Destroys service and monitors and waits at most `ms` milliseconds for the
    // last threads. 0 when none is left; else the process must not unload the
    // module and leaves best without running exit handlers.
    int (*destroy)(int ms);

    // Looks through a properties file and starts nothing. Calls `found` once
    // for each line of complaint; returns how many there were.
    int (*check)(const char* propertiesPath, void (*found)(void* context, const char* line),
                 void* context);
} RuvoHostApi;

typedef const RuvoHostApi* (*RuvoHostApiFunction)(void);

#ifdef __cplusplus
}
#endif
