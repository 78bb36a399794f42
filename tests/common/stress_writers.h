// The end of a stress run with writers in this process and in others.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "sso_test_harness.h"

namespace ssotest {

// Joins the writer threads of this process, then expects every writer
// process to exit 0 within a minute.
inline void JoinWriters(std::vector<std::thread> &threads, std::vector<ChildProcess> &children)
{
    for (auto &t : threads)
        t.join();
    for (auto &child : children)
        EXPECT_EQ(0, child.Wait(std::chrono::seconds(60)));
}

} // namespace ssotest
