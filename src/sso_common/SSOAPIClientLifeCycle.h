// Brackets the library's life in a process: constructed at library load (the
// first static of the exported-API module), destroyed at unload or exit.
#pragma once

#include <string>

class SSOAPIClientLifeCycle {
public:
    // Marks the client alive and records the application id.
    SSOAPIClientLifeCycle();
    // Marks the client terminated first, so that every other thread sees the
    // library as dead before anything goes away, then removes the library's
    // process-wide objects. Never throws.
    virtual ~SSOAPIClientLifeCycle();

    SSOAPIClientLifeCycle(const SSOAPIClientLifeCycle &) = delete;
    SSOAPIClientLifeCycle &operator=(const SSOAPIClientLifeCycle &) = delete;

    const std::string &appId() const { return m_appId; }

private:
    std::string m_appId;
};
