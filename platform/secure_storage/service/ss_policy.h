/*
 * Who may do what to which secure-storage item. The storage service asks
 * this with the peer's user id as the kernel reports it (SO_PEERCRED) and
 * nothing the peer says about itself.
 *
 *   item                              read                  write, delete
 *   SSO_PUBLICDATA_ID                 anyone                privileged
 *   SSO_PUBLICDATA_ID_<package id>    the package's user,   privileged
 *                                     privileged
 *   anything else                     privileged            privileged
 *
 * Privileged: the SSO service's user, the storage service's own user and
 * root (the latter two can read the store's files anyway). A package's user
 * is the one the package registry names (package_manager_get_package_uid),
 * believed only while the registry cannot have been written by anyone but
 * its administrator: the platform root, packages/ and the entry must be
 * owned by root or the storage service's user and writable by their owner
 * only, and the entry must be a regular file.
 */
#ifndef SSO_PLATFORM_SS_POLICY_H
#define SSO_PLATFORM_SS_POLICY_H

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SS_POLICY_SHARED_ITEM "SSO_PUBLICDATA_ID"
#define SS_POLICY_PACKAGE_ITEM_PREFIX SS_POLICY_SHARED_ITEM "_"

struct ss_policy {
    uid_t service_uid; /* the SSO service's user */
    uid_t own_uid;     /* the storage service's user */
};

/* SS_ERROR_NONE when peer may do op (an ss_wire_op) to item_id, else
 * SS_ERROR_ACCESS_DENIED with *why (when why is set) saying why in a few
 * words fit for a log line. */
int ss_policy_check(const struct ss_policy *policy, uid_t peer, uint32_t op, const char *item_id,
                    const char **why);

#ifdef __cplusplus
}
#endif

#endif
