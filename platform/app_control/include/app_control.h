/*
 * app_control: launching applications with a request (operation, launch
 * mode, string extras) and receiving their reply.
 *
 * On this Linux platform applications are registered under
 * $SSO_PLATFORM_ROOT/apps (see app_control_registry.h and `sso-platform app`).
 * app_control_send_launch_request starts the registered program as a new
 * process of the caller with
 *   SSO_PLATFORM_APP_ID   the launched application's id,
 *   SSO_PLATFORM_ROOT     inherited from the caller,
 * and the request handed over through inherited descriptors; the launched
 * program reads it with app_control_get_launch_request and answers with
 * app_control_reply_to_launch_request. The reply comes back to the caller's
 * reply callback on the thread that runs the GLib main context that was the
 * thread default when the request was sent.
 *
 * A handle is not thread safe: use one handle from one thread at a time.
 * Different handles may be used from different threads.
 */
#ifndef SSO_PLATFORM_APP_CONTROL_H
#define SSO_PLATFORM_APP_CONTROL_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct app_control_s *app_control_h;

typedef enum {
    APP_CONTROL_ERROR_NONE = 0,
    APP_CONTROL_ERROR_INVALID_PARAMETER = -22,
    APP_CONTROL_ERROR_OUT_OF_MEMORY = -12,
    APP_CONTROL_ERROR_IO_ERROR = -5,
    APP_CONTROL_ERROR_APP_NOT_FOUND = -0x2101,     /* no application registered under the id */
    APP_CONTROL_ERROR_KEY_NOT_FOUND = -0x2102,     /* no extra data under the key */
    APP_CONTROL_ERROR_LAUNCH_FAILED = -0x2103,     /* the program could not be started */
    APP_CONTROL_ERROR_NO_LAUNCH_REQUEST = -0x2104, /* this process was not launched with one */
    APP_CONTROL_ERROR_ALREADY_REPLIED = -0x2105,   /* the request has had its reply */
} app_control_error_e;

typedef enum {
    APP_CONTROL_RESULT_SUCCEEDED = 0,
    APP_CONTROL_RESULT_FAILED = -1,
    APP_CONTROL_RESULT_CANCELED = -2,
} app_control_result_e;

typedef enum {
    APP_CONTROL_LAUNCH_MODE_SINGLE = 0,
    APP_CONTROL_LAUNCH_MODE_GROUP,
} app_control_launch_mode_e;

/* The operation of a request that sets none. */
#define APP_CONTROL_OPERATION_DEFAULT "org.orvex.platform.appcontrol.operation.DEFAULT"

/* ---- handles ---- */

/* A new empty handle: no application id, no operation, launch mode SINGLE,
 * no extras. Free it with app_control_destroy. */
int app_control_create(app_control_h *app_control);

/* A deep copy of a handle (a received launch request stays one). */
int app_control_clone(app_control_h *clone, app_control_h app_control);

int app_control_destroy(app_control_h app_control);

/* The application to launch; NULL clears it. get gives a malloc'ed copy, or
 * NULL when none is set. */
int app_control_set_app_id(app_control_h app_control, const char *app_id);
int app_control_get_app_id(app_control_h app_control, char **app_id);

/* The operation; NULL clears it (a request without one is received with
 * APP_CONTROL_OPERATION_DEFAULT). get gives a malloc'ed copy, or NULL. */
int app_control_set_operation(app_control_h app_control, const char *operation);
int app_control_get_operation(app_control_h app_control, char **operation);

int app_control_set_launch_mode(app_control_h app_control, app_control_launch_mode_e mode);
int app_control_get_launch_mode(app_control_h app_control, app_control_launch_mode_e *mode);

/* ---- extra data: string values under non-empty string keys ---- */

/* Adds key = value, replacing the value of an existing key in place. */
int app_control_add_extra_data(app_control_h app_control, const char *key, const char *value);

/* A malloc'ed copy of the value; APP_CONTROL_ERROR_KEY_NOT_FOUND if absent. */
int app_control_get_extra_data(app_control_h app_control, const char *key, char **value);

/* APP_CONTROL_ERROR_KEY_NOT_FOUND if absent. */
int app_control_remove_extra_data(app_control_h app_control, const char *key);

/* Called once a key, in the order the keys were added, until it returns
 * false. The keys are those present when the iteration started; the callback
 * may read and change the handle but not destroy it. */
typedef bool (*app_control_extra_data_cb)(app_control_h app_control, const char *key,
                                          void *user_data);
int app_control_foreach_extra_data(app_control_h app_control, app_control_extra_data_cb callback,
                                   void *user_data);

/* ---- launching (caller side) ---- */

/*
 * The reply of a launched application. request is a copy of the request as
 * sent; reply holds the extras of the callee's reply, or is NULL when the
 * callee ended (exited, crashed, or closed its reply channel) without
 * replying, in which case result is APP_CONTROL_RESULT_FAILED. Both handles
 * belong to the library and are valid during the callback only (clone them
 * to keep them).
 */
typedef void (*app_control_reply_cb)(app_control_h request, app_control_h reply,
                                     app_control_result_e result, void *user_data);

/*
 * Starts the application named by the handle's app id and hands it the
 * request. Returns once the process is started; the handle may be destroyed
 * right away.
 *
 * APP_CONTROL_ERROR_INVALID_PARAMETER  no handle or no application id
 * APP_CONTROL_ERROR_APP_NOT_FOUND      no application registered under the id
 * APP_CONTROL_ERROR_LAUNCH_FAILED      its program could not be started
 * APP_CONTROL_ERROR_IO_ERROR           the registry could not be read
 * and the callback is not called. Otherwise, with a callback, it is called
 * exactly once, on the thread running the main context that was the thread
 * default when this was called (the global default context when none was),
 * and only while that context runs (a context destroyed first drops the
 * callback). Without a callback the reply, if any, is dropped. Either way a
 * child watch on that context reaps the process when it ends, or, when the
 * context goes away first, a background thread does: no launch leaves a
 * zombie behind.
 */
int app_control_send_launch_request(app_control_h app_control, app_control_reply_cb callback,
                                    void *user_data);

/* ---- being launched (callee side) ---- */

/*
 * The request this process was launched with, in a new handle the caller
 * destroys: its app id is this application's id, and it carries the
 * operation (APP_CONTROL_OPERATION_DEFAULT when the caller set none), the
 * launch mode and the extras. APP_CONTROL_ERROR_NO_LAUNCH_REQUEST when the
 * process was not started by app_control_send_launch_request.
 */
int app_control_get_launch_request(app_control_h *request);

/* The application id of the process that sent a received request, malloc'ed;
 * "" when the sender was not an application. INVALID_PARAMETER for a handle
 * that is not a received request. */
int app_control_get_caller(app_control_h request, char **caller);

/*
 * Sends the extras of reply (NULL for none) and the result back to the
 * caller of request, a handle from app_control_get_launch_request (or a
 * clone of one). A request has at most one reply: later calls fail with
 * APP_CONTROL_ERROR_ALREADY_REPLIED. When the caller asked for no reply the
 * reply is dropped and the call succeeds; when the caller has gone it fails
 * with APP_CONTROL_ERROR_IO_ERROR.
 */
int app_control_reply_to_launch_request(app_control_h reply, app_control_h request,
                                        app_control_result_e result);

#ifdef __cplusplus
}
#endif

#endif
