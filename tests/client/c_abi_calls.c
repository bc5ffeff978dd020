#include "tests/client/c_abi_calls.h"

#include "client/ruvo_client.h"

#include <string.h>

#define CHECK(condition)              \
    do {                              \
        if (!(condition)) return __LINE__; \
    } while (0)

static ruvo_client* open_to(uint16_t port) {
    ruvo_client_options options;
    ruvo_client* client = NULL;
    memset(&options, 0, sizeof options);
    options.port = port;
    options.connect_timeout_ms = 20000;
    options.timeout_ms = 20000;
    return ruvo_client_open(&options, &client) == RUVO_OK ? client : NULL;
}

int c_calls_jobs(uint16_t port) {
    const int32_t numbers[] = {7, -8};
    int32_t value = 0;
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_job_create(client, "backup", "at two", &value) == RUVO_OK);
    CHECK(value == 12);
    CHECK(ruvo_job_create(client, "backup", "at two", &value) == RUVO_DECLINED);
    CHECK(value == 12); /* left alone */
    CHECK(ruvo_error_code() == -1);
    CHECK(strstr(ruvo_error_text(), "backup") != NULL);
    CHECK(ruvo_job_lookup(client, "backup", &value) == RUVO_OK);
    CHECK(value == 3);
    CHECK(strcmp(ruvo_error_text(), "") == 0); /* of the last call only */
    CHECK(ruvo_job_lookup(client, "other", &value) == RUVO_DECLINED);
    CHECK(ruvo_error_code() == -1);
    CHECK(ruvo_job_map(client, 3, numbers, 2) == RUVO_OK);
    CHECK(ruvo_job_map(client, 3, NULL, 0) == RUVO_OK);
    CHECK(ruvo_job_set_progress(client, 3, 50) == RUVO_OK);
    CHECK(ruvo_job_get_progress(client, 3, &value) == RUVO_OK);
    CHECK(value == 50);
    CHECK(ruvo_job_request_all_progress(client) == RUVO_OK);
    CHECK(ruvo_job_cancel(client, 3) == RUVO_OK);
    CHECK(ruvo_job_delete(client, 3) == RUVO_OK);
    CHECK(ruvo_job_delete(client, 3) == RUVO_DECLINED);
    ruvo_client_close(client);
    return 0;
}

int c_calls_notifier(uint16_t port) {
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_notifier_register(client, "^a", "tcp:127.0.0.1:1", -5) == RUVO_OK);
    CHECK(ruvo_notifier_notify(client, "me", "abc", "text", "\0x", 2) == RUVO_OK);
    CHECK(ruvo_notifier_notify(client, "me", "", "text", NULL, 0) == RUVO_DECLINED);
    CHECK(ruvo_error_code() == -2);
    CHECK(ruvo_notifier_unregister(client, "tcp:127.0.0.1:1", -5) == RUVO_OK);
    CHECK(ruvo_notifier_unregister(client, "tcp:127.0.0.1:1", -5) == RUVO_DECLINED);
    CHECK(ruvo_error_code() == -3);
    ruvo_client_close(client);
    return 0;
}

static int countdown(void* left) { return --*(int*)left > 0; }

int c_calls_locks(uint16_t port) {
    int32_t handle = 5;
    int left = 1000;
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_lock_acquire(client, "a:b", 0, &handle) == RUVO_OK);
    CHECK(handle == 17);
    CHECK(ruvo_lock_acquire(client, "a:b", 250, &handle) == RUVO_DECLINED);
    CHECK(handle == 17); /* left alone */
    CHECK(ruvo_error_code() == 0);
    CHECK(strcmp(ruvo_error_text(), "") != 0);
    CHECK(ruvo_lock_acquire(client, "", RUVO_LOCK_FOREVER, &handle) == RUVO_OK);
    CHECK(handle == 18);
    CHECK(ruvo_lock_acquire_while(client, "c", 250, countdown, &left, &handle) == RUVO_OK);
    CHECK(handle == 19);
    CHECK(ruvo_lock_acquire_while(client, "c", 0, countdown, &left, &handle) == RUVO_DECLINED);
    CHECK(ruvo_lock_release(client, 17) == RUVO_OK);
    CHECK(ruvo_lock_release(client, -1) == RUVO_OK);
    ruvo_client_close(client);
    return 0;
}

int c_calls_lock_wait_given_up(uint16_t port) {
    int32_t handle = 5;
    int left = 3;
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_lock_acquire_while(client, "a", -1, countdown, &left, &handle) == RUVO_WOKEN);
    CHECK(left == 0); /* and not asked again */
    CHECK(handle == 5);
    CHECK(ruvo_lock_release(client, 1) == RUVO_CLOSED);
    ruvo_client_close(client);
    return 0;
}

