// `sso-simulator ctl` and the help of every level: output, exit codes.
#include <string>
#include <vector>

#include "sim_fixture.h"
#include "sso_simulator_harness.h"

namespace {

using simtest::SimTest;
using ssotest::Has;
using ssotest::RunSimulatorCommand;
using ssotest::SimulatorCommandResult;

class SimCli : public SimTest {};
class SimCliAlone : public ssotest::BusTest {};

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

TEST_F(SimCli, ConfigureScriptsTheNextAnswerAndResult)
{
    SimulatorCommandResult r =
        RunSimulatorCommand({"ctl", "configure", "sso_request_access_token", "--result", "3",
                             "--payload", "AT-from-cli", "--accept=1"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out);
    EXPECT_EQ(1, client_.RequestSimple("sso_request_access_token").Int());
    ASSERT_TRUE(client_.WaitForCalls(1));
    const auto call = client_.Calls().at(0);
    EXPECT_EQ(3, simtest::Int32Arg(call, "result"));
    EXPECT_EQ("AT-from-cli", simtest::StringArg(call, "access_token"));
}

TEST_F(SimCli, ConfigureTakesEveryOption)
{
    SimulatorCommandResult r = RunSimulatorCommand(
        {"ctl", "configure", "sso_check_alive", "--accept", "-2", "--result", "0", "--payload", "",
         "--answer-delay", "0", "--result-delay", "0", "--drop", "--error", "", "--no-answer"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(client_.RequestSimple("sso_check_alive", 200).timed_out);
    ASSERT_EQ(0, RunSimulatorCommand({"ctl", "reset", "sso_check_alive"}).status);
    ASSERT_EQ(
        0, RunSimulatorCommand({"ctl", "configure", "sso_check_alive", "--accept", "-2"}).status);
    EXPECT_EQ(-2, client_.RequestSimple("sso_check_alive").Int());
    ASSERT_EQ(0,
              RunSimulatorCommand({"ctl", "configure", "*", "--error", "org.orvex.tv.Error.Down"})
                  .status);
    EXPECT_EQ("org.orvex.tv.Error.Down", client_.RequestSimple("sso_reset").error_name);
}

TEST_F(SimCli, JournalPrintsMethodAndArgsOneALine)
{
    client_.RequestSimple("sso_check_alive");
    client_.RequestSimple("sso_request_auth_code");
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "journal"});
    ASSERT_EQ(0, r.status) << r.err;
    const auto lines = Lines(r.out);
    const auto journal = sim_.Journal();
    ASSERT_EQ(2u, lines.size()) << r.out;
    EXPECT_EQ("sso_check_alive " + journal[0].args, lines[0]);
    EXPECT_EQ("sso_request_auth_code " + journal[1].args, lines[1]);
}

TEST_F(SimCli, DeliveriesPrintDestinationMethodAndArgs)
{
    client_.RequestSimple("sso_request_auth_code");
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "deliveries"});
    ASSERT_EQ(0, r.status) << r.err;
    const auto d = sim_.Deliveries().at(0);
    EXPECT_EQ(d.destination + " " + d.method + " " + d.args + "\n", r.out);
}

TEST_F(SimCli, ResetClearsTheJournal)
{
    client_.RequestSimple("sso_check_alive");
    ASSERT_EQ(0, RunSimulatorCommand({"ctl", "reset"}).status);
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_EQ("", RunSimulatorCommand({"ctl", "journal"}).out);
}

TEST_F(SimCli, EmitReachesASubscriber)
{
    ASSERT_EQ(0, RunSimulatorCommand({"ctl", "emit", "AccountChanged", "('user-2',)"}).status);
    ASSERT_EQ(0, RunSimulatorCommand({"ctl", "emit", "Ping"}).status);
    ASSERT_TRUE(client_.WaitForSignals(2));
    EXPECT_EQ("AccountChanged", client_.Signals()[0].member);
    EXPECT_EQ("('user-2',)", client_.Signals()[0].text);
    EXPECT_EQ("()", client_.Signals()[1].text);
}

TEST_F(SimCli, CallClientSucceedsOrExits1WithTheClientsError)
{
    SimulatorCommandResult ok = RunSimulatorCommand(
        {"ctl", "call-client", client_.bus_name(), "sso_request_auth_code",
         "('obj1_x', int64 1, int64 2, 'AC-x', 0, int64 3, 0, 'sso_request_auth_code')"});
    EXPECT_EQ(0, ok.status) << ok.err;
    EXPECT_EQ(1u, client_.Calls().size());
    SimulatorCommandResult bad =
        RunSimulatorCommand({"ctl", "call-client", client_.bus_name(), "sso_nope", "()"});
    EXPECT_EQ(1, bad.status);
    EXPECT_TRUE(Has(bad.err, "UnknownMethod")) << bad.err;
}

