// Who the library is running in: process id, executable, application id and
// the per-process object name under which the process is known on D-Bus; the
// sender check of incoming D-Bus calls; the client-alive flag; small text and
// file helpers. All static and stateless apart from the alive flag.
#pragma once

#include <gio/gio.h>
#include <pthread.h>

#include <string>
#include <vector>

#include "sso_accounts_info.h"

class CSSOBusConnection;

class SSOAPIUtil {
public:
    // getpid(), or -1.
    static int GetProcessId();
    // The executable path of a process (/proc/<pid>/exe), or "unknown".
    static std::string GetProcessName(int processId);
    // The application id: the platform's answer when the process is an
    // application (whatever processId says), else derived from the command
    // line of processId (below 1: this process), else "unknown".
    static std::string GetAppId(int processId);
    // "obj" + pid + "_" + GetAppId(pid).
    static std::string GetObjectName(int processId);
    // Existence test of a device path (/etc/debug and the like).
    static bool DoesFileExist(std::string path);

    // "obj<pid>" of the peer that sent a D-Bus message: the bus's answer,
    // remembered by the connection per unique name (a unique name is never
    // given to another peer), so only a sender's first call costs a question.
    static bool m_GetCallerObjectProcessId(CSSOBusConnection *connection, const char *sender,
                                           std::string &out);
    // Accepts an incoming call when the sender's "obj<pid>" occurs anywhere
    // in the call's first (string) parameter. Runs for every call.
    static bool IsCallerProcessValid(CSSOBusConnection *connection, const char *sender,
                                     GVariant *parameters);
    // The second half of that check, for a caller whose "obj<pid>" is known.
    static bool IsCallerObjectPidInParameters(const std::string &callerObjPid,
                                              GVariant *parameters);

    // Splits at every delimiter; always one more piece than delimiters, empty
    // pieces kept.
    static void SplitParam(const std::string &text, const std::string &delimiter,
                           std::vector<std::string> &out);

    // Derives the application id from the first command-line argument: from
    // the first "org" up to the next "/", else the text after the last "/".
    static std::string DeriveAppIdFromCommandLine(const std::string &argument);
    // The application id from a raw /proc/<pid>/cmdline read of size bytes
    // (size > 0): a final line feed is dropped, the first argument counts.
    static std::string AppIdFromCmdline(char *buffer, size_t size);

    // The name of an enforce-login setting value.
    static std::string ConvertEnforceLoginTypeToString(int type);

    // Logs the active account; identifying values only with the debug marker,
    // the auth token and the raw document never.
    static void PrintActiveAccountInfo(const sso_accounts_info &info);

    // The client-alive flag: true from library load until the start of unload.
    static void SetClientToAlive();
    static void SetClientToTerminated();
    static bool IsClientAlive();
    // In a fork() child: the flag's lock may have been held by a thread that
    // the child does not have.
    static void ResetClientAliveLockAfterFork();

private:
    static bool m_bClientAlive;                // guarded by m_mutexClientAlive
    static pthread_mutex_t m_mutexClientAlive; // leaf lock
};
