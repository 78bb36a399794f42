// Running one of the build's command-line tools (sso-platform, ssoctl,
// sso-simulator...) to completion as a child process, with its exit status,
// stdout and stderr apart, and what it reads on stdin.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sso_test_harness.h"
#include "test_files.h"

namespace ssotest {

struct ToolResult {
    int status = -1; // exit status, -1 on time-out
    std::string out;
    std::string err;
};

// Runs "<tool> ARGS..." from the build tree. stdin is /dev/null unless input
// is given. The harness collects stdout only, so a shell in front sends
// stderr (and takes stdin) through temporary files and then becomes the tool.
inline ToolResult RunTool(const std::string &tool, const std::vector<std::string> &args,
                          std::map<std::string, std::string> env = {},
                          const std::optional<std::string> &input = std::nullopt,
                          std::chrono::milliseconds timeout = std::chrono::seconds(30))
{
    const std::string err_path = MakeTempFile("sso-tool-err-");
    if (err_path.empty())
        return {};
    std::string in_path = "/dev/null";
    if (input) {
        in_path = MakeTempFile("sso-tool-in-");
        if (in_path.empty()) {
            unlink(err_path.c_str());
            return {};
        }
        WriteWholeFile(in_path, *input);
    }
    std::vector<std::string> argv = {
        "/bin/sh", "-c", "exec \"$0\" \"$@\" <\"$SSO_TEST_STDIN\" 2>\"$SSO_TEST_STDERR\"",
        ToolPath(tool)};
    argv.insert(argv.end(), args.begin(), args.end());
    env["SSO_TEST_STDERR"] = err_path;
    env["SSO_TEST_STDIN"] = in_path;
    CommandResult r = RunCommand(argv, env, timeout);
    ToolResult result{r.status, r.out, ReadWholeFile(err_path)};
    unlink(err_path.c_str());
    if (input)
        unlink(in_path.c_str());
    return result;
}

// Whether a tool's output (or any text) contains needle.
inline bool Has(const std::string &text, const std::string &needle)
{
    return text.find(needle) != std::string::npos;
}

// sso-platform, the platform's admin tool, which most platform tests drive.
using CliResult = ToolResult;
inline CliResult RunCli(const std::vector<std::string> &args,
                        std::map<std::string, std::string> env = {})
{
    return RunTool("sso-platform", args, std::move(env));
}

// Checks the help of one sso-platform command group: "<group> --help" names
// every command and shows examples (example among them), each "<group>
// <command> --help" gives its usage and an example, and the top-level help
// names the group.
inline void ExpectGroupHelp(const std::string &group, const std::vector<std::string> &commands,
                            const std::string &example)
{
    CliResult help = RunCli({group, "--help"});
    ASSERT_EQ(0, help.status);
    std::vector<std::string> needles = commands;
    needles.push_back("Examples:");
    needles.push_back(example);
    for (const std::string &needle : needles)
        EXPECT_NE(std::string::npos, help.out.find(needle)) << needle;
    for (const std::string &command : commands) {
        CliResult r = RunCli({group, command, "--help"});
        EXPECT_EQ(0, r.status) << command;
        EXPECT_NE(std::string::npos, r.out.find("Usage: sso-platform " + group)) << command;
        EXPECT_NE(std::string::npos, r.out.find("Example")) << command;
    }
    CliResult top = RunCli({"--help"});
    EXPECT_NE(std::string::npos, top.out.find(group)) << top.out;
}

} // namespace ssotest
