// Concurrent writers in several threads and processes never leave a reader
// with a torn value.
#include <unistd.h>
#include <vconf.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "sso_test_harness.h"
#include "stress_writers.h"

namespace {

constexpr const char *kKey = "db/test/contended";
constexpr int kThreads = 4;
constexpr int kProcesses = 2;
constexpr int kWrites = 150;

// Value number i of writer w: a header naming both, then a filler whose
// length and byte depend on them, so a mix of two values is never valid.
std::string MakeValue(int writer, int i)
{
    std::string head = "w" + std::to_string(writer) + "i" + std::to_string(i) + ":";
    size_t len = 4096 + static_cast<size_t>((writer * 7919 + i * 104729) % 28000);
    return head + std::string(len, static_cast<char>('a' + writer));
}

bool IsAWrittenValue(const std::string &value)
{
    int writer = -1, i = -1;
    if (std::sscanf(value.c_str(), "w%di%d:", &writer, &i) != 2)
        return false;
    return writer >= 0 && i >= 0 && value == MakeValue(writer, i);
}

int WriteAll(int writer)
{
    for (int i = 0; i < kWrites; ++i)
        if (vconf_set_str(kKey, MakeValue(writer, i).c_str()) != VCONF_OK)
            return 1;
    return 0;
}

class VconfStress : public ssotest::RootTest {};

TEST_F(VconfStress, ConcurrentWritersNeverLeaveATornValue)
{
    ASSERT_EQ(VCONF_OK, vconf_set_str(kKey, MakeValue(9, 0).c_str()));

    // The processes are forked before any thread exists and wait at a gate
    // (EOF on a pipe) so they write while the threads do.
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    std::vector<ssotest::ChildProcess> children;
    for (int p = 0; p < kProcesses; ++p) {
        int writer = kThreads + p;
        int read_end = gate[0], write_end = gate[1];
        children.push_back(ssotest::ChildProcess::Fork([writer, read_end, write_end] {
            close(write_end);
            char c;
            while (read(read_end, &c, 1) > 0) {
            }
            return WriteAll(writer);
        }));
    }
    close(gate[0]);

    std::atomic<bool> done{false};
    std::atomic<int> reads{0}, torn{0}, missing{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r) {
        readers.emplace_back([&] {
            while (!done.load()) {
                char *s = vconf_get_str(kKey);
                if (!s) {
                    missing++;
                    continue;
                }
                if (!IsAWrittenValue(s))
                    torn++;
                free(s);
                reads++;
            }
        });
    }
    close(gate[1]);
    std::vector<std::thread> writers;
    std::atomic<int> failed_writes{0};
    for (int w = 0; w < kThreads; ++w)
        writers.emplace_back([w, &failed_writes] {
            if (WriteAll(w) != 0)
                failed_writes++;
        });
    ssotest::JoinWriters(writers, children);
    done = true;
    for (auto &t : readers)
        t.join();

    EXPECT_EQ(0, failed_writes.load());
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(0, torn.load());
    EXPECT_EQ(0, missing.load());
    char *last = vconf_get_str(kKey);
    ASSERT_NE(nullptr, last);
    EXPECT_TRUE(IsAWrittenValue(last));
    free(last);
}

TEST_F(VconfStress, ThreadsWritingDistinctKeysAllLand)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                std::string key = "db/test/t" + std::to_string(t) + "/" + std::to_string(i);
                EXPECT_EQ(VCONF_OK, vconf_set_int(key.c_str(), t * 1000 + i));
            }
        });
    }
    for (auto &t : threads)
        t.join();
    for (int t = 0; t < 8; ++t) {
        for (int i = 0; i < 100; ++i) {
            std::string key = "db/test/t" + std::to_string(t) + "/" + std::to_string(i);
            int v = -1;
            ASSERT_EQ(VCONF_OK, vconf_get_int(key.c_str(), &v));
            EXPECT_EQ(t * 1000 + i, v);
        }
    }
}

} // namespace
