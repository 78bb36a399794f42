/*
 * vconf: the device's typed settings store (int, bool and string keys) with
 * change notification.
 *
 * On this Linux platform keys live under $SSO_PLATFORM_ROOT/vconf, one file a
 * key, replaced atomically on every write, so a reader in any process sees a
 * whole value. A change made by any process reaches every subscriber of the
 * key, on the thread that runs the GLib main context that was the thread
 * default when the subscriber subscribed.
 *
 * Who reads what: a key is a file of mode 0644, readable by every user,
 * except the keys whose values identify the account holder (the previous
 * account's GUID and login id, the last account event, which names both, and
 * the display name: "memory/sso/prev_login_guid", "memory/sso/prev_login_id",
 * "memory/sso/event_extra", "db/sso/display_name"). Those are 0640: readable
 * by their writer and by the group of the file, which is the group of the
 * vconf directory when that directory is set-group-ID. The platform's
 * installer gives the directory to the applications group (chgrp, chmod
 * 2755), so that applications, which the library serves, read them and other
 * users' processes get VCONF_ERROR_FILE_PERM.
 */
#ifndef SSO_PLATFORM_VCONF_H
#define SSO_PLATFORM_VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

#define VCONF_OK 0
#define VCONF_ERROR (-1)
#define VCONF_ERROR_WRONG_PREFIX (-2)
#define VCONF_ERROR_WRONG_TYPE (-3)
#define VCONF_ERROR_WRONG_VALUE (-4)
#define VCONF_ERROR_NOT_INITIALIZED (-5)
#define VCONF_ERROR_NO_MEM (-6)
#define VCONF_ERROR_FILE_PERM (-11)
#define VCONF_ERROR_FILE_BUSY (-12)
#define VCONF_ERROR_FILE_NO_MEM (-13)
#define VCONF_ERROR_FILE_NO_ENT (-14)
#define VCONF_ERROR_FILE_OPEN (-21)
#define VCONF_ERROR_FILE_FREAD (-22)
#define VCONF_ERROR_FILE_FGETS (-23)
#define VCONF_ERROR_FILE_WRITE (-24)
#define VCONF_ERROR_FILE_SYNC (-25)
#define VCONF_ERROR_FILE_CLOSE (-26)
#define VCONF_ERROR_FILE_ACCESS (-27)
#define VCONF_ERROR_FILE_CHMOD (-28)
#define VCONF_ERROR_FILE_LOCK (-29)
#define VCONF_ERROR_FILE_REMOVE (-30)
#define VCONF_ERROR_FILE_SEEK (-31)
#define VCONF_ERROR_FILE_TRUNCATE (-32)
#define VCONF_ERROR_NOT_SUPPORTED (-33)

enum vconf_t {
    VCONF_TYPE_NONE = 0,
    VCONF_TYPE_STRING = 40,
    VCONF_TYPE_INT = 41,
    VCONF_TYPE_DOUBLE = 42,
    VCONF_TYPE_BOOL = 43,
    VCONF_TYPE_DIR
};

/* A key as handed to a change callback; valid only during the callback. */
typedef struct _keynode_t keynode_t;

typedef void (*vconf_callback_fn)(keynode_t *node, void *user_data);

/* Keys are 1 to 255 bytes without control characters; a key must also fit a
 * file name once bytes outside [A-Za-z0-9_.-] are written as %XX (247 bytes).
 * Other keys fail with VCONF_ERROR_WRONG_PREFIX, a null key with VCONF_ERROR.
 *
 * Reads. A missing key fails with VCONF_ERROR_FILE_NO_ENT, a key of another
 * type with VCONF_ERROR_WRONG_TYPE, an unreadable store with another
 * VCONF_ERROR_FILE_* code; *val is left untouched on failure. A bool reads as
 * 0 or 1. A key whose file is not a regular file (a FIFO, a device, a
 * directory, or a link to one) is never opened for reading in a way that
 * could block: it fails at once with VCONF_ERROR_FILE_OPEN and a warning in
 * the platform log naming the file; a write replaces such a file (a
 * directory cannot be replaced: VCONF_ERROR_FILE_WRITE). */
int vconf_get_int(const char *key, int *val);
int vconf_get_bool(const char *key, int *val);
/* Returns a malloc'ed copy of a string key that the caller frees, or NULL
 * (missing key, another type, store error). */
char *vconf_get_str(const char *key);

/* Writes. A key that exists with another type fails with
 * VCONF_ERROR_WRONG_TYPE (unset it first). A bool is stored as 0 or 1; a null
 * string fails with VCONF_ERROR. A store that cannot be written fails with a
 * VCONF_ERROR_FILE_* code (FILE_PERM when permission is denied). Unsetting a
 * missing key fails with VCONF_ERROR_FILE_NO_ENT. */
int vconf_set_int(const char *key, int val);
int vconf_set_bool(const char *key, int val);
int vconf_set_str(const char *key, const char *str);
int vconf_unset(const char *key);

/* Calls cb(node, user_data) after every write of the key by any process
 * (an unset is delivered with type VCONF_TYPE_NONE). The callback runs on the
 * thread that runs the main context that was the thread default at this
 * call. The node carries the value read when the change is delivered, so
 * after a quick burst of writes several calls may report the latest value.
 * The same key and callback may be registered once (else VCONF_ERROR). A
 * callback may subscribe and unsubscribe anything, itself included.
 * Subscribing creates the store directory if needed and fails with a
 * VCONF_ERROR_FILE_* code when it cannot. */
int vconf_notify_key_changed(const char *key, vconf_callback_fn cb, void *user_data);
/* Removes the registration of this key and callback, whatever its context;
 * VCONF_ERROR when there is none. Once it returns the callback is not called
 * again, and a call running on another thread has finished (so do not call
 * this holding a lock that callback takes). */
int vconf_ignore_key_changed(const char *key, vconf_callback_fn cb);

const char *vconf_keynode_get_name(keynode_t *keynode);
int vconf_keynode_get_type(keynode_t *keynode);
/* The value carried by the node; -1 (or NULL) when the node has another type. */
int vconf_keynode_get_int(keynode_t *keynode);
int vconf_keynode_get_bool(keynode_t *keynode);
char *vconf_keynode_get_str(keynode_t *keynode);

#ifdef __cplusplus
}
#endif

#endif
