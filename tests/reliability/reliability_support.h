// Shared by the fault tests: what the process holds (threads, open file
// descriptors), timing of blocking calls, and a record of the result
// callbacks an application received.
#pragma once

#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "records.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace reliability {

using Clock = std::chrono::steady_clock;
using Ms = std::chrono::milliseconds;

// Entries of a /proc directory, without "." and "..".
inline std::vector<std::string> ProcEntries(const char *dir)
{
    std::vector<std::string> out;
    DIR *d = opendir(dir);
    if (d == nullptr)
        return out;
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        if (name != "." && name != "..")
            out.push_back(name);
    }
    closedir(d);
    return out;
}

inline int ThreadCount()
{
    return static_cast<int>(ProcEntries("/proc/self/task").size());
}

// Names of the process's threads, for failure messages.
inline std::string ThreadNames()
{
    std::string out;
    for (const auto &tid : ProcEntries("/proc/self/task")) {
        std::ifstream comm("/proc/self/task/" + tid + "/comm");
        std::string name;
        std::getline(comm, name);
        out += tid + ":" + name + " ";
    }
    return out;
}

// The id of the process's thread of that name (the library's monitor thread
// is "SSOProxyMonitor"), or 0 when there is none.
inline long long ThreadIdNamed(const std::string &wanted)
{
    for (const auto &tid : ProcEntries("/proc/self/task")) {
        std::ifstream comm("/proc/self/task/" + tid + "/comm");
        std::string name;
        std::getline(comm, name);
        if (name == wanted)
            return std::stoll(tid);
    }
    return 0;
}

// The signals the thread of that name blocks ("SigBlk" of its status), or
// nothing when no such thread runs.
inline std::optional<unsigned long long> BlockedSignalsOf(const std::string &name)
{
    const long long tid = ThreadIdNamed(name);
    if (tid == 0)
        return std::nullopt;
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    for (std::string line; std::getline(status, line);) {
        unsigned long long mask = 0;
        if (std::sscanf(line.c_str(), "SigBlk: %llx", &mask) == 1)
            return mask;
    }
    return std::nullopt;
}

// Whether @p mask (as BlockedSignalsOf gives it) holds @p sig.
inline bool MaskHolds(unsigned long long mask, int sig)
{
    return (mask >> (sig - 1)) & 1u;
}

// Open descriptors, not counting the one that lists them.
inline int OpenFdCount()
{
    return static_cast<int>(ProcEntries("/proc/self/fd").size()) - 1;
}

// What each descriptor points at, for failure messages.
inline std::string OpenFds()
{
    std::string out;
    for (const auto &fd : ProcEntries("/proc/self/fd")) {
        char target[512] = {0};
        std::string link = "/proc/self/fd/" + fd;
        if (readlink(link.c_str(), target, sizeof(target) - 1) > 0)
            out += fd + "->" + target + " ";
    }
    return out;
}

// Open descriptors by what they are ("socket", "pipe", "anon_inode", "file").
inline std::map<std::string, int> OpenFdKinds()
{
    std::map<std::string, int> kinds;
    for (const auto &fd : ProcEntries("/proc/self/fd")) {
        char target[512] = {0};
        std::string link = "/proc/self/fd/" + fd;
        if (readlink(link.c_str(), target, sizeof(target) - 1) <= 0)
            continue; // the one listing them, closed by now
        std::string t = target;
        std::string kind = t[0] == '/' ? "file" : t.substr(0, t.find(':'));
        ++kinds[kind];
    }
    return kinds;
}

// What the process holds, to compare with later.
struct Holdings {
    int threads = 0;
    std::map<std::string, int> fds;
    static Holdings Now() { return {ThreadCount(), OpenFdKinds()}; }
    // Nothing more of any kind than before. GLib may still be finishing a
    // call of its own when a baseline is taken (a context's eventfd), so
    // fewer is fine; one kind cannot make up for another.
    bool AtMost(const Holdings &before) const
    {
        if (threads > before.threads)
            return false;
        for (const auto &k : fds) {
            auto it = before.fds.find(k.first);
            if (k.second > (it == before.fds.end() ? 0 : it->second))
                return false;
        }
        return true;
    }
};

// The process settles back to what it held before: the counts may lag a
// little behind a thread that is ending or a socket GLib is closing.
inline bool SettlesTo(const Holdings &before, Ms timeout = Ms(5000))
{
    return ssotest::WaitUntil([&] { return Holdings::Now().AtMost(before); }, timeout);
}

template <typename Fn> Ms Timed(Fn &&fn)
{
    auto start = Clock::now();
    fn();
    return std::chrono::duration_cast<Ms>(Clock::now() - start);
}

inline std::string ThreadName()
{
    char name[32] = {0};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

// One result callback as the application saw it.
struct Received {
    void *userData = nullptr;
    int result = 0;
    std::string text;
    std::string thread;
};

// The callbacks of one test. Result callbacks run on the library's thread,
// the test reads on its own.
class ReceivedLog : public ssotest::Records<Received> {
public:
    static ReceivedLog &Get()
    {
        static ReceivedLog log;
        return log;
    }
    void Add(void *userData, int result, const char *text)
    {
        Records::Add({userData, result, text != nullptr ? text : "(null)", ThreadName()});
    }
    int CountFor(const void *userData)
    {
        return static_cast<int>(CountIf([&](const Received &r) { return r.userData == userData; }));
    }
};

// Base run as the application AppId with an empty ReceivedLog. The app id is
// set before Base starts anything: the library reads it when it loads.
template <class Base, const char *AppId> class AppTest : public Base {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", AppId, 1);
        Base::SetUp();
        ReceivedLog::Get().Clear();
    }
};

inline int RecordingCb(void *userData, int result, char *text)
{
    ReceivedLog::Get().Add(userData, result, text);
    return 0;
}

inline std::string PointerText(const void *p)
{
    return std::to_string(static_cast<long long>(reinterpret_cast<intptr_t>(p)));
}

// Whether the simulator sent a result carrying both this user data and this
// payload: a callback got its own request's result, not another's.
inline bool SimulatorSent(ssotest::Simulator &sim, const Received &r)
{
    const std::string ud = "int64 " + PointerText(r.userData);
    const std::string payload = "'" + r.text + "'";
    for (const auto &d : sim.Deliveries())
        if (d.args.find(ud) != std::string::npos && d.args.find(payload) != std::string::npos)
            return true;
    return false;
}

} // namespace reliability
