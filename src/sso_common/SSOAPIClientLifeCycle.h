// Brackets the library's life in a process: constructed at library load (the
// first static of the exported-API module), destroyed at unload or exit.
#pragma once

#include <chrono>
#include <string>

class SSOAPIClientLifeCycle {
public:
    // Called by the destructor once the blocked callers have left and before
    // the library's objects go: the layer above drops what it installed (the
    // settings watches) here. Must not throw.
    using UnloadHook = void (*)();

    // Marks the client alive and records the application id. onUnload may
    // be null.
    explicit SSOAPIClientLifeCycle(UnloadHook onUnload = nullptr);
    // Marks the client terminated first, so that every other thread sees the
    // library as dead before anything goes away, releases the callers that
    // wait in the library, then removes the library's process-wide objects.
    // Never throws.
    virtual ~SSOAPIClientLifeCycle();

    SSOAPIClientLifeCycle(const SSOAPIClientLifeCycle &) = delete;
    SSOAPIClientLifeCycle &operator=(const SSOAPIClientLifeCycle &) = delete;

    const std::string &appId() const { return m_appId; }

private:
    std::string m_appId;
    UnloadHook m_onUnload;
};

// Open while an application thread may block inside the library: a call to
// the service, the link set-up. The unload waits until none is open, so a
// caller still finds the library's code when its wait ends.
class SSOAPIBusyScope {
public:
    SSOAPIBusyScope();
    ~SSOAPIBusyScope();
    SSOAPIBusyScope(const SSOAPIBusyScope &) = delete;
    SSOAPIBusyScope &operator=(const SSOAPIBusyScope &) = delete;

    // Calls release (which must not block), then waits a little for the
    // scopes to close, over and over until none is open or the time is up.
    // False on time-out.
    static bool WaitUntilNoneOpen(void (*release)(), std::chrono::milliseconds timeout);
};
