// Feature flags in process: set, get and unset round trips, a flag that is
// not set failing without touching the output, bad keys and arguments,
// malformed files, and every read seeing the file as it is now.
#include <sys/stat.h>
#include <system_info.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

#include "sso_test_harness.h"
#include "test_files.h"

namespace {

constexpr const char *kKey = "com.veltra/featureconf/account.signin_mandatory";

class SystemInfo : public ssotest::RootTest {
protected:
    std::string FlagFile(const std::string &encoded_name) const
    {
        return root_.path() + "/features/" + encoded_name;
    }
    std::string KeyFile() const
    {
        return FlagFile("com.veltra%2Ffeatureconf%2Faccount.signin_mandatory");
    }
    void WriteRaw(const std::string &path, const std::string &bytes) const
    {
        mkdir((root_.path() + "/features").c_str(), 0755);
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    }
};

TEST_F(SystemInfo, SetThenGetGivesTheValue)
{
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(kKey, true));
    bool value = false;
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    EXPECT_TRUE(value);

    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(kKey, false));
    value = true;
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    EXPECT_FALSE(value);
}

TEST_F(SystemInfo, FlagsAreStoredOneFileAKeyPercentEncoded)
{
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(kKey, true));
    EXPECT_EQ("true\n", ssotest::ReadWholeFile(KeyFile()));
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(kKey, false));
    EXPECT_EQ("false\n", ssotest::ReadWholeFile(KeyFile()));
}

TEST_F(SystemInfo, KeysAreIndependent)
{
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool("a/b", true));
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool("a%2Fb", false));
    bool a = false, b = true;
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool("a/b", &a));
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool("a%2Fb", &b));
    EXPECT_TRUE(a);
    EXPECT_FALSE(b);
}

TEST_F(SystemInfo, AFlagThatIsNotSetFailsAndLeavesTheValue)
{
    bool value = true;
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_get_custom_bool(kKey, &value));
    EXPECT_TRUE(value);
    value = false;
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_get_custom_bool(kKey, &value));
    EXPECT_FALSE(value);
}

TEST_F(SystemInfo, UnsetRemovesTheFlag)
{
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(kKey, true));
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_unset_custom(kKey));
    bool value = false;
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_get_custom_bool(kKey, &value));
    EXPECT_FALSE(value);
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_unset_custom(kKey));
}

TEST_F(SystemInfo, EveryCallReadsTheFileAfresh)
{
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(kKey, true));
    bool value = false;
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    ASSERT_TRUE(value);
    // Another writer changes the file behind the library's back.
    WriteRaw(KeyFile(), "false");
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    EXPECT_FALSE(value);
    unlink(KeyFile().c_str());
    EXPECT_EQ(SYSTEM_INFO_ERROR_NOT_SUPPORTED, system_info_get_custom_bool(kKey, &value));
}

TEST_F(SystemInfo, HandWrittenFilesWithOrWithoutANewlineRead)
{
    bool value = false;
    WriteRaw(KeyFile(), "true");
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    EXPECT_TRUE(value);
    WriteRaw(KeyFile(), "false\n");
    ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(kKey, &value));
    EXPECT_FALSE(value);
}

TEST_F(SystemInfo, MalformedFilesFailWithIoErrorAndLeaveTheValue)
{
    const std::string bad[] = {"",
                               "\n",
                               "yes",
                               "TRUE",
                               "1",
                               "true\n\n",
                               " true",
                               "true ",
                               "falsey",
                               std::string(100, 'x'),
                               std::string("tr\0ue", 5)};
    for (const std::string &content : bad) {
        WriteRaw(KeyFile(), content);
        bool value = true;
        EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_get_custom_bool(kKey, &value))
            << "content '" << content << "'";
        EXPECT_TRUE(value);
        value = false;
        EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_get_custom_bool(kKey, &value));
        EXPECT_FALSE(value);
    }
}

TEST_F(SystemInfo, ADirectoryInPlaceOfTheFlagIsAnIoError)
{
    mkdir((root_.path() + "/features").c_str(), 0755);
    ASSERT_EQ(0, mkdir(KeyFile().c_str(), 0755));
    bool value = true;
    EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_get_custom_bool(kKey, &value));
    EXPECT_TRUE(value);
    EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_unset_custom(kKey));
}

TEST_F(SystemInfo, AnUnusableStoreFailsWithIoError)
{
    // A regular file where the store directory belongs (works as root too).
    std::ofstream(root_.path() + "/features") << "not a directory";
    bool value = true;
    EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_get_custom_bool(kKey, &value));
    EXPECT_TRUE(value);
    EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_set_custom_bool(kKey, true));
    EXPECT_EQ(SYSTEM_INFO_ERROR_IO_ERROR, system_info_unset_custom(kKey));
}

TEST_F(SystemInfo, BadArgumentsAreRejected)
{
    bool value = true;
    EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER, system_info_get_custom_bool(nullptr, &value));
    EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER, system_info_get_custom_bool(kKey, nullptr));
    EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER, system_info_set_custom_bool(nullptr, true));
    EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER, system_info_unset_custom(nullptr));
    const std::string bad_keys[] = {
        "",
        "line\nbreak",
        "tab\there",
        std::string("del\x7f", 4),
        std::string(256, 'k'),
        std::string(100, '/'), // 300 bytes once encoded
    };
    for (const std::string &key : bad_keys) {
        EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER,
                  system_info_get_custom_bool(key.c_str(), &value))
            << key.size();
        EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER,
                  system_info_set_custom_bool(key.c_str(), true));
        EXPECT_EQ(SYSTEM_INFO_ERROR_INVALID_PARAMETER, system_info_unset_custom(key.c_str()));
    }
    EXPECT_TRUE(value);
}

TEST_F(SystemInfo, LongestKeysAndOddBytesWork)
{
    const std::string keys[] = {std::string(247, 'k'), ".hidden", "with space/and%percent",
                                "utf8 \xc3\xa9\xe2\x82\xac"};
    for (const std::string &key : keys) {
        ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_set_custom_bool(key.c_str(), true)) << key;
        bool value = false;
        ASSERT_EQ(SYSTEM_INFO_ERROR_NONE, system_info_get_custom_bool(key.c_str(), &value));
        EXPECT_TRUE(value);
    }
    // No file name starts with '.', which would hide it among temporaries.
    EXPECT_EQ(0, access(FlagFile("%2Ehidden").c_str(), F_OK));
}

} // namespace