int c_calls_tasks(uint16_t port) {
    ruvo_task_command command;
    ruvo_task_plan plan;
    ruvo_task_name* names = NULL;
    char* text = NULL;
    size_t size = 0;
    int32_t value = 0;
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    memset(&command, 0, sizeof command); /* null is the empty text */
    command.program = "prog";
    memset(&plan, 0, sizeof plan);
    plan.frequency = RUVO_TASK_WEEKLY;
    plan.year = 2026;
    plan.month = 11;
    plan.day = 22;
    plan.hour = 2;
    plan.minute = 30;
    plan.second = 5;
    CHECK(ruvo_task_schedule(client, "name", &command, &plan, &value) == RUVO_OK);
    CHECK(value == 17);
    CHECK(ruvo_task_schedule(client, "name", &command, &plan, &value) == RUVO_DECLINED);
    CHECK(ruvo_error_code() == -11);
    CHECK(value == 17); /* left alone */
    CHECK(ruvo_task_schedule_blob(client, "blob", "a\0b", 3, &plan, &value) == RUVO_OK);
    CHECK(value == 18);
    CHECK(ruvo_task_schedule_blob(client, "blob", NULL, 3, &plan, &value) == RUVO_ARGUMENT);
    CHECK(ruvo_task_lookup(client, "name", &value) == RUVO_OK);
    CHECK(value == 17);
    CHECK(ruvo_task_lookup(client, "other", &value) == RUVO_DECLINED);
    CHECK(ruvo_error_code() == -9);
    CHECK(ruvo_task_state(client, 17, &value) == RUVO_OK);
    CHECK(value == RUVO_TASK_WAITING);
    CHECK(ruvo_task_exit_code(client, 17, &value) == RUVO_OK);
    CHECK(value == RUVO_TASK_NEVER_RUN);
    memset(&plan, 0, sizeof plan);
    CHECK(ruvo_task_next_run(client, 17, &plan) == RUVO_OK);
    CHECK(plan.frequency == RUVO_TASK_WEEKLY && plan.year == 2026 && plan.month == 11);
    CHECK(plan.day == 22 && plan.hour == 2 && plan.minute == 30 && plan.second == 5);
    CHECK(ruvo_task_last_run(client, 17, &text) == RUVO_OK);
    CHECK(strcmp(text, "2024-02-29 12:00:00 UTC") == 0);
    ruvo_free(text);
    CHECK(ruvo_task_retrieve(client, 18, &text, &size) == RUVO_OK);
    CHECK(size == 3 && memcmp(text, "a\0b", 4) == 0);
    ruvo_free(text);
    CHECK(ruvo_task_list(client, &names, &size) == RUVO_OK);
    CHECK(size == 3);
    CHECK(names[0].size == 4 && strcmp(names[0].bytes, "name") == 0);
    CHECK(names[1].size == 3 && memcmp(names[1].bytes, "a\0b", 4) == 0);
    CHECK(names[2].size == 0 && names[2].bytes[0] == '\0');
    ruvo_free(names);
    CHECK(ruvo_task_list_blobs(client, &names, &size) == RUVO_OK);
    CHECK(size == 0);
    ruvo_free(names);
    CHECK(ruvo_task_list(client, NULL, &size) == RUVO_ARGUMENT);
    CHECK(ruvo_task_list_blobs(client, &names, NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_task_follow(client, "tcp:127.0.0.1:1", 3, 17) == RUVO_OK);
    CHECK(ruvo_task_unfollow(client, "tcp:127.0.0.1:1", 3, 17) == RUVO_OK);
    CHECK(ruvo_task_last_status(client, 17, &value) == RUVO_OK);
    CHECK(value == 7);
    CHECK(ruvo_task_cancel(client, 17) == RUVO_OK);
    CHECK(ruvo_task_cancel(client, 17) == RUVO_DECLINED);
    CHECK(ruvo_error_code() == -9);
    ruvo_client_close(client);
    return 0;
}

int c_calls_task_listener(void (*send)(const char* remote_name, int32_t handle)) {
    ruvo_listener* listener = NULL;
    ruvo_delivery* delivery = NULL;
    int32_t handle = 0;
    int32_t state = 0;
    CHECK(ruvo_listener_open_tasks(0, &listener) == RUVO_OK);
    CHECK(ruvo_listener_new_handle(listener, &handle) == RUVO_OK);
    send(ruvo_listener_remote_name(listener), handle);
    CHECK(ruvo_listener_next(listener, 20000, &delivery) == RUVO_OK);
    CHECK(delivery->handle == handle);
    CHECK(strcmp(delivery->event, "VornTSEvent:42") == 0);
    CHECK(delivery->data_size == sizeof state);
    memcpy(&state, delivery->data, sizeof state);
    CHECK(state == RUVO_TASK_FINISHED);
    ruvo_delivery_free(delivery);
    ruvo_listener_close(listener);
    return 0;
}

int c_calls_batch(uint16_t port) {
    ruvo_batch* batch = NULL;
    char* text = NULL;
    char bytes[3];
    size_t size = 0;
    int32_t value = 0;
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_batch_create(&batch) == RUVO_OK);
    CHECK(ruvo_batch_add_int(batch, 1) == RUVO_ARGUMENT); /* nothing begun */
    CHECK(ruvo_batch_begin(batch, "M", "C") == RUVO_OK);
    CHECK(ruvo_batch_add_int(batch, -2) == RUVO_OK);
    CHECK(ruvo_batch_add_string(batch, "a\0b", 3) == RUVO_OK);
    CHECK(ruvo_batch_add_string(batch, NULL, 0) == RUVO_OK);
    CHECK(ruvo_batch_add_bytes(batch, "raw", 3) == RUVO_OK);
    CHECK(ruvo_batch_begin(batch, "M", "D") == RUVO_OK);
    CHECK(ruvo_client_send(client, batch) == RUVO_OK);
    CHECK(ruvo_client_read_int(client, &value) == RUVO_OK);
    CHECK(value == -7);
    CHECK(ruvo_client_read_string(client, &text, &size) == RUVO_OK);
    CHECK(size == 3 && memcmp(text, "x\0y", 4) == 0);
    ruvo_free(text);
    CHECK(ruvo_client_read_string(client, &text, NULL) == RUVO_OK);
    CHECK(strcmp(text, "") == 0);
    ruvo_free(text);
    CHECK(ruvo_client_read_bytes(client, NULL, 0) == RUVO_OK);
    CHECK(ruvo_client_read_bytes(client, bytes, 3) == RUVO_OK);
    CHECK(memcmp(bytes, "end", 3) == 0);
    CHECK(ruvo_client_acknowledge(client) == RUVO_OK);
    CHECK(ruvo_client_log_off(client) == RUVO_OK);
    CHECK(ruvo_client_read_int(client, &value) == RUVO_CLOSED);
    CHECK(ruvo_client_is_gone(client) == 1);
    ruvo_batch_free(batch);
    ruvo_client_close(client);
    return 0;
}

