// sso-platform ss against the library across processes: items put by the
// tool read back in process under the deployment credential and the other
// way round, contents pass through stdin, files and stdout byte for byte, and
// the tool's exit codes, messages and help.
#include <ss_manager.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "run_tool.h"
#include "sso_deployment.h"
#include "sso_test_harness.h"
#include "storage_test_util.h"

namespace {

using sstest::Credential;
using sstest::ReadWholeFile;
using sstest::WriteWholeFile;

using ssotest::CliResult;

// Runs sso-platform with stdin from the given bytes (or /dev/null).
CliResult RunSs(const std::vector<std::string> &args,
                const std::optional<std::string> &input = std::nullopt)
{
    return ssotest::RunTool("sso-platform", args, {}, input);
}

ss_credential_t DeploymentCredential()
{
    return Credential(SSO_DEPLOY_SS_MODULE_ID, SSO_DEPLOY_SS_UUID_WORD0, SSO_DEPLOY_SS_UUID_WORD1);
}

int LibRead(const std::string &id, const ss_credential_t &cred, std::string *out)
{
    unsigned char *buffer = nullptr;
    size_t length = 0;
    int rc = ss_read(&buffer, &length, nullptr, nullptr, id.c_str(), &cred, SS_FLAG_READ);
    if (rc == SS_ERROR_NONE) {
        out->assign(reinterpret_cast<char *>(buffer), length);
        ss_free_buffer(buffer);
    }
    return rc;
}

int LibWrite(const std::string &id, const std::string &data, const ss_credential_t &cred)
{
    return ss_write(id.c_str(), reinterpret_cast<const unsigned char *>(data.data()), data.size(),
                    &cred, 0);
}

std::string BinaryBytes()
{
    std::string s("\0leading NUL, \xff\xfe high bytes,\r\n and no final newline\0", 49);
    for (int i = 0; i < 256; ++i)
        s.push_back(static_cast<char>(i));
    return s;
}

class SsCli : public ssotest::StorageTest {};

// ---- contents through the tool ----

TEST_F(SsCli, PutFromStdinThenGetPrintsTheExactBytes)
{
    const std::string bytes = BinaryBytes();
    CliResult put = RunSs({"ss", "put", "sso/accounts"}, bytes);
    ASSERT_EQ(0, put.status) << put.err;
    EXPECT_EQ("", put.out);
    EXPECT_EQ("", put.err);
    CliResult get = RunSs({"ss", "get", "sso/accounts"});
    ASSERT_EQ(0, get.status) << get.err;
    EXPECT_TRUE(get.out == bytes);
    EXPECT_EQ("", get.err);
}

TEST_F(SsCli, PutFromADashReadsStdin)
{
    CliResult put = RunSs({"ss", "put", "item", "-"}, "from stdin");
    ASSERT_EQ(0, put.status) << put.err;
    EXPECT_EQ("from stdin", RunSs({"ss", "get", "item"}).out);
}

TEST_F(SsCli, PutFromAFileStoresItsBytes)
{
    const std::string path = root_.path() + "/input.bin";
    WriteWholeFile(path, BinaryBytes());
    CliResult put = RunSs({"ss", "put", "item", path});
    ASSERT_EQ(0, put.status) << put.err;
    EXPECT_TRUE(RunSs({"ss", "get", "item"}).out == BinaryBytes());
}

TEST_F(SsCli, AnEmptyInputStoresAnEmptyItem)
{
    ASSERT_EQ(0, RunSs({"ss", "put", "item"}, "").status);
    CliResult get = RunSs({"ss", "get", "item"});
    EXPECT_EQ(0, get.status) << get.err;
    EXPECT_EQ("", get.out);
}

TEST_F(SsCli, ItemsPutByTheToolReadInProcessUnderTheDeploymentCredential)
{
    ASSERT_EQ(0, RunSs({"ss", "put", "sso/accounts"}, "{\"accounts\":[]}").status);
    std::string data;
    ASSERT_EQ(SS_ERROR_NONE, LibRead("sso/accounts", DeploymentCredential(), &data));
    EXPECT_EQ("{\"accounts\":[]}", data);
}

TEST_F(SsCli, ItemsWrittenInProcessGetThroughTheTool)
{
    ASSERT_EQ(SS_ERROR_NONE,
              LibWrite("sso/accounts", "written in process", DeploymentCredential()));
    CliResult get = RunSs({"ss", "get", "sso/accounts"});
    ASSERT_EQ(0, get.status) << get.err;
    EXPECT_EQ("written in process", get.out);
}

TEST_F(SsCli, TheCredentialOptionsSelectAnotherCredential)
{
    ASSERT_EQ(0, RunSs({"ss", "put", "item", "--module-id", "0x1234", "--uuid",
                        "00112233445566778899aabbccddeeff"},
                       "foreign")
                     .status);
    std::string data;
    EXPECT_EQ(SS_ERROR_AUTHENTICATION, LibRead("item", DeploymentCredential(), &data));
    ASSERT_EQ(
        SS_ERROR_NONE,
        LibRead("item", Credential(0x1234, 0x0011223344556677ull, 0x8899aabbccddeeffull), &data));
    EXPECT_EQ("foreign", data);
    // The hyphenated form names the same identifier.
    CliResult get = RunSs({"ss", "get", "item", "--module-id=4660", "--uuid",
                           "00112233-4455-6677-8899-AABBCCDDEEFF"});
    EXPECT_EQ(0, get.status) << get.err;
    EXPECT_EQ("foreign", get.out);
}

TEST_F(SsCli, RmRemovesTheItem)
{
    ASSERT_EQ(0, RunSs({"ss", "put", "item"}, "x").status);
    CliResult rm = RunSs({"ss", "rm", "item"});
    EXPECT_EQ(0, rm.status) << rm.err;
    EXPECT_EQ("", rm.out);
    std::string data;
    EXPECT_EQ(SS_ERROR_NO_ITEM, LibRead("item", DeploymentCredential(), &data));
}

// ---- failures: status 1 ----

struct FailureCase {
    const char *name;
    std::vector<std::string> args;
    const char *message; // part of the one stderr line
};

void PrintTo(const FailureCase &c, std::ostream *os)
{
    *os << c.name;
}

class SsCliFailure : public SsCli, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(SsCliFailure, ExitsWithOneAndOneMessageOnStderr)
{
    ASSERT_EQ(SS_ERROR_NONE, LibWrite("present", "SECRET-content", DeploymentCredential()));
    CliResult r = RunSs(GetParam().args, "SECRET-input");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(0u, r.err.rfind("sso-platform: ", 0)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find(GetParam().message)) << r.err;
    EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
    EXPECT_EQ(std::string::npos, r.err.find("SECRET")) << r.err;
}

INSTANTIATE_TEST_SUITE_P(
    Runtime, SsCliFailure,
    ::testing::Values(
        FailureCase{"GetMissing", {"ss", "get", "absent"}, "does not exist"},
        FailureCase{"RmMissing", {"ss", "rm", "absent"}, "does not exist"},
        FailureCase{
            "GetForeignModule", {"ss", "get", "present", "--module-id", "7"}, "authentication"},
        FailureCase{"GetForeignUuid",
                    {"ss", "get", "present", "--uuid", "ffffffffffffffffffffffffffffffff"},
                    "authentication"},
        FailureCase{
            "PutFromMissingFile", {"ss", "put", "item", "/nonexistent/input"}, "cannot open"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(SsCli, ATamperedItemFailsGetWithOne)
{
    ASSERT_EQ(0, RunSs({"ss", "put", "item"}, "contents").status);
    const std::string path = root_.path() + "/secure-storage/items/item";
    std::string file = ReadWholeFile(path);
    ASSERT_FALSE(file.empty());
    file.back() = static_cast<char>(file.back() ^ 0x10);
    WriteWholeFile(path, file);
    CliResult r = RunSs({"ss", "get", "item"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("authentication")) << r.err;
}

TEST_F(SsCli, AStoreBlockedByARegularFileFailsPutWithOne)
{
    ASSERT_EQ(
        0, ssotest::RunCommand({"/bin/rm", "-rf", root_.path() + "/secure-storage/items"}).status);
    WriteWholeFile(root_.path() + "/secure-storage/items", "not a directory");
    CliResult r = RunSs({"ss", "put", "item"}, "x");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(0u, r.err.rfind("sso-platform: ", 0)) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("not accessible")) << r.err;
}

TEST_F(SsCli, WithoutAStorageServiceEveryCommandFailsWithOne)
{
    root_.StopStorage();
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"ss", "get", "item"}, {"ss", "rm", "item"}}) {
        CliResult r = RunSs(args);
        EXPECT_EQ(1, r.status);
        EXPECT_NE(std::string::npos,
                  r.err.find("the storage service (sso-storaged) does not answer"))
            << r.err;
        EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
    }
}

TEST_F(SsCli, AnotherUserIsRefusedWithOne)
{
    if (!ssotest::CanSwitchUsers())
        GTEST_SKIP() << "playing other users needs root";
    ASSERT_EQ(0, RunSs({"ss", "put", "item"}, "the service's").status);
    const std::string tool = ssotest::ToolPath("sso-platform");
    ssotest::ChildProcess child = ssotest::ForkAs({70500, 70500, {}}, [tool] {
        // stderr joins stdout, the one the harness reads.
        dup2(1, 2);
        setenv("SSO_PLATFORM_LOG", "none", 1);
        execl(tool.c_str(), tool.c_str(), "ss", "get", "item", static_cast<char *>(nullptr));
        return 127;
    });
    EXPECT_EQ(1, child.Wait());
    const std::string err = child.ReadStdout();
    EXPECT_NE(std::string::npos, err.find("item 'item': access denied to uid 70500")) << err;
    EXPECT_EQ(std::string::npos, err.find("the service's")) << err;
}

// ---- bad usage: status 2 ----

struct UsageCase {
    const char *name;
    std::vector<std::string> args;
};

void PrintTo(const UsageCase &c, std::ostream *os)
{
    *os << c.name;
}

class SsCliUsage : public SsCli, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(SsCliUsage, ExitsWithTwoAndTouchesNothing)
{
    CliResult r = RunSs(GetParam().args, "x");
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ(0u, r.err.rfind("sso-platform: ", 0)) << r.err;
    struct stat st;
    EXPECT_NE(0, stat((root_.path() + "/secure-storage/items/item").c_str(), &st));
}

INSTANTIATE_TEST_SUITE_P(
    Usage, SsCliUsage,
    ::testing::Values(
        UsageCase{"NoCommand", {"ss"}}, UsageCase{"UnknownCommand", {"ss", "list"}},
        UsageCase{"PutWithoutItem", {"ss", "put"}}, UsageCase{"GetWithoutItem", {"ss", "get"}},
        UsageCase{"RmWithoutItem", {"ss", "rm"}},
        UsageCase{"PutTooManyArguments", {"ss", "put", "item", "a", "b"}},
        UsageCase{"GetTooManyArguments", {"ss", "get", "item", "extra"}},
        UsageCase{"UnknownOption", {"ss", "put", "item", "--force"}},
        UsageCase{"EmptyItemId", {"ss", "put", ""}},
        UsageCase{"ControlCharacterInItemId", {"ss", "put", "it\tem"}},
        UsageCase{"ItemIdTooLong", {"ss", "put", std::string(256, 'i')}},
        UsageCase{"ModuleIdNotANumber", {"ss", "put", "item", "--module-id", "abc"}},
        UsageCase{"ModuleIdTooLarge", {"ss", "put", "item", "--module-id", "0x100000000"}},
        UsageCase{"ModuleIdNegative", {"ss", "put", "item", "--module-id=-1"}},
        UsageCase{"UuidTooShort", {"ss", "put", "item", "--uuid", "0011"}},
        UsageCase{"UuidNotHex",
                  {"ss", "put", "item", "--uuid", "0011223344556677889900aabbccddzz"}},
        UsageCase{"ModuleIdWithoutValue", {"ss", "put", "item", "--module-id"}}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- help ----

struct HelpCase {
    const char *name;
    std::vector<std::string> args;
    const char *mentions;
};

void PrintTo(const HelpCase &c, std::ostream *os)
{
    *os << c.name;
}

class SsCliHelp : public SsCli, public ::testing::WithParamInterface<HelpCase> {};

TEST_P(SsCliHelp, PrintsUsageAndExamplesAndExitsWithZero)
{
    CliResult r = RunSs(GetParam().args);
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ(0u, r.out.rfind("Usage: sso-platform", 0)) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("Example")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(GetParam().mentions)) << r.out;
}

INSTANTIATE_TEST_SUITE_P(Levels, SsCliHelp,
                         ::testing::Values(HelpCase{"Tool", {"--help"}, "ss put"},
                                           HelpCase{"Group", {"ss", "--help"}, "rm"},
                                           HelpCase{"Put", {"ss", "put", "--help"}, "--module-id"},
                                           HelpCase{"Get", {"ss", "get", "-h"}, "--uuid"},
                                           HelpCase{"Rm", {"ss", "rm", "--help"}, "ITEM_ID"},
                                           HelpCase{"HelpWinsOverBadArguments",
                                                    {"ss", "put", "--bogus", "--help"},
                                                    "stdin"}),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- secrets ----

TEST_F(SsCli, ItemContentsNeverReachThePlatformLogOrStderr)
{
    const std::string secret = "SECRET-7b3e-refresh-token";
    CliResult put = RunSs({"ss", "put", "sso/token"}, secret);
    ASSERT_EQ(0, put.status) << put.err;
    CliResult get = RunSs({"ss", "get", "sso/token"});
    ASSERT_EQ(0, get.status) << get.err;
    EXPECT_EQ(secret, get.out);
    CliResult foreign = RunSs({"ss", "get", "sso/token", "--module-id", "1"});
    EXPECT_EQ(1, foreign.status);
    EXPECT_EQ(0, RunSs({"ss", "rm", "sso/token"}).status);

    for (const CliResult *r : {&put, &get, &foreign})
        EXPECT_EQ(std::string::npos, r->err.find("SECRET")) << r->err;
    EXPECT_FALSE(log().Contains("SECRET"));
}

} // namespace