TEST_F(SimCli, ObjectNameAndQuit)
{
    SimulatorCommandResult name = RunSimulatorCommand({"ctl", "object-name"});
    EXPECT_EQ(0, name.status);
    EXPECT_EQ(sim_.ObjectName() + "\n", name.out);
    EXPECT_EQ(0, RunSimulatorCommand({"ctl", "quit"}).status);
    ASSERT_TRUE(ssotest::WaitUntil([&] { return !sim_.running(); }));
    EXPECT_EQ(0, sim_.exit_status());
}

TEST_F(SimCli, AnUnknownMethodIsARuntimeFailure)
{
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "configure", "sso_nope"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "InvalidArgs")) << r.err;
    EXPECT_TRUE(Has(r.err, "sso_nope")) << r.err;
}

TEST_F(SimCli, BadUsageExits2WithAHint)
{
    const std::vector<std::vector<std::string>> cases = {
        {"bogus"},
        {"run", "extra"},
        {"ctl"},
        {"ctl", "bogus"},
        {"ctl", "configure"},
        {"ctl", "configure", "a", "b"},
        {"ctl", "configure", "sso_check_alive", "--accept"},
        {"ctl", "configure", "sso_check_alive", "--accept", "one"},
        {"ctl", "configure", "sso_check_alive", "--accept", "99999999999"},
        {"ctl", "configure", "sso_check_alive", "--answer-delay", "-1"},
        {"ctl", "configure", "sso_check_alive", "--drop=yes"},
        {"ctl", "configure", "sso_check_alive", "--bogus"},
        {"ctl", "journal", "extra"},
        {"ctl", "reset", "a", "b"},
        {"ctl", "emit"},
        {"ctl", "call-client", "a", "b"},
        {"ctl", "quit", "--force"},
    };
    ssotest::ExpectUsageErrors(cases);
    // Nothing reached the simulator, and it still runs.
    EXPECT_TRUE(sim_.Journal().empty());
    EXPECT_TRUE(sim_.running());
}

TEST_F(SimCli, HelpAtEveryLevelShowsUsageAndExamples)
{
    const std::vector<std::vector<std::string>> cases = {
        {"--help"},
        {"-h"},
        {"run", "--help"},
        {"ctl", "--help"},
        {"ctl", "configure", "--help"},
        {"ctl", "configure", "sso_check_alive", "--accept", "1", "-h"},
        {"ctl", "reset", "--help"},
        {"ctl", "journal", "--help"},
        {"ctl", "deliveries", "--help"},
        {"ctl", "emit", "--help"},
        {"ctl", "call-client", "--help"},
        {"ctl", "object-name", "--help"},
        {"ctl", "quit", "--help"},
    };
    for (const auto &args : cases) {
        SimulatorCommandResult r = RunSimulatorCommand(args);
        EXPECT_EQ(0, r.status) << args.back();
        EXPECT_TRUE(Has(r.out, "Usage:")) << args.back() << "\n" << r.out;
        EXPECT_TRUE(Has(r.out, "Example")) << args.back() << "\n" << r.out;
    }
    // Help never acts: the simulator still runs after "ctl quit --help".
    EXPECT_TRUE(sim_.running());
}

TEST_F(SimCliAlone, CtlWithoutARunningSimulatorExits1)
{
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"ctl", "journal"},
          std::vector<std::string>{"ctl", "configure", "sso_check_alive", "--accept", "0"},
          std::vector<std::string>{"ctl", "quit"}}) {
        SimulatorCommandResult r = RunSimulatorCommand(args);
        EXPECT_EQ(1, r.status) << args[1];
        EXPECT_TRUE(Has(r.err, "no simulator is running")) << r.err;
    }
}

TEST_F(SimCliAlone, CtlWithoutABusExits1)
{
    SimulatorCommandResult r = RunSimulatorCommand(
        {"ctl", "journal"},
        {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + bus_.dir() + "/no-such-socket"}});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "no system bus at unix:path=" + bus_.dir() + "/no-such-socket"))
        << r.err;
}

TEST_F(SimCliAlone, VersionPrintsTheProjectVersion)
{
    SimulatorCommandResult r = RunSimulatorCommand({"--version"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(0u, r.out.find("sso-simulator ")) << r.out;
}

} // namespace