int c_calls_refused(uint16_t port) {
    ruvo_client_options options;
    ruvo_client* client = NULL;
    memset(&options, 0, sizeof options);
    options.host = "127.0.0.1";
    options.port = port;
    CHECK(ruvo_client_open(&options, &client) == RUVO_ACCESS_REFUSED);
    CHECK(client == NULL);
    CHECK(strstr(ruvo_error_text(), "access refused") != NULL);
    return 0;
}

int c_calls_unreachable(uint16_t port) {
    ruvo_client_options options;
    ruvo_client* client = NULL;
    memset(&options, 0, sizeof options);
    options.port = port;
    CHECK(ruvo_client_open(&options, &client) == RUVO_UNREACHABLE);
    CHECK(client == NULL);
    CHECK(ruvo_error_code() != 0);
    return 0;
}

int c_calls_time_out(uint16_t port) {
    int32_t value = 5;
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_client_is_gone(client) == 0);
    CHECK(ruvo_client_set_timeout(client, 30) == RUVO_OK);
    CHECK(ruvo_job_lookup(client, "a", &value) == RUVO_TIMED_OUT);
    CHECK(value == 5);
    CHECK(ruvo_job_lookup(client, "a", &value) == RUVO_CLOSED);
    ruvo_client_close(client);
    return 0;
}

int c_calls_stop(uint16_t port) {
    ruvo_client* client = open_to(port);
    CHECK(client != NULL);
    CHECK(ruvo_client_stop_daemon(client) == RUVO_OK);
    ruvo_client_close(client);
    return 0;
}

int c_calls_over_udp(uint16_t port) {
    ruvo_client_options options;
    ruvo_client* client = NULL;
    int32_t value = 0;
    memset(&options, 0, sizeof options);
    options.port = port;
    options.use_udp = 1;
    options.timeout_ms = -1;
    CHECK(ruvo_client_open(&options, &client) == RUVO_OK);
    CHECK(ruvo_job_lookup(client, "a", &value) == RUVO_OK);
    CHECK(value == 3);
    ruvo_client_close(client);
    return 0;
}

