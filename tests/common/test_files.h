// Files as tests see them: read and written whole, byte for byte, and fresh
// temporary names under $TMPDIR.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace ssotest {

// The whole file; empty when it is missing or unreadable (tests compare the
// text, so a missing file shows as a mismatch, not a throw).
inline std::string ReadWholeFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return {};
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

inline void WriteWholeFile(const std::string &path, const std::string &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// Flips the bits of mask in the byte at offset, in place (damage a test
// does to a stored file). False when the file has no such byte.
inline bool FlipBits(const std::string &path, long offset, unsigned char mask)
{
    std::string bytes = ReadWholeFile(path);
    if (offset < 0 || static_cast<size_t>(offset) >= bytes.size())
        return false;
    bytes[static_cast<size_t>(offset)] =
        static_cast<char>(bytes[static_cast<size_t>(offset)] ^ mask);
    WriteWholeFile(path, bytes);
    return true;
}

// A new empty file named $TMPDIR/<prefix>XXXXXX (or under /tmp); the caller
// removes it. Empty, with a test failure, when none can be made.
inline std::string MakeTempFile(const std::string &prefix)
{
    const char *tmpdir = std::getenv("TMPDIR");
    std::string templ = std::string(tmpdir && *tmpdir ? tmpdir : "/tmp") + "/" + prefix + "XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    int fd = mkstemp(buf.data());
    if (fd < 0) {
        ADD_FAILURE() << "mkstemp failed for " << templ;
        return {};
    }
    close(fd);
    return buf.data();
}

} // namespace ssotest
