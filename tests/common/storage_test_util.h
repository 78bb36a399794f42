// Helpers shared by the secure-storage tests: files of the store read,
// written and inspected byte for byte, and credentials.
#pragma once

#include <gtest/gtest.h>
#include <ss_manager.h>
#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "test_files.h"

namespace sstest {

using ssotest::ReadWholeFile;
using ssotest::WriteWholeFile;

// The permission bits of path (not following a link), or (mode_t)-1.
inline mode_t ModeOf(const std::string &path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0)
        return static_cast<mode_t>(-1);
    return st.st_mode & 07777;
}

inline ss_credential_t Credential(uint32_t module_id, uint64_t w0, uint64_t w1)
{
    ss_uuid_t uuid;
    uuid.word[0] = w0;
    uuid.word[1] = w1;
    ss_credential_t c;
    EXPECT_EQ(SS_ERROR_NONE, ss_init_credential(&c, module_id, &uuid, SS_FLAG_INIT));
    return c;
}

} // namespace sstest
