// The application id derived from a process's command line, fed the bytes
// GetAppId would read from /proc/<pid>/cmdline: at most 1023 bytes in a
// zeroed 1024-byte buffer. The id must come from the first argument only:
// from its first "org" up to the next "/" when it has one, else the part
// after its last "/".
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "SSOAPIUtil.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ssofuzz::SetUpPlatform();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    char cmdline[1024] = {0};
    size_t length = size < sizeof(cmdline) - 1 ? size : sizeof(cmdline) - 1;
    if (length == 0)
        return 0;
    memcpy(cmdline, data, length);

    // What the first argument is, worked out independently.
    std::string raw(cmdline, length);
    if (raw.back() == '\n')
        raw.pop_back();
    std::string first = raw.substr(0, raw.find('\0'));

    std::string appId = SSOAPIUtil::AppIdFromCmdline(cmdline, length);
    if (appId.find('/') != std::string::npos)
        ssofuzz::Fail("the id holds a slash", appId);
    if (appId.find('\0') != std::string::npos)
        ssofuzz::Fail("the id holds a NUL byte");

    size_t org = first.find("org");
    if (org != std::string::npos) {
        if (first.compare(org, appId.size(), appId) != 0 || appId.compare(0, 3, "org") != 0)
            ssofuzz::Fail("the id does not start at the first \"org\"", appId);
        size_t end = org + appId.size();
        if (end != first.size() && first[end] != '/')
            ssofuzz::Fail("the id stops before the next slash", appId);
    } else {
        size_t slash = first.rfind('/');
        std::string last = slash == std::string::npos ? first : first.substr(slash + 1);
        if (appId != last)
            ssofuzz::Fail("the id is not the part after the last slash", appId);
    }
    if (appId != SSOAPIUtil::DeriveAppIdFromCommandLine(first))
        ssofuzz::Fail("the buffer and the argument give different ids", appId);
    return 0;
}
