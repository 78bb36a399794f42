#include "SSOAPIUtil.h"

#include <app_common.h>
#include "sso_bus_connection.h"
#include "sso_glib_ptr.h"
#include <devfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "sso_log.h"

bool SSOAPIUtil::m_bClientAlive = false;
pthread_mutex_t SSOAPIUtil::m_mutexClientAlive = PTHREAD_MUTEX_INITIALIZER;

namespace sso_log_detail {
bool IsDevelMode()
{
    // Only a regular file counts: a FIFO or a device there is no marker.
    return devfs_marker_present("/etc/debug") == 1;
}
} // namespace sso_log_detail

namespace {

void LockOrThrow(pthread_mutex_t *mutex)
{
    int err = pthread_mutex_lock(mutex);
    if (err != 0)
        throw std::system_error(err, std::generic_category(), "pthread_mutex_lock");
}

} // namespace

void SSOAPIUtil::SetClientToAlive()
{
    LockOrThrow(&m_mutexClientAlive);
    m_bClientAlive = true;
    SSO_LOGY_AT(sso_log_lines::kSetClientToAlive, "m_bClientAlive [%d]", 1);
    pthread_mutex_unlock(&m_mutexClientAlive);
}

void SSOAPIUtil::SetClientToTerminated()
{
    LockOrThrow(&m_mutexClientAlive);
    m_bClientAlive = false;
    SSO_LOGY_AT(sso_log_lines::kSetClientToTerminated, "m_bClientAlive [%d]", 0);
    pthread_mutex_unlock(&m_mutexClientAlive);
}

bool SSOAPIUtil::IsClientAlive()
{
    LockOrThrow(&m_mutexClientAlive);
    bool alive = m_bClientAlive;
    SSO_LOGY_AT(sso_log_lines::kIsClientAlive, "m_bClientAlive [%d]", alive ? 1 : 0);
    pthread_mutex_unlock(&m_mutexClientAlive);
    return alive;
}

void SSOAPIUtil::ResetClientAliveLockAfterFork()
{
    pthread_mutex_init(&m_mutexClientAlive, nullptr);
}

int SSOAPIUtil::GetProcessId()
{
    int processId = static_cast<int>(getpid());
    if (processId < 1) {
        SSO_LOGE("Failed to getpid(). (%d)", processId);
        processId = -1;
    }
    SSO_LOGY("processId [%d]", processId);
    return processId;
}

std::string SSOAPIUtil::GetProcessName(int processId)
{
    std::string processName = "unknown";
    if (processId < 1) {
        SSO_LOGE("processId(%d) <= 0", processId);
        return processName;
    }
    char exePath[512] = {0};
    snprintf(exePath, sizeof(exePath), "/proc/%d/exe", processId);
    char link[1024] = {0};
    ssize_t len = readlink(exePath, link, sizeof(link) - 1);
    if (len <= 0) {
        SSO_LOGE("Failed to readlink(%s). len(%d) <= 0", exePath, static_cast<int>(len));
        return processName;
    }
    link[len] = '\0';
    processName = link;
    SSO_LOGY("processName [%s]", processName.c_str());
    return processName;
}

std::string SSOAPIUtil::DeriveAppIdFromCommandLine(const std::string &argument)
{
    size_t org = argument.find("org");
    if (org != std::string::npos) {
        size_t slash = argument.find('/', org);
        return argument.substr(org, slash == std::string::npos ? std::string::npos : slash - org);
    }
    size_t last = argument.rfind('/');
    return last == std::string::npos ? argument : argument.substr(last + 1);
}

std::string SSOAPIUtil::AppIdFromCmdline(char *buffer, size_t size)
{
    if (size > 0 && buffer[size - 1] == '\n')
        buffer[size - 1] = '\0';
    size_t first = strnlen(buffer, size);
    SSO_LOGY("cmdlineBuffer [%.*s]", static_cast<int>(first), buffer);
    // Only the first argument counts: the text up to the first NUL.
    return DeriveAppIdFromCommandLine(std::string(buffer, first));
}

std::string SSOAPIUtil::GetAppId(int processId)
{
    SSO_LOG_START_F("processId [%d]", processId);

    // Inside an application the platform knows the answer, whatever process
    // was asked for; the command line is only for processes it does not know.
    sso_glib::MallocPtr<char> platformId;
    int ret = app_get_id(sso_glib::Out(platformId));
    if (ret == APP_ERROR_NONE && platformId != nullptr) {
        std::string appId = platformId.get();
        SSO_LOG_END_F("appId [%s]", appId.c_str());
        return appId;
    }
    platformId.reset();
    SSO_LOG_AT(LOG_ID_MAIN, DLOG_WARN,
               SSO_COLOR_GREEN "Failed to app_get_id(). error(%d)" SSO_COLOR_END, ret);

    if (processId < 1)
        processId = GetProcessId();
    if (processId < 1)
        return "unknown";

    char cmdlinePath[512] = {0};
    snprintf(cmdlinePath, sizeof(cmdlinePath), "/proc/%d/cmdline", processId);
    SSO_LOGY("Try to read appId from [%s]", cmdlinePath);
    FILE *file = fopen(cmdlinePath, "re");
    if (file == nullptr) {
        SSO_LOG_CHECK_NULL("Failed to fopen()");
        return "unknown";
    }

    std::string appId = "unknown";
    char cmdline[1024] = {0};
    size_t size = fread(cmdline, 1, sizeof(cmdline) - 1, file);
    if (size == 0) {
        SSO_LOGE("Failed to fread(). error size(%d)", static_cast<int>(size));
    } else {
        appId = AppIdFromCmdline(cmdline, size);
    }
    fclose(file);
    SSO_LOG_END_F("appId from cmdline [%s]", appId.c_str());
    return appId;
}

