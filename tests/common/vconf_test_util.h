// Helpers shared by the settings store tests: a GLib main loop on its own
// thread, a recorder of change callbacks, and running the admin CLI with its
// stderr captured.
#pragma once

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vconf.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "loop_thread.h"
#include "records.h"
#include "run_tool.h"
#include "sso_test_harness.h"

namespace vconftest {

using namespace std::chrono_literals;

// The shared loop thread, plus subscriptions made on it that Stop() removes.
class LoopThread : public ssotest::LoopThread {
public:
    ~LoopThread() override { Stop(); }

    // Subscribes on the loop thread; Stop() removes what is still there.
    int Subscribe(const std::string &key, vconf_callback_fn cb, void *user_data)
    {
        int rc = VCONF_ERROR;
        Run([&] { rc = vconf_notify_key_changed(key.c_str(), cb, user_data); });
        if (rc == VCONF_OK)
            subscribed_.emplace_back(key, cb);
        return rc;
    }

    void Stop() override
    {
        for (const auto &s : subscribed_)
            vconf_ignore_key_changed(s.first.c_str(), s.second);
        subscribed_.clear();
        ssotest::LoopThread::Stop();
    }

private:
    std::vector<std::pair<std::string, vconf_callback_fn>> subscribed_;
};

// One delivered change, copied out of the node.
struct Event {
    std::string key;
    int type = -1;
    int ival = -1;
    bool has_str = false;
    std::string sval;
    std::thread::id thread;
};

// Records every callback it receives. Callback<N> are distinct functions, so
// several recorders can watch one key (a key and callback pair is unique).
class Recorder : public ssotest::Records<Event> {
public:
    template <int N = 0> static void Callback(keynode_t *node, void *self)
    {
        static_cast<Recorder *>(self)->Record(node);
    }

    void Record(keynode_t *node)
    {
        Event e;
        e.key = vconf_keynode_get_name(node);
        e.type = vconf_keynode_get_type(node);
        if (e.type == VCONF_TYPE_INT)
            e.ival = vconf_keynode_get_int(node);
        else if (e.type == VCONF_TYPE_BOOL)
            e.ival = vconf_keynode_get_bool(node);
        const char *s = vconf_keynode_get_str(node);
        e.has_str = s != nullptr;
        if (s)
            e.sval = s;
        e.thread = std::this_thread::get_id();
        Add(std::move(e));
    }

    std::vector<Event> Events() const { return All(); }

    std::vector<Event> EventsFor(const std::string &key) const
    {
        std::vector<Event> out;
        for (auto &e : Events())
            if (e.key == key)
                out.push_back(e);
        return out;
    }

    size_t Count(const std::string &key) const
    {
        return CountIf([&](const Event &e) { return e.key == key; });
    }

    bool WaitForCount(const std::string &key, size_t n, std::chrono::milliseconds timeout = 10s)
    {
        return ssotest::WaitUntil([&] { return Count(key) >= n; }, timeout);
    }
};

using ssotest::CliResult;
using ssotest::ReadWholeFile;
using ssotest::RunCli;

// Makes writes into the store fail. Permission bits do not stop root (tests
// run as root in CI), so there a regular file takes the store directory's
// place instead and every mkdir or rename under it fails.
inline void MakeStoreUnwritable(const std::string &root)
{
    if (geteuid() == 0) {
        std::ofstream(root + "/vconf") << "not a directory";
    } else {
        chmod(root.c_str(), 0555);
    }
}

inline bool IsFileError(int rc)
{
    return rc <= VCONF_ERROR_FILE_PERM && rc >= VCONF_ERROR_NOT_SUPPORTED;
}

} // namespace vconftest