int c_calls_arguments(void) {
    int32_t value = 0;
    ruvo_batch* batch = NULL;
    CHECK(ruvo_client_open(NULL, NULL) == RUVO_ARGUMENT);
    CHECK(strcmp(ruvo_error_text(), "") != 0);
    CHECK(ruvo_client_set_timeout(NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_client_is_gone(NULL) == 1);
    CHECK(ruvo_client_acknowledge(NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_client_log_off(NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_client_stop_daemon(NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_client_send(NULL, NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_client_read_int(NULL, &value) == RUVO_ARGUMENT);
    CHECK(ruvo_client_read_string(NULL, NULL, NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_client_read_bytes(NULL, NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_batch_create(NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_batch_create(&batch) == RUVO_OK);
    CHECK(ruvo_batch_begin(batch, NULL, "C") == RUVO_ARGUMENT);
    CHECK(ruvo_batch_begin(batch, "M", NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_batch_begin(batch, "M", "C") == RUVO_OK);
    CHECK(ruvo_batch_add_string(batch, NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_batch_add_bytes(batch, NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_batch_add_bytes(NULL, "", 0) == RUVO_ARGUMENT);
    ruvo_batch_free(batch);
    CHECK(ruvo_job_create(NULL, "a", "b", &value) == RUVO_ARGUMENT);
    CHECK(ruvo_job_map(NULL, 1, NULL, 0) == RUVO_ARGUMENT);
    CHECK(ruvo_job_lookup(NULL, "a", &value) == RUVO_ARGUMENT);
    CHECK(ruvo_job_delete(NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_job_set_progress(NULL, 1, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_job_get_progress(NULL, 1, &value) == RUVO_ARGUMENT);
    CHECK(ruvo_job_cancel(NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_job_request_all_progress(NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_notifier_register(NULL, "", "", 1) == RUVO_ARGUMENT);
    CHECK(ruvo_notifier_unregister(NULL, "", 1) == RUVO_ARGUMENT);
    CHECK(ruvo_notifier_notify(NULL, "", "", "", NULL, 0) == RUVO_ARGUMENT);
    CHECK(ruvo_lock_acquire(NULL, "a", 0, &value) == RUVO_ARGUMENT);
    CHECK(ruvo_lock_acquire_while(NULL, "a", 0, NULL, NULL, &value) == RUVO_ARGUMENT);
    CHECK(ruvo_lock_release(NULL, 1) == RUVO_ARGUMENT);
    CHECK(ruvo_listener_open(0, NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_listener_next(NULL, 0, NULL) == RUVO_ARGUMENT);
    CHECK(ruvo_listener_new_handle(NULL, &value) == RUVO_ARGUMENT);
    CHECK(ruvo_listener_wake(NULL) == RUVO_ARGUMENT);
    CHECK(strcmp(ruvo_listener_remote_name(NULL), "") == 0);
    CHECK(ruvo_listener_lost(NULL) == 0);
    ruvo_client_close(NULL);
    ruvo_batch_free(NULL);
    ruvo_listener_close(NULL);
    ruvo_delivery_free(NULL);
    ruvo_free(NULL);
    CHECK(value == 0);
    return 0;
}

int c_calls_listener_alone(void) {
    ruvo_listener* listener = NULL;
    ruvo_delivery* delivery = NULL;
    CHECK(ruvo_listener_open(1, &listener) == RUVO_OK);
    CHECK(strncmp(ruvo_listener_remote_name(listener), "udp:127.0.0.1:", 14) == 0);
    CHECK(ruvo_listener_next(listener, 0, &delivery) == RUVO_TIMED_OUT);
    CHECK(ruvo_listener_wake(listener) == RUVO_OK);
    CHECK(ruvo_listener_next(listener, -1, &delivery) == RUVO_WOKEN);
    CHECK(delivery == NULL);
    ruvo_listener_close(listener);
    CHECK(strchr(ruvo_version(), '.') != NULL);
    return 0;
}

int c_calls_listener(void (*send)(const char* remote_name, int32_t handle)) {
    int32_t handle = 0;
    ruvo_listener* listener = NULL;
    ruvo_delivery* delivery = NULL;
    CHECK(ruvo_listener_open(0, &listener) == RUVO_OK);
    CHECK(ruvo_listener_new_handle(listener, &handle) == RUVO_OK);
    send(ruvo_listener_remote_name(listener), handle);
    CHECK(ruvo_listener_next(listener, 20000, &delivery) == RUVO_OK);
    CHECK(ruvo_listener_lost(listener) == 0);
    ruvo_listener_close(listener);
    CHECK(delivery->handle == handle); /* outlives its listener */
    CHECK(strcmp(delivery->sender, "me") == 0 && delivery->sender_size == 2);
    CHECK(strcmp(delivery->event, "disk.failed") == 0 && delivery->event_size == 11);
    CHECK(delivery->message_size == 3 && memcmp(delivery->message, "a\0b", 4) == 0);
    CHECK(delivery->data_size == 2 && memcmp(delivery->data, "\0x", 2) == 0);
    ruvo_delivery_free(delivery);
    return 0;
}
