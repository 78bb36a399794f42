// File names the platform makes for keys, app ids, flags and storage items.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "sso_platform_common.h"

namespace {

std::string Encode(const std::string &name)
{
    char out[SSO_PLATFORM_MAX_FILE_NAME + 1];
    if (sso_platform_encode_name(name.c_str(), out) != 0)
        return "<too long>";
    return out;
}

// nullptr stands for "not a canonical name".
std::unique_ptr<char, decltype(&free)> Decode(const std::string &file_name)
{
    return {sso_platform_decode_name(file_name.c_str()), &free};
}

TEST(PlatformNames, PlainBytesStayAsTheyAre)
{
    EXPECT_EQ(Encode("db/sso/login_status"), "db%2Fsso%2Flogin_status");
    EXPECT_EQ(Encode("org.example.app-1_x"), "org.example.app-1_x");
}

TEST(PlatformNames, LeadingDotAndOtherBytesAreEscapedInUpperCaseHex)
{
    EXPECT_EQ(Encode(".hidden.name"), "%2Ehidden.name");
    EXPECT_EQ(Encode("a b%c"), "a%20b%25c");
    EXPECT_EQ(Encode("\xc3\xa9"), "%C3%A9");
}

TEST(PlatformNames, TooLongForTheFileSystemFails)
{
    EXPECT_EQ(Encode(std::string(SSO_PLATFORM_MAX_FILE_NAME, 'a')),
              std::string(SSO_PLATFORM_MAX_FILE_NAME, 'a'));
    EXPECT_EQ(Encode(std::string(SSO_PLATFORM_MAX_FILE_NAME + 1, 'a')), "<too long>");
    // Escapes count three bytes each.
    EXPECT_EQ(Encode(std::string(SSO_PLATFORM_MAX_FILE_NAME / 3 + 1, '/')), "<too long>");
}

TEST(PlatformNames, DecodeInvertsEncode)
{
    for (const std::string name : {"db/sso/login_status", ".x", "a b%c", "\xc3\xa9!", "plain"}) {
        auto decoded = Decode(Encode(name));
        ASSERT_NE(decoded, nullptr) << name;
        EXPECT_EQ(std::string(decoded.get()), name);
    }
}

TEST(PlatformNames, OnlyCanonicalFileNamesDecode)
{
    // Each of these would alias a name another file already stands for, or
    // stands for nothing: a stray file in a store must never be taken for one.
    for (const char *stray : {"%2fsso",  // lower-case hex
                              "%61bc",   // an escaped plain byte
                              ".hidden", // an unescaped leading dot
                              "a%2", "a%", "%G1", "a%00b", "sp ace"}) {
        EXPECT_EQ(Decode(stray), nullptr) << stray;
    }
}

} // namespace
