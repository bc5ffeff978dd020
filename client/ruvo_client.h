#ifndef RUVO_CLIENT_H
#define RUVO_CLIENT_H

/* The C interface of the client library: talks to the daemon's engines and
 * receives what the daemon delivers. Link libruvoclient.so (ruvoclient.dll).
 *
 * Results. Functions return RUVO_OK or say what went wrong; ruvo_error_text()
 * and ruvo_error_code() then tell more, for the calling thread, until its next
 * call of this library. Results given through pointers are left alone on
 * failure. No C++ exception leaves a function.
 *
 * Threads. A ruvo_client, ruvo_batch or ruvo_listener belongs to one thread at
 * a time; different ones are independent of each other. ruvo_listener_wake()
 * alone may be called on a listener that another thread waits in.
 *
 * Texts are UTF-8 and end in a zero byte where no size goes with them. Null
 * pointers are refused with RUVO_ARGUMENT, except where they are mentioned;
 * the free and close functions take them and do nothing.
 */

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && defined(RUVO_CLIENT_BUILD)
#define RUVO_API __declspec(dllexport)
#elif defined(__GNUC__) && !defined(_WIN32)
#define RUVO_API __attribute__((visibility("default")))
#else
#define RUVO_API
#endif

#define RUVO_DEFAULT_TCP_PORT 27610
#define RUVO_DEFAULT_UDP_PORT 27611