std::string SSOAPIUtil::GetObjectName(int processId)
{
    std::string objectName = "obj" + std::to_string(processId) + "_" + GetAppId(processId);
    SSO_LOGY("objectName [%s]", objectName.c_str());
    return objectName;
}

bool SSOAPIUtil::DoesFileExist(std::string path)
{
    // Marker files: only a regular file counts (the platform logs anything
    // else found there).
    if (devfs_marker_present(path.c_str()) == 1) {
        SSO_LOGP("[%s] exist", path.c_str());
        return true;
    }
    SSO_LOGY("[%s] don't exist", path.c_str());
    return false;
}

bool SSOAPIUtil::m_GetCallerObjectProcessId(CSSOBusConnection *connection, const char *sender,
                                            std::string &out)
{
    SSO_LOG_START();
    // How long the bus may take to name the sender's pid.
    constexpr int kPidTimeoutMs = 1000;
    pid_t pid = 0;
    if (connection == nullptr || sender == nullptr ||
        !connection->PeerPid(sender, kPidTimeoutMs, pid)) {
        SSO_LOGY("Failed to get the process id of [%s]", sender != nullptr ? sender : "(null)");
        return false;
    }
    out = "obj" + std::to_string(static_cast<long>(pid));
    SSO_LOG_END_F("objectPid = %s", out.c_str());
    return true;
}

bool SSOAPIUtil::IsCallerProcessValid(CSSOBusConnection *connection, const char *sender,
                                      GVariant *parameters)
{
    SSO_LOG_START();
    std::string callerObjPid;
    if (!m_GetCallerObjectProcessId(connection, sender, callerObjPid)) {
        SSO_LOGE("Failed to m_GetCallerObjProcessId()");
        return false;
    }
    return IsCallerObjectPidInParameters(callerObjPid, parameters);
}

bool SSOAPIUtil::IsCallerObjectPidInParameters(const std::string &callerObjPid,
                                               GVariant *parameters)
{
    // The first parameter must be a string; anything else is treated as
    // missing rather than handed to g_variant_dup_string, which would only
    // complain and return null.
    sso_glib::CharPtr objName;
    if (parameters != nullptr && g_variant_is_container(parameters) &&
        g_variant_n_children(parameters) > 0) {
        sso_glib::VariantPtr child(g_variant_get_child_value(parameters, 0));
        if (child != nullptr && g_variant_is_of_type(child.get(), G_VARIANT_TYPE_STRING))
            objName.reset(g_variant_dup_string(child.get(), nullptr));
    }
    if (objName == nullptr) {
        SSO_LOGE("pChildValue is null");
        return false;
    }
    SSO_LOGY("pChildValue [%s]", objName.get());
    SSO_LOGY("callerObjPid(%s) vs. dbusParamObjName(%s)", callerObjPid.c_str(), objName.get());

    // A substring test on purpose: the peer's "obj<pid>" must appear somewhere
    // in the object name it sent.
    bool valid = strstr(objName.get(), callerObjPid.c_str()) != nullptr;
    if (!valid) {
        SSO_LOGE("INVALID Not found!");
        return false;
    }
    SSO_LOG_END_F("Caller process is valid");
    return true;
}

void SSOAPIUtil::SplitParam(const std::string &text, const std::string &delimiter,
                            std::vector<std::string> &out)
{
    out.clear();
    if (delimiter.empty()) {
        out.push_back(text);
        return;
    }
    size_t start = 0;
    size_t pos;
    while ((pos = text.find(delimiter, start)) != std::string::npos) {
        out.push_back(text.substr(start, pos - start));
        start = pos + delimiter.size();
    }
    out.push_back(text.substr(start));
}

void SSOAPIUtil::PrintActiveAccountInfo(const sso_accounts_info &info)
{
    bool devel = sso_log_detail::IsDevelMode();
    const char *hidden = "<hidden>";
    // A line that shows an identifying value carries the debug marker.
    const char *tag = devel ? "[DEVEL] " : "";
    SSO_LOGY("strLoginID [%s]", info.strLoginID.c_str());
    SSO_LOGY("%sstrLoginGUID [%s]", tag, devel ? info.strLoginGUID.c_str() : hidden);
    SSO_LOGY("%sstrLoginUID [%s]", tag, devel ? info.strLoginUID.c_str() : hidden);
    SSO_LOGY("strUserPinSet [%s]", info.strUserPinSet.c_str());
    SSO_LOGY("userCountryCode [%s]", info.userCountryCode.c_str());
    SSO_LOGY("displayName [%s]", info.displayName.c_str());
    SSO_LOGY("%suserDeviceID [%s]", tag, devel ? info.userDeviceID.c_str() : hidden);
    SSO_LOGY("strUserIconPath [%s]", info.strUserIconPath.c_str());
}

std::string SSOAPIUtil::ConvertEnforceLoginTypeToString(int type)
{
    switch (type) {
    case 0:
        return "IENUM_COMSS_ENFORCE_LOGIN_UNDECIDED";
    case 1:
        return "IENUM_COMSS_ENFORCE_LOGIN_Y";
    case 2:
        return "IENUM_COMSS_ENFORCE_LOGIN_N";
    default:
        return "UNKNOWN_ENFORCE_LOGIN_TYPE";
    }
}
