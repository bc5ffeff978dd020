#ifndef C_ABI_CALLS_H
#define C_ABI_CALLS_H

/* A C program's use of the library. Each function returns 0, or the line of the
 * first thing that went wrong. `port` is the daemon's. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int c_calls_jobs(uint16_t port);
int c_calls_notifier(uint16_t port);
int c_calls_locks(uint16_t port);
int c_calls_lock_wait_given_up(uint16_t port);
int c_calls_tasks(uint16_t port);
int c_calls_batch(uint16_t port);
int c_calls_refused(uint16_t port);
int c_calls_unreachable(uint16_t port);
int c_calls_time_out(uint16_t port);
int c_calls_stop(uint16_t port);
int c_calls_over_udp(uint16_t port);
int c_calls_arguments(void);
/* Connects to itself, as far as C alone can. */
int c_calls_listener_alone(void);
/* `send` brings the listener of that name a delivery under that handle. */
/* The same for one of ruvo_listener_open_tasks(). */
int c_calls_task_listener(void (*send)(const char* remote_name, int32_t handle));
int c_calls_listener(void (*send)(const char* remote_name, int32_t handle));

#ifdef __cplusplus
}
#endif

#endif
