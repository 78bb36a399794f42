// `sso-simulator ctl --json`: one document a line, snake_case, null for
// none; the same values as the text; --json accepted wherever the other tools
// accept their global options; clear messages without a bus or a simulator.
#include <json/json.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "json_text.h"
#include "sim_fixture.h"
#include "sso_simulator_harness.h"

namespace {

using simtest::SimTest;
using ssotest::Has;
using ssotest::RunSimulatorCommand;
using ssotest::SimulatorCommandResult;

class SimJson : public SimTest {};
class SimJsonAlone : public ssotest::BusTest {};

// The single JSON document of a command's output (one line).
Json::Value Document(const SimulatorCommandResult &r)
{
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(1, std::count(r.out.begin(), r.out.end(), '\n')) << "not one line: " << r.out;
    return ssotest::ParseJson(r.out);
}

TEST_F(SimJson, JournalListsWhatTheTextListsInOrder)
{
    client_.RequestSimple("sso_check_alive");
    client_.RequestSimple("sso_request_auth_code");
    const auto journal = sim_.Journal();
    ASSERT_EQ(2u, journal.size());
    const Json::Value doc = Document(RunSimulatorCommand({"ctl", "journal", "--json"}));
    ASSERT_EQ(2u, doc["journal"].size());
    for (Json::ArrayIndex i = 0; i < 2; ++i) {
        EXPECT_EQ(journal[i].method, doc["journal"][i]["method"].asString());
        EXPECT_EQ(journal[i].args, doc["journal"][i]["args"].asString());
    }
    ASSERT_EQ(0, RunSimulatorCommand({"ctl", "reset"}).status);
    EXPECT_EQ(Json::Value(Json::arrayValue),
              Document(RunSimulatorCommand({"ctl", "journal", "--json"}))["journal"]);
}

TEST_F(SimJson, DeliveriesNameDestinationMethodAndArgs)
{
    client_.RequestSimple("sso_request_auth_code");
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    const auto d = sim_.Deliveries().at(0);
    const Json::Value doc = Document(RunSimulatorCommand({"ctl", "deliveries", "--json"}));
    ASSERT_EQ(1u, doc["deliveries"].size());
    EXPECT_EQ(d.destination, doc["deliveries"][0]["destination"].asString());
    EXPECT_EQ(d.method, doc["deliveries"][0]["method"].asString());
    EXPECT_EQ(d.args, doc["deliveries"][0]["args"].asString());
}

TEST_F(SimJson, TalliesAreNumbersThatMatchTheText)
{
    ASSERT_EQ(0,
              RunSimulatorCommand({"ctl", "configure", "sso_request_access_token", "--accept", "0"})
                  .status);
    client_.RequestSimple("sso_request_auth_code");
    client_.RequestSimple("sso_request_access_token");
    ASSERT_TRUE(sim_.WaitForDeliveries(1));
    const SimulatorCommandResult text = RunSimulatorCommand({"ctl", "tallies"});
    const Json::Value doc = Document(RunSimulatorCommand({"ctl", "tallies", "--json"}));
    ASSERT_EQ(1u, doc["tallies"].size()) << text.out;
    const Json::Value &t = doc["tallies"][0];
    ASSERT_TRUE(t["accepted"].isUInt64());
    EXPECT_EQ(1u, t["accepted"].asUInt64());
    EXPECT_EQ(1u, t["refused"].asUInt64());
    EXPECT_EQ(1u, t["delivered"].asUInt64());
    EXPECT_EQ(0u, t["dropped"].asUInt64());
    EXPECT_EQ(t["object_name"].asString() + " accepted 1 refused 1 delivered 1 dropped 0\n",
              text.out);
}

TEST_F(SimJson, StateIsNullWhenNobodyIsSignedIn)
{
    const Json::Value doc = Document(RunSimulatorCommand({"ctl", "state", "--json"}));
    EXPECT_TRUE(doc["signed_in"].isNull()) << doc;
    EXPECT_TRUE(doc["version"].isInt()) << doc;
    const SimulatorCommandResult text = RunSimulatorCommand({"ctl", "state"});
    EXPECT_EQ("signed_in: -\nversion: " + doc["version"].asString() + "\n", text.out);
}

TEST_F(SimJson, AccountAddAndObjectNameAreObjects)
{
    const Json::Value added = Document(
        RunSimulatorCommand({"ctl", "account", "add", "--login-id", "kim@example.com", "--json"}));
    ASSERT_TRUE(added["guid"].isString());
    EXPECT_EQ(32u, added["guid"].asString().size());
    const Json::Value accounts = Document(RunSimulatorCommand({"ctl", "accounts", "--json"}));
    EXPECT_EQ(added["guid"], accounts["accounts"][0]["guid"]);
    EXPECT_TRUE(accounts["active"].isNull());
    EXPECT_TRUE(accounts["accounts"][0]["icon_path"].isNull()) << "none is null, not \"\"";
    EXPECT_EQ(
        sim_.ObjectName(),
        Document(RunSimulatorCommand({"ctl", "object-name", "--json"}))["object_name"].asString());
}

TEST_F(SimJson, JsonIsAcceptedBeforeCtlAfterItAndAfterTheCommand)
{
    ASSERT_EQ(0,
              RunSimulatorCommand({"ctl", "account", "add", "--login-id", "a@example.com"}).status);
    const std::string expected = RunSimulatorCommand({"ctl", "accounts", "--json"}).out;
    ASSERT_FALSE(expected.empty());
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"--json", "ctl", "accounts"},
          std::vector<std::string>{"ctl", "--json", "accounts"}}) {
        SimulatorCommandResult r = RunSimulatorCommand(args);
        EXPECT_EQ(0, r.status) << r.err;
        EXPECT_EQ(expected, r.out) << args[0] << " " << args[1];
    }
    // After "--" it is an argument: the account "--json" does not exist.
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "sign-in", "--", "--json"});
    EXPECT_EQ(1, r.status) << r.out;
    // And it means nothing to the daemon.
    r = RunSimulatorCommand({"--json", "run"});
    EXPECT_EQ(2, r.status);
    EXPECT_TRUE(Has(r.err, "--json goes with the ctl commands")) << r.err;
}

TEST_F(SimJsonAlone, VersionIsAcceptedAnywhereAsInTheOtherTools)
{
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"--version"}, std::vector<std::string>{"ctl", "--version"},
          std::vector<std::string>{"ctl", "journal", "--version"}}) {
        SimulatorCommandResult r = RunSimulatorCommand(args);
        EXPECT_EQ(0, r.status) << r.err;
        EXPECT_EQ(0u, r.out.rfind("sso-simulator ", 0)) << r.out;
    }
}

TEST_F(SimJson, CommandsThatPrintNothingPrintNothingWithJson)
{
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "--json", "reset"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out);
}

TEST_F(SimJsonAlone, WithoutASimulatorItSaysSoAndHowToStartOne)
{
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "journal", "--json"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_TRUE(Has(r.err, "no simulator is running")) << r.err;
    EXPECT_TRUE(Has(r.err, "sso-simulator run")) << r.err;
}

TEST_F(SimJsonAlone, WithoutABusItNamesTheAddressItTried)
{
    SimulatorCommandResult r = RunSimulatorCommand(
        {"ctl", "state"},
        {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + root_.path() + "/no-bus-here"}});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "no system bus at unix:path=" + root_.path() + "/no-bus-here")) << r.err;
    EXPECT_TRUE(Has(r.err, "sso-sim-session")) << r.err;
}

} // namespace
