// ssoctl's table of commands held against the public header: every exported
// function is reached by a command and used in ssoctl's sources, every
// command has help with an example, and bad command lines are refused with
// exit status 2 and a usage message before anything is asked of the service.
#include <dirent.h>

#include <cctype>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "SSORequestTable.h"
#include "ssoctl_test_support.h"

namespace {

using namespace ctltest;

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// The exported functions, from the declarations that begin with SSO_API.
std::set<std::string> ExportedFunctions()
{
    std::set<std::string> names;
    std::istringstream in(ReadFile(SSO_API_HEADER));
    std::regex decl(R"(^SSO_API\s+[A-Za-z_][\w\s\*]*?\b([A-Za-z_]\w*)\s*\()");
    std::string line;
    while (std::getline(in, line)) {
        std::smatch m;
        if (std::regex_search(line, m, decl))
            names.insert(m[1]);
    }
    return names;
}

// "command function" pairs of the hidden --list-functions.
std::multimap<std::string, std::string> CommandFunctions()
{
    CtlResult r = RunCtl({"--list-functions"});
    EXPECT_EQ(0, r.status) << Show(r);
    std::multimap<std::string, std::string> pairs;
    std::istringstream in(r.out);
    std::string command, function;
    while (in >> command >> function)
        pairs.emplace(function, command);
    return pairs;
}

// Everything in ssoctl's source directory.
std::string Sources()
{
    std::string all;
    DIR *dir = opendir(SSOCTL_SOURCE_DIR);
    EXPECT_NE(nullptr, dir);
    if (dir == nullptr)
        return all;
    while (dirent *e = readdir(dir)) {
        std::string name = e->d_name;
        if (name.size() > 4 &&
            (name.substr(name.size() - 4) == ".cpp" || name.substr(name.size() - 2) == ".h"))
            all += ReadFile(std::string(SSOCTL_SOURCE_DIR) + "/" + name);
    }
    closedir(dir);
    return all;
}

// Command names from "ssoctl --help": the indented lines under the headings.
std::vector<std::string> HelpCommands()
{
    CtlResult r = RunCtl({"--help"});
    EXPECT_EQ(0, r.status) << Show(r);
    std::vector<std::string> names;
    std::istringstream in(r.out);
    std::string line;
    bool in_commands = false;
    while (std::getline(in, line)) {
        if (line.rfind("Global options", 0) == 0)
            break;
        if (!line.empty() && line.back() == ':')
            in_commands = true;
        else if (in_commands && line.rfind("  ", 0) == 0)
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

class CtlTable : public ssotest::RootTest {};

TEST_F(CtlTable, EveryExportedFunctionIsReachedByACommand)
{
    const std::set<std::string> exported = ExportedFunctions();
    // A sanity floor, so that a broken parse cannot pass vacuously.
    ASSERT_GE(exported.size(), 80u);
    ASSERT_TRUE(exported.count("sso_get_login_state"));
    ASSERT_TRUE(exported.count("get_size_of_sso_login_info_s"));

    const auto pairs = CommandFunctions();
    const std::string sources = Sources();
    for (const std::string &name : exported) {
        EXPECT_TRUE(pairs.count(name)) << name << " is reached by no command";
        // Used in code (called or passed on), not only named in the table's
        // strings.
        EXPECT_TRUE(std::regex_search(sources, std::regex("[^\"\\w]" + name + "[^\"\\w]")))
            << name << " is never used in " << SSOCTL_SOURCE_DIR;
    }
    for (const auto &[function, command] : pairs)
        EXPECT_TRUE(exported.count(function))
            << command << " lists " << function << ", which the header does not export";
}

// The request table's side: every request the library sends for an exported
// function is sent by some command, so a new row without a command fails here.
TEST_F(CtlTable, EveryRequestOfTheTableIsSentByACommand)
{
    const std::set<std::string> exported = ExportedFunctions();
    const auto pairs = CommandFunctions();
    size_t covered = 0;
    for (const SSORequestType &row : sso_requests::kTable) {
        // Internal senders (data reads, the retired partner request) have
        // no function of their own in the header.
        if (exported.count(row.function) == 0)
            continue;
        ++covered;
        EXPECT_TRUE(pairs.count(row.function)) << row.function << " is sent by no command";
    }
    EXPECT_GE(covered, sso_requests::kCount - 3);
}

TEST_F(CtlTable, EveryCommandHasHelpWithAnExample)
{
    const std::vector<std::string> commands = HelpCommands();
    ASSERT_GE(commands.size(), 30u);
    std::set<std::string> listed;
    for (const auto &[function, command] : CommandFunctions())
        listed.insert(command);
    for (const std::string &command : commands) {
        CtlResult r = RunCtl({command, "--help"});
        EXPECT_EQ(0, r.status) << command << "\n" << Show(r);
        EXPECT_TRUE(Contains(r.out, "usage: ssoctl " + command)) << r.out;
        EXPECT_TRUE(std::regex_search(r.out, std::regex("Example: (\\S+=\\S+ )?ssoctl "))) << r.out;
        EXPECT_TRUE(r.err.empty()) << r.err;
        EXPECT_TRUE(listed.count(command)) << command << " reaches no library function";
    }
}

// The names other tools and scripts rely on.
TEST_F(CtlTable, TheDocumentedCommandNamesExist)
{
    const std::vector<std::string> help = HelpCommands();
    const std::set<std::string> commands(help.begin(), help.end());
    for (const char *name : {"status",
                             "token",
                             "auth-code",
                             "logout",
                             "accounts",
                             "watch",
                             "switch",
                             "user-info",
                             "show",
                             "verify-pin",
                             "verify-password",
                             "whitelist-token",
                             "signature-token",
                             "register",
                             "reset-password",
                             "setup-pin",
                             "verify-account",
                             "device-auth-code",
                             "user-auth-code",
                             "token-with-authcode",
                             "family-group",
                             "group-users",
                             "partner-auth",
                             "cp-mapping",
                             "policy",
                             "account",
                             "alive",
                             "reset",
                             "cb-reset"})
        EXPECT_TRUE(commands.count(name)) << name;
}

TEST_F(CtlTable, VersionAndMainHelp)
{
    CtlResult v = RunCtl({"--version"});
    EXPECT_EQ(0, v.status);
    EXPECT_TRUE(std::regex_search(v.out, std::regex("^ssoctl \\d+\\.\\d+")));
    CtlResult h = RunCtl({"--help"});
    EXPECT_TRUE(Contains(h.out, "Exit codes: 0 success, 1 refused or failed, 2 bad usage, 3 timed"))
        << h.out;
    EXPECT_TRUE(Contains(h.out, "--show-secrets")) << h.out;
}

// Bad command lines: exit status 2, nothing on stdout, a message and a
// pointer to the help on stderr.
class CtlBadUsage : public ssotest::RootTest,
                    public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(CtlBadUsage, ExitsTwoWithAUsageMessage)
{
    CtlResult r = RunCtl(GetParam());
    EXPECT_EQ(2, r.status) << Show(r);
    EXPECT_TRUE(r.out.empty()) << Show(r);
    EXPECT_TRUE(Contains(r.err, "ssoctl")) << Show(r);
    EXPECT_TRUE(Contains(r.err, "--help")) << Show(r);
}

// "07_timeout_0_alive": the index and the arguments, readable in ctest.
std::string CaseName(const ::testing::TestParamInfo<std::vector<std::string>> &info)
{
    std::string name = (info.index < 10 ? "0" : "") + std::to_string(info.index);
    for (const std::string &arg : info.param) {
        name += "_";
        for (char c : arg)
            if (std::isalnum(static_cast<unsigned char>(c)))
                name += c;
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, CtlBadUsage,
    ::testing::Values(
        // the command itself
        std::vector<std::string>{}, std::vector<std::string>{"frobnicate"},
        std::vector<std::string>{"--bogus", "status"}, std::vector<std::string>{"status", "extra"},
        std::vector<std::string>{"status", "--app-id", "x"},
        std::vector<std::string>{"--json=yes", "status"},
        // numbers
        std::vector<std::string>{"--timeout", "soon", "alive"},
        std::vector<std::string>{"--timeout", "0", "alive"},
        std::vector<std::string>{"--timeout", "-5", "alive"}, std::vector<std::string>{"--timeout"},
        std::vector<std::string>{"show", "100"}, std::vector<std::string>{"show", "-1"},
        std::vector<std::string>{"show", "one"},
        std::vector<std::string>{"verify-pin", "a", "--pin-type", "99999999999"},
        std::vector<std::string>{"setup-pin", "a", "--pin-type", "bogus"},
        std::vector<std::string>{"token-with-authcode", "--user", "u", "--auth-code", "c",
                                 "--delete-flag", "maybe"},
        // missing or extra arguments and options
        std::vector<std::string>{"token", "--app-id"},
        std::vector<std::string>{"token", "--secret", "k"},
        std::vector<std::string>{"token", "--app-id", "a"}, std::vector<std::string>{"auth-code"},
        std::vector<std::string>{"auth-code", "--app-id", "a", "--password", "p"},
        std::vector<std::string>{"auth-code", "--app-id", "a", "--effortless", "--account", "x"},
        std::vector<std::string>{"user-auth-code", "--app-id", "a", "--challenge", "c",
                                 "--verifier", "v"},
        std::vector<std::string>{"device-auth-code"},
        std::vector<std::string>{"token-with-authcode", "--user", "u"},
        std::vector<std::string>{"token-with-authcode", "--user", "u", "--auth-code", "c",
                                 "--no-notification", "--delete-flag", "yes"},
        std::vector<std::string>{"token-with-password", "--user", "u"},
        std::vector<std::string>{"whitelist-token", "--app-id", "a"},
        std::vector<std::string>{"whitelist-token", "fetch", "--app-id", "a"},
        std::vector<std::string>{"whitelist-token", "request"},
        std::vector<std::string>{"whitelist-token", "request", "--app-id", "a", "--signature", "s"},
        std::vector<std::string>{"whitelist-token", "get", "--app-id", "a", "--scope", "s"},
        std::vector<std::string>{"signature-token", "get", "--app-id", "a", "--package", "p"},
        std::vector<std::string>{"register", "acc"}, std::vector<std::string>{"register"},
        std::vector<std::string>{"verify-password"}, std::vector<std::string>{"reset-password"},
        std::vector<std::string>{"reset-password", "a", "b"},
        std::vector<std::string>{"set-password", "acc"}, std::vector<std::string>{"switch"},
        std::vector<std::string>{"switch", "a", "--guid", "g"},
        std::vector<std::string>{"switch", "a", "--user-token", "t", "--extra", "e"},
        std::vector<std::string>{"account-list", "more"},
        std::vector<std::string>{"user-info", "--v4", "--json-info"},
        std::vector<std::string>{"family-group", "--app-id", "a"},
        std::vector<std::string>{"family-group", "--app-id", "a", "--access-token", "t", "--secret",
                                 "s"},
        std::vector<std::string>{"group-users", "--app-id", "a", "--secret", "s"},
        std::vector<std::string>{"show"}, std::vector<std::string>{"show", "terms", "--data", "x"},
        std::vector<std::string>{"show", "1", "--transparent", "--opaque"},
        std::vector<std::string>{"show", "1", "--data", "x", "--opaque"},
        std::vector<std::string>{"verify-account", "a", "b"},
        std::vector<std::string>{"watch", "--plain", "--multi"},
        std::vector<std::string>{"account", "bogus"}, std::vector<std::string>{"policy", "bogus"},
        std::vector<std::string>{"policy", "popup", "extra"},
        std::vector<std::string>{"partner-auth", "save", "k"},
        std::vector<std::string>{"partner-auth", "fetch", "k"},
        std::vector<std::string>{"cp-mapping", "add", "a"},
        std::vector<std::string>{"cp-mapping", "list", "x"},
        std::vector<std::string>{"cp-mapping", "drop", "a"}),
    CaseName);

TEST_F(CtlTable, UsageMessagesNameTheProblem)
{
    CtlResult unknown = RunCtl({"frobnicate"});
    EXPECT_TRUE(Contains(unknown.err, "unknown command frobnicate")) << unknown.err;
    EXPECT_TRUE(Contains(unknown.err, "Try \"ssoctl --help\".")) << unknown.err;

    CtlResult missing = RunCtl({"token", "--secret", "k"});
    EXPECT_TRUE(Contains(missing.err, "--app-id is required")) << missing.err;
    EXPECT_TRUE(Contains(missing.err, "Try \"ssoctl token --help\".")) << missing.err;

    CtlResult extra = RunCtl({"reset-password", "a", "b"});
    EXPECT_TRUE(Contains(extra.err, "unexpected argument \"b\"")) << extra.err;

    CtlResult number = RunCtl({"--timeout", "soon", "alive"});
    EXPECT_TRUE(Contains(number.err, "\"soon\"")) << number.err;
}

} // namespace
