// sso-platform as a whole: global options anywhere on the line, --json with
// the same values as the text, a clear failure when the platform root is
// missing, feature listing, and the log viewer (filters, colours, follow) on
// lines the platform's own log library wrote.
#include <dlog.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vconf.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <map>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "app_control_test_util.h"
#include "json_text.h"
#include "sso_test_harness.h"
#include "test_files.h"

namespace {

using apptest::CliResult;
using apptest::RunCli;
using ssotest::Has;
using ssotest::ParseJson;

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class PlatformCli : public ssotest::RootTest {};

TEST_F(PlatformCli, GlobalOptionsWorkAnywhereBeforeDoubleDash)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("db/sso/login_status", 1));
    const std::string root = root_.path();
    const std::string expected = "{\"key\":\"db/sso/login_status\",\"type\":\"int\",\"value\":1}\n";
    const std::map<std::string, std::string> elsewhere = {{"SSO_PLATFORM_ROOT", "/nonexistent"}};
    for (const std::vector<std::string> &args : {
             std::vector<std::string>{"--root", root, "--json", "vconf", "get",
                                      "db/sso/login_status"},
             std::vector<std::string>{"vconf", "--json", "get", "db/sso/login_status", "--root",
                                      root},
             std::vector<std::string>{"vconf", "get", "db/sso/login_status", "--root=" + root,
                                      "--json"},
         }) {
        CliResult r = RunCli(args, elsewhere);
        EXPECT_EQ(0, r.status) << r.err;
        EXPECT_EQ(expected, r.out);
    }
    // After "--" the words are arguments: a string value "--json".
    CliResult set = RunCli({"vconf", "set", "db/x", "--type", "string", "--", "--json"});
    ASSERT_EQ(0, set.status) << set.err;
    EXPECT_EQ("--json\n", RunCli({"vconf", "get", "db/x"}).out);
}

TEST_F(PlatformCli, VersionAndHelpWorkAfterTheCommandToo)
{
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"--version"}, std::vector<std::string>{"vconf", "--version"},
          std::vector<std::string>{"vconf", "get", "k", "--version"}}) {
        CliResult r = RunCli(args);
        EXPECT_EQ(0, r.status) << r.err;
        EXPECT_EQ(0u, r.out.rfind("sso-platform ", 0)) << r.out;
    }
    CliResult help = RunCli({"log", "--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_TRUE(Has(help.out, "--follow")) << help.out;
}

TEST_F(PlatformCli, VconfGetJsonSaysWhatTheTextSays)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("db/i", -7));
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/b", 1));
    ASSERT_EQ(VCONF_OK, vconf_set_str("db/s", "Jamie \xC3\xA9 \"quoted\""));
    struct Case {
        const char *key, *type, *text;
        Json::Value value;
    };
    for (const Case &c :
         {Case{"db/i", "int", "-7\n", -7}, Case{"db/b", "bool", "true\n", true},
          Case{"db/s", "string", "Jamie \xC3\xA9 \"quoted\"\n", "Jamie \xC3\xA9 \"quoted\""}}) {
        EXPECT_EQ(c.text, RunCli({"vconf", "get", c.key}).out);
        CliResult r = RunCli({"vconf", "get", c.key, "--json"});
        ASSERT_EQ(0, r.status) << r.err;
        const Json::Value doc = ParseJson(r.out);
        EXPECT_EQ(c.key, doc["key"].asString());
        EXPECT_EQ(c.type, doc["type"].asString());
        EXPECT_EQ(c.value, doc["value"]);
    }
    // UTF-8 as it is, not escaped.
    EXPECT_TRUE(Has(RunCli({"vconf", "get", "db/s", "--json"}).out, "\xC3\xA9"));
    CliResult missing = RunCli({"vconf", "get", "db/none", "--json"});
    EXPECT_EQ(1, missing.status);
    EXPECT_EQ("", missing.out);
}

