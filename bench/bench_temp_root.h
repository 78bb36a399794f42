// A private platform root for one benchmark run: SSO_PLATFORM_ROOT names it
// while it lives, and it is removed afterwards. Header-only, for the platform
// benchmarks that link none of the test harness.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace ssobench {

class TempRoot {
public:
    // prefix: the directory's name before the random part, under TMPDIR.
    explicit TempRoot(const char *prefix)
    {
        const char *tmp = std::getenv("TMPDIR");
        std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + "XXXXXX";
        std::vector<char> buf(templ.begin(), templ.end());
        buf.push_back('\0');
        if (mkdtemp(buf.data()))
            path_ = buf.data();
        if (!path_.empty())
            setenv("SSO_PLATFORM_ROOT", path_.c_str(), 1);
    }
    ~TempRoot()
    {
        if (path_.empty())
            return;
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
        unsetenv("SSO_PLATFORM_ROOT");
    }
    TempRoot(const TempRoot &) = delete;
    TempRoot &operator=(const TempRoot &) = delete;

    bool ok() const { return !path_.empty(); }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

} // namespace ssobench