#ifdef __cplusplus
extern "C" {
#endif

typedef enum ruvo_status {
    RUVO_OK = 0,
    RUVO_TIMED_OUT = 1,      /* nothing came in time */
    RUVO_DECLINED = 2,       /* the daemon's answer is no: ruvo_error_code() has it */
    RUVO_UNREACHABLE = 3,    /* no daemon could be reached there */
    RUVO_ACCESS_REFUSED = 4, /* it closed without answering: this user may not use it */
    RUVO_CLOSED = 5,         /* the conversation has ended */
    RUVO_PROTOCOL = 6,       /* what came is no answer of this daemon */
    RUVO_ARGUMENT = 7,       /* the call makes no sense */
    RUVO_WOKEN = 8,          /* the caller ended the wait */
    RUVO_NO_MEMORY = 9,
    RUVO_INTERNAL = 10
} ruvo_status;

/* Why the calling thread's last call failed; "" when it did not. */
RUVO_API const char* ruvo_error_text(void);
/* RUVO_DECLINED: the daemon's answer, such as -1. RUVO_UNREACHABLE: the
 * system's error number. Else 0. */
RUVO_API int32_t ruvo_error_code(void);
/* "1.0.0". */
RUVO_API const char* ruvo_version(void);

/* ---- conversation ------------------------------------------------------- */

typedef struct ruvo_client ruvo_client;

typedef struct ruvo_client_options {
    const char* host;       /* null: "127.0.0.1" */
    uint16_t port;          /* 0: the default port */
    int use_udp;            /* 0: TCP */
    int connect_timeout_ms; /* for connecting and the opening; 0: 5000; negative: no limit */
    int timeout_ms;         /* for each answer; 0: 10000; negative: no limit */
} ruvo_client_options;

/* Connects and opens the conversation. `options` may be null: the defaults. */
RUVO_API ruvo_status ruvo_client_open(const ruvo_client_options* options, ruvo_client** client);
/* Closes the connection. */
RUVO_API void ruvo_client_close(ruvo_client* client);
/* The same limit as ruvo_client_options.timeout_ms, from the next call on. */
RUVO_API ruvo_status ruvo_client_set_timeout(ruvo_client* client, int timeout_ms);
/* 1 when the daemon has ended the conversation, 0 while it goes on. Over UDP
 * this may only be found out by the next request. */
RUVO_API int ruvo_client_is_gone(ruvo_client* client);

/* Tells that the client is alive; over UDP, silence of 30 s ends a conversation. */
RUVO_API ruvo_status ruvo_client_acknowledge(ruvo_client* client);
RUVO_API ruvo_status ruvo_client_log_off(ruvo_client* client);
/* Asks the daemon to stop, and waits until it closes the connection (TCP). */
RUVO_API ruvo_status ruvo_client_stop_daemon(ruvo_client* client);

/* ---- requests of any monitor, alone or several at once ------------------ */

typedef struct ruvo_batch ruvo_batch;

RUVO_API ruvo_status ruvo_batch_create(ruvo_batch** batch);
RUVO_API void ruvo_batch_free(ruvo_batch* batch);
/* Begins a request; the add functions give it its arguments, in order. At most
 * 65535 requests. */
RUVO_API ruvo_status ruvo_batch_begin(ruvo_batch* batch, const char* monitor, const char* command);
RUVO_API ruvo_status ruvo_batch_add_int(ruvo_batch* batch, int32_t value);
RUVO_API ruvo_status ruvo_batch_add_string(ruvo_batch* batch, const void* text, size_t size);
RUVO_API ruvo_status ruvo_batch_add_bytes(ruvo_batch* batch, const void* bytes, size_t size);
/* Sends all of them. Their answers are then read one after the other. */
RUVO_API ruvo_status ruvo_client_send(ruvo_client* client, const ruvo_batch* batch);
RUVO_API ruvo_status ruvo_client_read_int(ruvo_client* client, int32_t* value);
/* `text` becomes a copy, with a zero byte behind its `size` bytes, to be given
 * to ruvo_free(). `size` may be null. */
RUVO_API ruvo_status ruvo_client_read_string(ruvo_client* client, char** text, size_t* size);
RUVO_API ruvo_status ruvo_client_read_bytes(ruvo_client* client, void* bytes, size_t size);
RUVO_API void ruvo_free(void* memory);

/* ---- JobStatus ---------------------------------------------------------- */

/* RUVO_DECLINED: -1 the name is taken. While the ids 1 to 10000 are taken, the
 * new job gets 10000 and takes the place of the job that had it. */
RUVO_API ruvo_status ruvo_job_create(ruvo_client* client, const char* name,
                                     const char* description, int32_t* id);
/* Replaces the job's list of numbers. `numbers` may be null when count is 0.
 * RUVO_DECLINED, here and below: -1, there is no such job. */
RUVO_API ruvo_status ruvo_job_map(ruvo_client* client, int32_t id, const int32_t* numbers,
                                  size_t count);
RUVO_API ruvo_status ruvo_job_lookup(ruvo_client* client, const char* name, int32_t* id);
RUVO_API ruvo_status ruvo_job_delete(ruvo_client* client, int32_t id);
RUVO_API ruvo_status ruvo_job_set_progress(ruvo_client* client, int32_t id, int32_t progress);
/* 0 as well when there is no such job: the daemon does not tell them apart. */
RUVO_API ruvo_status ruvo_job_get_progress(ruvo_client* client, int32_t id, int32_t* progress);
RUVO_API ruvo_status ruvo_job_cancel(ruvo_client* client, int32_t id);
/* The daemon takes this request and never answers it; nor is it waited for. */
RUVO_API ruvo_status ruvo_job_request_all_progress(ruvo_client* client);

/* ---- Arbiter ------------------------------------------------------------ */

#define RUVO_LOCK_FOREVER (-1)

/* Locks the resource `path`, whose parts are separated by ':' or ','; the resources
 * below it are not covered. The lock belongs to whoever knows its handle (1 or
 * more), not to the conversation, and holds until it is unlocked or the daemon
 * stops. `wait_ms`: 0 tries once, negative waits without a limit. RUVO_DECLINED:
 * somebody else held it to the end of the wait. For those who lose against others
 * that wait, the daemon begins the wait anew; when that takes longer than the wait
 * and ruvo_client_options.timeout_ms together, it is given up, and the
 * conversation is over. A lock that is granted in that moment is undone; an error
 * tells when one may have stayed. */
RUVO_API ruvo_status ruvo_lock_acquire(ruvo_client* client, const char* path, int wait_ms,
                                       int32_t* handle);
/* The same. Several times a second during the wait, `goes_on` is called with
 * `context`; when it returns 0 the wait is given up: RUVO_WOKEN, and the
 * conversation is over. */
RUVO_API ruvo_status ruvo_lock_acquire_while(ruvo_client* client, const char* path, int wait_ms,
                                             int (*goes_on)(void* context), void* context,
                                             int32_t* handle);
/* Any client may do so, also when there is no such lock. A daemon that starts anew
 * counts its handles from 1 again: do not use those of an earlier life. */
RUVO_API ruvo_status ruvo_lock_release(ruvo_client* client, int32_t handle);

/* ---- Scheduler ---------------------------------------------------------- */

/* What `frequency` may be; any other number is taken as well: such a task runs
 * once and stays. */
#define RUVO_TASK_DAILY 0
#define RUVO_TASK_WEEKLY 1
#define RUVO_TASK_MONTHLY 2 /* every 28 days */
#define RUVO_TASK_ONCE 3
#define RUVO_TASK_SOON 4 /* once, 121 seconds from now, whatever the time */

/* A task's state. */
#define RUVO_TASK_FINISHED (-1)
#define RUVO_TASK_RUNNING 0
#define RUVO_TASK_ENDED 1
#define RUVO_TASK_WAITING 2

/* The exit status of a task before its first run. */
#define RUVO_TASK_NEVER_RUN (-999)

/* UTC. A first time that is past becomes 121 seconds from now. */
typedef struct ruvo_task_plan {
    int32_t frequency;
    int32_t year;
    int32_t month; /* 1 to 12; values out of range are carried */
    int32_t day;
    int32_t hour;
    int32_t minute;
    int32_t second;
} ruvo_task_plan;

/* All texts go into a batch file as they stand. Null is the empty text. */
typedef struct ruvo_task_command {
    const char* program;
    const char* parameters;
    const char* directory;
    const char* log_file; /* receives the output */
} ruvo_task_command;

/* RUVO_DECLINED, of both: -11, there is a task of that name. */
RUVO_API ruvo_status ruvo_task_schedule(ruvo_client* client, const char* name,
                                        const ruvo_task_command* command,
                                        const ruvo_task_plan* plan, int32_t* task);
/* `bytes` may be null when size is 0. */
RUVO_API ruvo_status ruvo_task_schedule_blob(ruvo_client* client, const char* name,
                                             const void* bytes, size_t size,
                                             const ruvo_task_plan* plan, int32_t* task);
/* RUVO_DECLINED, here and below: -9, there is no such task. */
RUVO_API ruvo_status ruvo_task_lookup(ruvo_client* client, const char* name, int32_t* task);
/* A command that runs already is not stopped. */
RUVO_API ruvo_status ruvo_task_cancel(ruvo_client* client, int32_t task);
RUVO_API ruvo_status ruvo_task_state(ruvo_client* client, int32_t task, int32_t* state);
/* Of a task with a command. */
RUVO_API ruvo_status ruvo_task_exit_code(ruvo_client* client, int32_t task, int32_t* exit_code);
RUVO_API ruvo_status ruvo_task_next_run(ruvo_client* client, int32_t task, ruvo_task_plan* plan);
/* When the last run of a task with a command ended, "2024-02-29 12:00:00 UTC";
 * before the first one the beginning of 1970. To be given to ruvo_free(). */
RUVO_API ruvo_status ruvo_task_last_run(ruvo_client* client, int32_t task, char** text);
/* The bytes that a task keeps, to be given to ruvo_free(). */
RUVO_API ruvo_status ruvo_task_retrieve(ruvo_client* client, int32_t task, char** bytes,
                                        size_t* size);
/* `size` bytes, which may be any, and a zero byte behind them. */
typedef struct ruvo_task_name {
    const char* bytes;
    size_t size;
} ruvo_task_name;

/* Names of the tasks with commands, and of those with bytes: `count` of them in
 * one block, which is to be given to ruvo_free(). */
RUVO_API ruvo_status ruvo_task_list(ruvo_client* client, ruvo_task_name** names, size_t* count);
RUVO_API ruvo_status ruvo_task_list_blobs(ruvo_client* client, ruvo_task_name** names,
                                          size_t* count);
/* The exit status of the last run of any task, also of one that is gone since
 * not too long. This and the next two need a daemon that loads SchedulerFollow. */
RUVO_API ruvo_status ruvo_task_last_status(ruvo_client* client, int32_t task, int32_t* status);
/* From now on each change of the task's state is delivered to `remote_name`, that
 * of a listener of ruvo_listener_open_tasks(). After RUVO_TASK_FINISHED nothing
 * more comes. */
RUVO_API ruvo_status ruvo_task_follow(ruvo_client* client, const char* remote_name,
                                      int32_t handle, int32_t task);
RUVO_API ruvo_status ruvo_task_unfollow(ruvo_client* client, const char* remote_name,
                                        int32_t handle, int32_t task);

/* ---- Notifier ----------------------------------------------------------- */

/* From now on, events whose name the regular expression `signature` matches are
 * delivered to `remote_name`, under `handle`. A signature that is no regular
 * expression is accepted and matches nothing. RUVO_DECLINED: -2, it is empty. */
RUVO_API ruvo_status ruvo_notifier_register(ruvo_client* client, const char* signature,
                                            const char* remote_name, int32_t handle);
/* RUVO_DECLINED: -3, there is no such registration. */
RUVO_API ruvo_status ruvo_notifier_unregister(ruvo_client* client, const char* remote_name,
                                              int32_t handle);
/* RUVO_DECLINED: -2, the event name is empty. `data` may be null when data_size is 0. */
RUVO_API ruvo_status ruvo_notifier_notify(ruvo_client* client, const char* sender,
                                          const char* event, const char* message,
                                          const void* data, size_t data_size);

/* ---- deliveries --------------------------------------------------------- */

typedef struct ruvo_listener ruvo_listener;

typedef struct ruvo_delivery {
    int32_t handle;      /* the one given when registering */
    const char* sender;  /* each text ends in a zero byte that its size leaves out */
    size_t sender_size;
    const char* event;
    size_t event_size;
    const char* message;
    size_t message_size;
    const void* data;
    size_t data_size;
} ruvo_delivery;

/* Listens on a free loopback port. */
RUVO_API ruvo_status ruvo_listener_open(int use_udp, ruvo_listener** listener);
/* The same for ruvo_task_follow() alone. A delivery has the event "VornTSEvent:"
 * and the task's handle, and the state as data, an int32_t of this machine. */
RUVO_API ruvo_status ruvo_listener_open_tasks(int use_udp, ruvo_listener** listener);
RUVO_API void ruvo_listener_close(ruvo_listener* listener);
/* "tcp:127.0.0.1:4711", for ruvo_notifier_register(); lives as long as the listener. */
RUVO_API const char* ruvo_listener_remote_name(const ruvo_listener* listener);
/* A handle that nobody guesses. From the first call on, deliveries under other
 * handles than those made here are thrown away. */
RUVO_API ruvo_status ruvo_listener_new_handle(ruvo_listener* listener, int32_t* handle);
/* The next delivery, to be given to ruvo_delivery_free(). Waits at most
 * `timeout_ms` (negative: for ever; 0: looks once). Call it often: what the
 * system cannot hold for a listener the daemon drops after 2 s. */
RUVO_API ruvo_status ruvo_listener_next(ruvo_listener* listener, int timeout_ms,
                                        ruvo_delivery** delivery);
/* Ends the wait under way, or the next one, with RUVO_WOKEN. Any thread. */
RUVO_API ruvo_status ruvo_listener_wake(ruvo_listener* listener);
/* How many deliveries to this listener were thrown away so far because a text
 * or the data was larger than 64 MiB. */
RUVO_API uint64_t ruvo_listener_lost(const ruvo_listener* listener);
RUVO_API void ruvo_delivery_free(ruvo_delivery* delivery);

#ifdef __cplusplus
}
#endif

#endif
