// Special files in place of what the platform reads (a FIFO nobody writes, a
// character device), found through the platform's own API, and reads run in
// a child process with a deadline, so that a read that blocks fails a test
// instead of hanging it.
#pragma once

#include <errno.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <ostream>
#include <set>
#include <string>

#include "sso_test_harness.h"

namespace specialfiles {

// A read that blocks would never end; one that is refused ends at once.
constexpr std::chrono::milliseconds kPrompt(5000);

// Fifo: made with mkfifo, nobody writes it. Device: a link to /dev/zero,
// which reads forever.
enum class Kind { Fifo, Device };

inline void PrintTo(Kind kind, std::ostream *os)
{
    *os << (kind == Kind::Fifo ? "Fifo" : "Device");
}

// How the platform's log line calls it.
inline const char *KindText(Kind kind)
{
    return kind == Kind::Fifo ? "a FIFO" : "a character device";
}

// Puts a special file of this kind at path (which must not exist).
inline void MakeSpecial(Kind kind, const std::string &path)
{
    if (kind == Kind::Fifo)
        ASSERT_EQ(mkfifo(path.c_str(), 0644), 0) << path << ": " << strerror(errno);
    else
        ASSERT_EQ(symlink("/dev/zero", path.c_str()), 0) << path << ": " << strerror(errno);
}

// Replaces the file at path by a special file.
inline void ReplaceBySpecial(Kind kind, const std::string &path)
{
    ASSERT_EQ(unlink(path.c_str()), 0) << path << ": " << strerror(errno);
    MakeSpecial(kind, path);
}

namespace detail {
inline std::set<std::string> *&Collected()
{
    static std::set<std::string> *files = nullptr;
    return files;
}
inline int AddFile(const char *path, const struct stat *st, int, struct FTW *)
{
    if (S_ISREG(st->st_mode))
        Collected()->insert(path);
    return 0;
}
} // namespace detail

// The regular files under dir, the platform log excepted.
inline std::set<std::string> Files(const std::string &dir)
{
    std::set<std::string> files;
    detail::Collected() = &files;
    nftw(dir.c_str(), detail::AddFile, 16, FTW_PHYS);
    detail::Collected() = nullptr;
    files.erase(dir + "/log.txt");
    return files;
}

// The one regular file that make (a call of the platform's API) created
// under root; "" when it made none or several.
inline std::string FileMadeBy(ssotest::PlatformRoot &root, const std::function<void()> &make)
{
    auto before = Files(root.path());
    make();
    std::string made;
    for (const auto &f : Files(root.path()))
        if (before.count(f) == 0) {
            if (!made.empty())
                return "";
            made = f;
        }
    return made;
}

// What fn returned in a child process, and whether the child ended within
// kPrompt (it is killed otherwise).
struct ChildResult {
    bool ended = false;
    int value = 0;
    pid_t pid = -1;
};

inline ChildResult RunInChild(const std::function<int()> &fn)
{
    ssotest::ChildProcess child = ssotest::ChildProcess::Fork([&] {
        printf("value %d\n", fn());
        fflush(stdout);
        return 0;
    });
    ChildResult r;
    r.pid = child.pid();
    r.ended = child.Wait(kPrompt) == 0;
    std::string out = child.ReadStdout(std::chrono::milliseconds(100));
    size_t at = out.find("value ");
    if (at != std::string::npos)
        r.value = atoi(out.c_str() + at + 6);
    else
        r.ended = false;
    return r;
}

} // namespace specialfiles