TEST_F(PlatformCli, VconfWatchJsonPrintsOneDocumentPerChange)
{
    ssotest::ChildProcess watcher = ssotest::ChildProcess::Spawn(
        {ssotest::ToolPath("sso-platform"), "--json", "vconf", "watch", "db/a"});
    ASSERT_TRUE(watcher.WaitForOutput("{\"watching\":[\"db/a\"]}\n")) << watcher.output();
    ASSERT_EQ(VCONF_OK, vconf_set_int("db/a", 5));
    ASSERT_TRUE(watcher.WaitForOutput("{\"key\":\"db/a\",\"type\":\"int\",\"value\":5}\n"))
        << watcher.output();
    ASSERT_EQ(VCONF_OK, vconf_unset("db/a"));
    ASSERT_TRUE(watcher.WaitForOutput("{\"key\":\"db/a\",\"type\":null,\"value\":null}\n"))
        << watcher.output();
    watcher.Kill(SIGTERM);
    EXPECT_EQ(0, watcher.Wait());
}

TEST_F(PlatformCli, AMissingPlatformRootFailsAndSaysWhatToDo)
{
    const std::string gone = root_.path() + "/not-made";
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"vconf", "get", "db/sso/login_status"},
          std::vector<std::string>{"vconf", "set", "k", "1", "--type", "int"},
          std::vector<std::string>{"feature", "list"}, std::vector<std::string>{"app", "list"}}) {
        std::vector<std::string> argv = {"--root", gone};
        argv.insert(argv.end(), args.begin(), args.end());
        CliResult r = RunCli(argv);
        EXPECT_EQ(1, r.status) << args[0];
        EXPECT_TRUE(
            Has(r.err, "the platform root " + gone + " is not accessible: it does not exist"))
            << r.err;
        EXPECT_TRUE(Has(r.err, "mkdir -p " + gone)) << r.err;
    }
    struct stat st;
    EXPECT_NE(0, stat(gone.c_str(), &st)) << "a write created the mistyped root";
    // A file where the root should be.
    std::ofstream(root_.path() + "/a-file") << "x";
    CliResult r = RunCli({"--root", root_.path() + "/a-file", "vconf", "get", "k"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "is not a directory")) << r.err;
    // Help needs no root.
    EXPECT_EQ(0, RunCli({"--root", gone, "vconf", "get", "--help"}).status);
}

TEST_F(PlatformCli, FeatureListShowsEveryFlagAndMarksMalformedOnes)
{
    EXPECT_EQ("", RunCli({"feature", "list"}).out);
    EXPECT_EQ("{\"features\":[]}\n", RunCli({"feature", "list", "--json"}).out);
    ASSERT_EQ(0, RunCli({"feature", "set", "com.veltra/featureconf/b", "true"}).status);
    ASSERT_EQ(0, RunCli({"feature", "set", "com.veltra/featureconf/a", "false"}).status);
    // c's file is the one that setting it adds; spoilt, it is listed as
    // neither true nor false.
    const std::string dir = root_.path() + "/features";
    const auto before = Lines(ssotest::RunCommand({"/bin/ls", dir}).out);
    ASSERT_EQ(0, RunCli({"feature", "set", "com.veltra/featureconf/c", "true"}).status);
    for (const auto &name : Lines(ssotest::RunCommand({"/bin/ls", dir}).out))
        if (std::find(before.begin(), before.end(), name) == before.end())
            std::ofstream(dir + "/" + name, std::ios::trunc) << "maybe";
    CliResult text = RunCli({"feature", "list"});
    ASSERT_EQ(0, text.status) << text.err;
    EXPECT_EQ("com.veltra/featureconf/a\tfalse\ncom.veltra/featureconf/b\ttrue\n"
              "com.veltra/featureconf/c\t-\n",
              text.out);
    const Json::Value doc = ParseJson(RunCli({"feature", "list", "--json"}).out);
    ASSERT_EQ(3u, doc["features"].size());
    EXPECT_EQ("com.veltra/featureconf/a", doc["features"][0]["key"].asString());
    EXPECT_EQ(Json::Value(false), doc["features"][0]["value"]);
    EXPECT_EQ(Json::Value(true), doc["features"][1]["value"]);
    EXPECT_TRUE(doc["features"][2]["value"].isNull());
    EXPECT_EQ("{\"key\":\"com.veltra/featureconf/b\",\"value\":true}\n",
              RunCli({"feature", "get", "com.veltra/featureconf/b", "--json"}).out);
}

