#include "ss_policy.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "package_manager_admin.h"
#include "ss_manager.h"
#include "ss_wire.h"
#include "sso_platform_common.h"

static int privileged(const struct ss_policy *policy, uid_t peer)
{
    return peer == 0 || peer == policy->service_uid || peer == policy->own_uid;
}

/* Whether only root or the storage service's user can have written path.
 * A link is taken for what it points to only where the administrator named
 * it (the root itself, follow set); inside the registry it is refused. */
static int administered(const struct ss_policy *policy, const char *path, int regular, int follow)
{
    struct stat st;
    if ((follow ? stat(path, &st) : lstat(path, &st)) != 0)
        return 0;
    if (regular ? !S_ISREG(st.st_mode) : !S_ISDIR(st.st_mode))
        return 0;
    if (st.st_uid != 0 && st.st_uid != policy->own_uid)
        return 0;
    return (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

static int registry_trusted(const struct ss_policy *policy, const char *package_id)
{
    char dir[PATH_MAX], entry[PATH_MAX];
    char rel[sizeof("packages/") + SS_WIRE_MAX_ITEM_ID_LEN];
    snprintf(rel, sizeof(rel), "packages/%s", package_id);
    if (sso_platform_path(dir, sizeof(dir), "packages") != 0 ||
        sso_platform_path(entry, sizeof(entry), rel) != 0)
        return 0;
    return administered(policy, sso_platform_root(), 0, 1) && administered(policy, dir, 0, 0) &&
           administered(policy, entry, 1, 0);
}

int ss_policy_check(const struct ss_policy *policy, uid_t peer, uint32_t op, const char *item_id,
                    const char **why)
{
    const char *reason = NULL;
    if (privileged(policy, peer))
        return SS_ERROR_NONE;
    if (op != SS_WIRE_OP_READ && op != SS_WIRE_OP_VALIDATE) {
        reason = "only the SSO service writes";
    } else if (strcmp(item_id, SS_POLICY_SHARED_ITEM) == 0) {
        return SS_ERROR_NONE;
    } else if (strncmp(item_id, SS_POLICY_PACKAGE_ITEM_PREFIX,
                       sizeof(SS_POLICY_PACKAGE_ITEM_PREFIX) - 1) == 0) {
        const char *package_id = item_id + sizeof(SS_POLICY_PACKAGE_ITEM_PREFIX) - 1;
        uid_t owner = 0;
        int rc = package_manager_get_package_uid(package_id, &owner);
        if (rc != PACKAGE_MANAGER_ERROR_NONE)
            reason = "the package is not registered with a user";
        else if (owner != peer)
            reason = "the item is another package's";
        else if (!registry_trusted(policy, package_id))
            reason = "the package registry is writable by others";
        else
            return SS_ERROR_NONE;
    } else {
        reason = "the item is the SSO service's";
    }
    if (why)
        *why = reason;
    return SS_ERROR_ACCESS_DENIED;
}