TEST_F(PlatformCli, AppListJsonNamesIdAndProgram)
{
    const std::string program = root_.path() + "/ui";
    std::ofstream(program) << "#!/bin/sh\nexit 0\n";
    chmod(program.c_str(), 0755);
    ASSERT_EQ(0, RunCli({"app", "add", "org.example.b", "--exec", program}).status);
    ASSERT_EQ(0, RunCli({"app", "add", "org.example.a", "--exec", program}).status);
    EXPECT_EQ("{\"apps\":[{\"app_id\":\"org.example.a\",\"exec\":\"" + program +
                  "\"},{\"app_id\":\"org.example.b\",\"exec\":\"" + program + "\"}]}\n",
              RunCli({"--json", "app", "list"}).out);
}

TEST_F(PlatformCli, SsGetJsonCarriesAnyBytesInBase64)
{
    root_.StartStorage();
    const std::string file = root_.path() + "/bytes";
    std::ofstream(file, std::ios::binary) << std::string("a\0b\xff", 4);
    ASSERT_EQ(0, RunCli({"ss", "put", "app/blob", file}).status);
    CliResult r = RunCli({"ss", "get", "app/blob", "--json"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("{\"base64\":\"YQBi/w==\",\"item\":\"app/blob\",\"size\":4}\n", r.out);
}

TEST_F(PlatformCli, PkgShowJsonListsAppsAndCertificates)
{
    ASSERT_EQ(0, RunCli({"pkg", "add", "org.example.pkg", "--app", "org.example.b", "--app",
                         "org.example.a"})
                     .status);
    CliResult text = RunCli({"pkg", "show", "org.example.pkg"});
    CliResult r = RunCli({"pkg", "show", "org.example.pkg", "--json"});
    ASSERT_EQ(0, r.status) << r.err;
    const Json::Value doc = ParseJson(r.out);
    EXPECT_EQ("org.example.pkg", doc["package"].asString());
    ASSERT_EQ(2u, doc["apps"].size()) << r.out;
    for (const Json::Value &app : doc["apps"])
        EXPECT_TRUE(Has(text.out, "app\t" + app.asString() + "\n")) << text.out;
    EXPECT_EQ(Json::Value(Json::arrayValue), doc["certs"]);
    EXPECT_EQ(70000u, doc["uid"].asUInt()) << r.out;
    EXPECT_TRUE(Has(text.out, "uid\t70000\n")) << text.out;
}

// ---------------------------------------------------------------- the log

class PlatformLog : public ssotest::RootTest {
protected:
    void SetUp() override
    {
        ssotest::RootTest::SetUp();
        path_ = root_.path() + "/platform.log";
        Use(path_);
    }
    void TearDown() override
    {
        setenv("SSO_PLATFORM_LOG", ("file:" + root_.log_path()).c_str(), 1);
        dlog_reload_config();
    }
    // This process logs to path from now on, as every platform library does.
    static void Use(const std::string &path)
    {
        setenv("SSO_PLATFORM_LOG", ("file:" + path).c_str(), 1);
        setenv("SSO_PLATFORM_LOG_LEVEL", "verbose", 1);
        dlog_reload_config();
    }
    // A line logged by another process; returns its pid.
    pid_t LogFromChild(log_priority prio, const char *tag, const char *text)
    {
        ssotest::ChildProcess child = ssotest::ChildProcess::Fork([=] {
            dlog_print(prio, tag, "%s", text);
            return 0;
        });
        const pid_t pid = child.pid();
        EXPECT_EQ(0, child.Wait());
        return pid;
    }
    std::string path_;
};

TEST_F(PlatformLog, FiltersByTagPriorityAndPid)
{
    dlog_print(DLOG_INFO, "SSOAPIClient", "\x1b[0;35m[START] sso_get_guid\x1b[0m");
    dlog_print(DLOG_WARN, "SSOAPIClient", "\x1b[0;31mno account\x1b[0m");
    dlog_print(DLOG_ERROR, "SSOSimulator", "refused");
    const pid_t other = LogFromChild(DLOG_FATAL, "SSOAPIClient", "from the child");
    const std::string me = std::to_string(getpid());

    CliResult all = RunCli({"log", "--file", path_, "--color", "never"});
    ASSERT_EQ(0, all.status) << all.err;
    const auto lines = Lines(all.out);
    ASSERT_EQ(4u, lines.size()) << all.out;
    EXPECT_TRUE(Has(lines[0], " " + me + " ")) << lines[0];
    EXPECT_TRUE(Has(lines[0], " I/main SSOAPIClient: [START] sso_get_guid")) << lines[0];
    EXPECT_FALSE(Has(all.out, "\x1b[")) << "colour codes are stripped off a pipe";

    EXPECT_EQ(3u, Lines(RunCli({"log", "--file", path_, "--tag", "SSOAPIClient"}).out).size());
    CliResult two_tags = RunCli({"log", "--file", path_, "--tag", "SSOSimulator,Nobody"});
    ASSERT_EQ(1u, Lines(two_tags.out).size()) << two_tags.out;
    EXPECT_TRUE(Has(two_tags.out, "E/main SSOSimulator: refused"));

    CliResult warn = RunCli({"log", "--file", path_, "--priority", "warn"});
    EXPECT_EQ(3u, Lines(warn.out).size()) << warn.out;
    EXPECT_EQ(warn.out, RunCli({"log", "--file", path_, "--priority", "W"}).out);
    CliResult errors =
        RunCli({"log", "--file", path_, "--priority", "error", "--tag", "SSOAPIClient"});
    ASSERT_EQ(1u, Lines(errors.out).size()) << errors.out;
    EXPECT_TRUE(Has(errors.out, "F/main SSOAPIClient: from the child"));

    CliResult by_pid = RunCli({"log", "--file", path_, "--pid", std::to_string(other)});
    ASSERT_EQ(1u, Lines(by_pid.out).size()) << by_pid.out;
    EXPECT_TRUE(Has(by_pid.out, "from the child"));
    EXPECT_EQ(3u, Lines(RunCli({"log", "--file", path_, "--pid", me}).out).size());

    // The stored lines keep their codes.
    EXPECT_TRUE(Has(ssotest::ReadWholeFile(path_), "\x1b[0;35m[START]"));
}

TEST_F(PlatformLog, RendersColoursWhenAskedAndJsonStripsThem)
{
    dlog_print(DLOG_WARN, "SSOAPIClient", "\x1b[0;32mvalue\x1b[0m ok");
    CliResult coloured = RunCli({"log", "--file", path_, "--color", "always"});
    EXPECT_TRUE(Has(coloured.out, "SSOAPIClient: \x1b[0;32mvalue\x1b[0m ok")) << coloured.out;
    CliResult json = RunCli({"--json", "log", "--file", path_, "--color", "always"});
    ASSERT_EQ(0, json.status) << json.err;
    const Json::Value doc = ParseJson(json.out);
    EXPECT_EQ("value ok", doc["message"].asString());
    EXPECT_EQ("warn", doc["priority"].asString());
    EXPECT_EQ("SSOAPIClient", doc["tag"].asString());
    EXPECT_EQ("main", doc["buffer"].asString());
    EXPECT_EQ(Json::Value(static_cast<Json::Int64>(getpid())), doc["pid"]);
    EXPECT_TRUE(doc["tid"].isIntegral());
    EXPECT_EQ(26u, doc["time"].asString().size()) << doc["time"];
}

TEST_F(PlatformLog, ALineFeedInAMessageStaysWithItsEntry)
{
    dlog_print(DLOG_ERROR, "A", "first\nsecond part");
    dlog_print(DLOG_INFO, "B", "other");
    CliResult r = RunCli({"log", "--file", path_, "--tag", "A"});
    const auto lines = Lines(r.out);
    ASSERT_EQ(2u, lines.size()) << r.out;
    EXPECT_EQ("second part", lines[1]);
    CliResult json = RunCli({"log", "--file", path_, "--tag", "A", "--json"});
    const auto docs = Lines(json.out);
    ASSERT_EQ(2u, docs.size()) << json.out;
    const Json::Value rest = ParseJson(docs[1]);
    EXPECT_TRUE(rest["tag"].isNull());
    EXPECT_TRUE(rest["pid"].isNull());
    EXPECT_EQ("second part", rest["message"].asString());
}

TEST_F(PlatformLog, ReadsTheFileThePlatformLogGoesTo)
{
    dlog_print(DLOG_WARN, "T", "hello");
    CliResult r = RunCli({"log"}, {{"SSO_PLATFORM_LOG", "file:" + path_}});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(Has(r.out, "W/main T: hello"));
    for (const char *dest : {"syslog", "stderr", "none"}) {
        CliResult no_file = RunCli({"log"}, {{"SSO_PLATFORM_LOG", dest}});
        EXPECT_EQ(1, no_file.status) << dest;
        EXPECT_TRUE(Has(no_file.err, std::string("goes to ") + dest)) << no_file.err;
        EXPECT_TRUE(Has(no_file.err, "--file")) << no_file.err;
    }
    CliResult missing = RunCli({"log", "--file", root_.path() + "/none.log"});
    EXPECT_EQ(1, missing.status);
    EXPECT_TRUE(Has(missing.err, "none.log")) << missing.err;
    EXPECT_EQ(2, RunCli({"log", "--file", path_, "--priority", "loud"}).status);
    EXPECT_EQ(2, RunCli({"log", "--file", path_, "--pid", "x"}).status);
    EXPECT_EQ(2, RunCli({"log", "--file", path_, "--color", "sometimes"}).status);
}

TEST_F(PlatformLog, FollowShowsNewLinesAndSurvivesTruncationUntilSigterm)
{
    dlog_print(DLOG_INFO, "T", "before");
    ssotest::ChildProcess viewer = ssotest::ChildProcess::Spawn(
        {ssotest::ToolPath("sso-platform"), "log", "--follow", "--file", path_, "--tag", "T"});
    ASSERT_TRUE(viewer.WaitForOutput("T: before\n")) << viewer.output();
    dlog_print(DLOG_INFO, "T", "after");
    dlog_print(DLOG_INFO, "U", "filtered out");
    ASSERT_TRUE(viewer.WaitForOutput("T: after\n")) << viewer.output();
    // Rotated away: a new file under the same name is read from its start.
    ASSERT_EQ(0, rename(path_.c_str(), (path_ + ".1").c_str()));
    Use(path_);
    dlog_print(DLOG_INFO, "T", "new file");
    ASSERT_TRUE(viewer.WaitForOutput("T: new file\n")) << viewer.output();
    // Truncated in place.
    ASSERT_EQ(0, truncate(path_.c_str(), 0));
    dlog_print(DLOG_INFO, "T", "truncated");
    ASSERT_TRUE(viewer.WaitForOutput("T: truncated\n")) << viewer.output();
    viewer.Kill(SIGTERM);
    EXPECT_EQ(0, viewer.Wait());
    EXPECT_FALSE(Has(viewer.output(), "filtered out"));
}

TEST_F(PlatformLog, FollowWaitsForALogNobodyWroteYet)
{
    const std::string later = root_.path() + "/later.log";
    ssotest::ChildProcess viewer = ssotest::ChildProcess::Spawn(
        {ssotest::ToolPath("sso-platform"), "log", "--follow", "--file", later});
    Use(later);
    dlog_print(DLOG_WARN, "T", "first line");
    ASSERT_TRUE(viewer.WaitForOutput("T: first line\n")) << viewer.output();
    viewer.Kill(SIGINT);
    EXPECT_EQ(0, viewer.Wait());
}

} // namespace
