#include "sso_simulator_harness.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ssotest {

namespace {

// CallClient waits for the client inside the simulator (up to 20 s there).
constexpr int kControlTimeoutMs = 30000;

std::string TakeError(GError *error)
{
    std::string message = error && error->message ? error->message : "unknown error";
    if (error)
        g_error_free(error);
    return message;
}

void AddEntry(GVariantBuilder *dict, const char *key, GVariant *value)
{
    g_variant_builder_add(dict, "{sv}", key, value);
}

GVariant *BehaviourToVariant(const Behaviour &b)
{
    GVariantBuilder dict;
    g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
    if (b.accept)
        AddEntry(&dict, "accept", g_variant_new_int32(*b.accept));
    if (b.result)
        AddEntry(&dict, "result", g_variant_new_int32(*b.result));
    if (b.payloads) {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE_STRING_ARRAY);
        for (const auto &p : *b.payloads)
            g_variant_builder_add(&list, "s", p.c_str());
        AddEntry(&dict, "payloads", g_variant_builder_end(&list));
    }
    if (b.answer_delay_ms)
        AddEntry(&dict, "answer_delay_ms", g_variant_new_uint32(*b.answer_delay_ms));
    if (b.result_delay_ms)
        AddEntry(&dict, "result_delay_ms", g_variant_new_uint32(*b.result_delay_ms));
    if (b.drop_result)
        AddEntry(&dict, "drop_result", g_variant_new_boolean(*b.drop_result));
    if (b.error)
        AddEntry(&dict, "error", g_variant_new_string(b.error->c_str()));
    if (b.no_answer)
        AddEntry(&dict, "no_answer", g_variant_new_boolean(*b.no_answer));
    return g_variant_builder_end(&dict);
}

// Reads the (a(sss)) of GetJournal / GetDeliveries.
std::vector<std::vector<std::string>> Rows(GVariant *reply)
{
    std::vector<std::vector<std::string>> rows;
    GVariantIter *iter = nullptr;
    g_variant_get(reply, "(a(sss))", &iter);
    const gchar *a = nullptr;
    const gchar *b = nullptr;
    const gchar *c = nullptr;
    while (g_variant_iter_next(iter, "(&s&s&s)", &a, &b, &c))
        rows.push_back({a, b, c});
    g_variant_iter_free(iter);
    return rows;
}

// Tests never touch the machine's real system bus: without the private bus
// of a BusTest there is no address, and we refuse rather than fall back.
void RequirePrivateBus()
{
    const char *address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (address == nullptr || *address == '\0')
        throw std::runtime_error("DBUS_SYSTEM_BUS_ADDRESS is not set: start a PrivateBus "
                                 "(BusTest) before the simulator");
}

} // namespace

SimulatorCommandResult RunSimulatorCommand(const std::vector<std::string> &args,
                                           const std::map<std::string, std::string> &env,
                                           std::chrono::milliseconds timeout)
{
    return RunTool("sso-simulator", args, env, std::nullopt, timeout);
}

void ExpectUsageErrors(const std::vector<std::vector<std::string>> &commandLines)
{
    for (const auto &args : commandLines) {
        SimulatorCommandResult r = RunSimulatorCommand(args);
        std::string joined;
        for (const auto &a : args)
            joined += a + " ";
        EXPECT_EQ(2, r.status) << joined << "\n" << r.err;
        EXPECT_TRUE(Has(r.err, "--help")) << joined << "\n" << r.err;
    }
}

// ----------------------------------------------------------------- Simulator

Simulator::~Simulator()
{
    Stop();
    DropConnection();
    if (context_ != nullptr)
        g_main_context_unref(context_);
}

void Simulator::Start(const std::map<std::string, std::string> &env,
                      std::chrono::milliseconds timeout)
{
    StartWithArgs({}, env, timeout);
}

void Simulator::StartWithArgs(const std::vector<std::string> &extra_args,
                              const std::map<std::string, std::string> &env,
                              std::chrono::milliseconds timeout)
{
    if (child_.pid() > 0)
        throw std::runtime_error("Simulator::Start: the simulator is already running");
    RequirePrivateBus();
    // The service publishes the accounts in secure storage.
    EnsureStorageService();
    env_ = env;
    args_ = extra_args;
    exit_status_ = -1;
    std::vector<std::string> argv = {ToolPath("sso-simulator")};
    if (!extra_args.empty()) {
        argv.push_back("run");
        argv.insert(argv.end(), extra_args.begin(), extra_args.end());
    }
    child_ = ChildProcess::Spawn(argv, env);
    if (child_.WaitForOutput("ready\n", timeout))
        return;
    int status = child_.Wait(std::chrono::milliseconds(0));
    if (status == -1) {
        child_.Kill(SIGKILL);
        status = child_.Wait();
    }
    exit_status_ = status;
    throw std::runtime_error("sso-simulator was not ready within " +
                             std::to_string(timeout.count()) + " ms (exit status " +
                             std::to_string(status) + ", stdout '" + child_.output() +
                             "'); its messages are on stderr and in the platform log");
}

int Simulator::Stop(std::chrono::milliseconds grace)
{
    if (child_.pid() <= 0)
        return -1;
    child_.Kill(SIGTERM);
    int status = child_.Wait(grace);
    if (status == -1) {
        child_.Kill(SIGKILL);
        status = child_.Wait();
    }
    exit_status_ = status;
    return status;
}

void Simulator::Restart()
{
    Stop();
    StartWithArgs(std::vector<std::string>(args_), std::map<std::string, std::string>(env_));
}

bool Simulator::running()
{
    if (child_.pid() <= 0)
        return false;
    int status = child_.Wait(std::chrono::milliseconds(0));
    if (status == -1)
        return true;
    exit_status_ = status;
    return false;
}

GDBusConnection *Simulator::connection()
{
    if (connection_ != nullptr && g_dbus_connection_is_closed(connection_))
        DropConnection();
    if (connection_ != nullptr)
        return connection_;
    RequirePrivateBus();
    GError *error = nullptr;
    gchar *address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (address == nullptr)
        throw std::runtime_error("no system bus address: " + TakeError(error));
    // The connection's notices, its closing among them, go to a context of
    // the harness's own that DropConnection runs: left in the default
    // context, which no test runs, they would hold a closed connection (and
    // its socket) open for the rest of the test.
    if (context_ == nullptr)
        context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    connection_ = g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    g_main_context_pop_thread_default(context_);
    g_free(address);
    if (connection_ == nullptr)
        throw std::runtime_error("cannot connect to the system bus: " + TakeError(error));
    return connection_;
}

void Simulator::DropConnection()
{
    if (connection_ != nullptr) {
        g_object_unref(connection_);
        connection_ = nullptr;
    }
    if (context_ != nullptr)
        while (g_main_context_iteration(context_, FALSE)) {
        }
}

void Simulator::Command(const char *method, GVariant *params)
{
    g_variant_unref(Call(method, params, "()"));
}

void Simulator::Command(const char *method, const std::string &arg)
{
    Command(method, g_variant_new("(s)", arg.c_str()));
}

GVariant *Simulator::Call(const char *method, GVariant *params, const char *reply_type)
{
    GVariant *owned = params ? g_variant_ref_sink(params) : nullptr;
    GDBusConnection *c = nullptr;
    try {
        c = connection();
    } catch (...) {
        if (owned)
            g_variant_unref(owned);
        throw;
    }
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        c, kSsoServiceName, kSimulatorControlPath, kSimulatorControlInterface, method, owned,
        G_VARIANT_TYPE(reply_type), G_DBUS_CALL_FLAGS_NO_AUTO_START, kControlTimeoutMs, nullptr,
        &error);
    if (owned)
        g_variant_unref(owned);
    if (reply == nullptr)
        throw std::runtime_error(std::string("simulator control ") + method +
                                 " failed: " + TakeError(error));
    return reply;
}

void Simulator::Configure(const std::string &method, const Behaviour &behaviour)
{
    GVariant *reply =
        Call("Configure", g_variant_new("(s@a{sv})", method.c_str(), BehaviourToVariant(behaviour)),
             "()");
    g_variant_unref(reply);
}

void Simulator::ResetMethod(const std::string &method)
{
    Command("ResetMethod", method);
}

void Simulator::Reset()
{
    Command("Reset");
}

std::vector<JournalEntry> Simulator::Journal()
{
    GVariant *reply = Call("GetJournal", nullptr, "(a(sss))");
    std::vector<JournalEntry> out;
    for (auto &row : Rows(reply))
        out.push_back({row[0], row[1], row[2]});
    g_variant_unref(reply);
    return out;
}

std::vector<JournalEntry> Simulator::Requests()
{
    std::vector<JournalEntry> out;
    for (auto &entry : Journal())
        if (entry.method != "sso_check_alive")
            out.push_back(entry);
    return out;
}

std::vector<std::string> Simulator::RequestMethods()
{
    std::vector<std::string> out;
    for (auto &entry : Requests())
        out.push_back(entry.method);
    return out;
}

void Simulator::ClearJournal()
{
    Command("ClearJournal");
}

std::vector<DeliveryEntry> Simulator::Deliveries()
{
    GVariant *reply = Call("GetDeliveries", nullptr, "(a(sss))");
    std::vector<DeliveryEntry> out;
    for (auto &row : Rows(reply))
        out.push_back({row[0], row[1], row[2]});
    g_variant_unref(reply);
    return out;
}

void Simulator::ClearDeliveries()
{
    Command("ClearDeliveries");
}

bool Simulator::WaitForJournal(std::size_t n, std::chrono::milliseconds timeout)
{
    return WaitUntil([&] { return Journal().size() >= n; }, timeout);
}

bool Simulator::WaitForDeliveries(std::size_t n, std::chrono::milliseconds timeout)
{
    return WaitUntil([&] { return Deliveries().size() >= n; }, timeout);
}

void Simulator::EmitSignal(const std::string &name, const std::string &args_text)
{
    g_variant_unref(
        Call("EmitSignal", g_variant_new("(ss)", name.c_str(), args_text.c_str()), "()"));
}

std::string Simulator::CallClient(const std::string &bus_name, const std::string &method,
                                  const std::string &args_text)
{
    GVariant *reply =
        Call("CallClient",
             g_variant_new("(sss)", bus_name.c_str(), method.c_str(), args_text.c_str()), "(s)");
    const gchar *error = nullptr;
    g_variant_get(reply, "(&s)", &error);
    std::string result = error;
    g_variant_unref(reply);
    return result;
}

std::string Simulator::ObjectName()
{
    GVariant *reply = Call("GetObjectName", nullptr, "(s)");
    const gchar *name = nullptr;
    g_variant_get(reply, "(&s)", &name);
    std::string result = name;
    g_variant_unref(reply);
    return result;
}

bool Simulator::NameHasOwner(const std::string &bus_name)
{
    GError *error = nullptr;
    GVariant *reply = g_dbus_connection_call_sync(
        connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", bus_name.c_str()), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, kControlTimeoutMs, nullptr, &error);
    if (reply == nullptr)
        throw std::runtime_error("NameHasOwner(" + bus_name + ") failed: " + TakeError(error));
    gboolean owned = FALSE;
    g_variant_get(reply, "(b)", &owned);
    g_variant_unref(reply);
    return owned != FALSE;
}

std::string Simulator::NameOwner(const std::string &bus_name)
{
    GVariant *reply = g_dbus_connection_call_sync(
        connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetNameOwner", g_variant_new("(s)", bus_name.c_str()), G_VARIANT_TYPE("(s)"),
        G_DBUS_CALL_FLAGS_NONE, kControlTimeoutMs, nullptr, nullptr);
    std::string owner;
    if (reply != nullptr) {
        const gchar *name = nullptr;
        g_variant_get(reply, "(&s)", &name);
        owner = name;
        g_variant_unref(reply);
    }
    return owner;
}

int Simulator::Quit(std::chrono::milliseconds timeout)
{
    Command("Quit");
    int status = child_.Wait(timeout);
    if (status != -1)
        exit_status_ = status;
    return status;
}

// ------------------------------------------------------------------ accounts

namespace {

std::string StringReply(GVariant *reply)
{
    const gchar *text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    std::string result = text;
    g_variant_unref(reply);
    return result;
}

} // namespace

std::string Simulator::AddAccount(const AccountSpec &spec)
{
    GVariantBuilder dict;
    g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
    AddEntry(&dict, "login_id", g_variant_new_string(spec.login_id.c_str()));
    const std::pair<const char *, const std::optional<std::string> *> fields[] = {
        {"guid", &spec.guid},
        {"uid", &spec.uid},
        {"icon_path", &spec.icon_path},
        {"auth", &spec.auth},
        {"user_pin_set", &spec.user_pin_set},
        {"country", &spec.country},
        {"country2", &spec.country2},
        {"display_name", &spec.display_name},
        {"first_name", &spec.first_name},
        {"last_name", &spec.last_name},
        {"device_id", &spec.device_id},
        {"password", &spec.password},
        {"prefix_name", &spec.prefix_name},
        {"birth_date", &spec.birth_date},
        {"zip_code", &spec.zip_code},
        {"mobile_num", &spec.mobile_num},
        {"receive_email", &spec.receive_email},
        {"family_group", &spec.family_group},
    };
    for (const auto &[key, value] : fields)
        if (*value)
            AddEntry(&dict, key, g_variant_new_string((*value)->c_str()));
    return StringReply(Call("AddAccount", g_variant_new("(a{sv})", &dict), "(s)"));
}

void Simulator::RemoveAccount(const std::string &login_id_or_guid)
{
    Command("RemoveAccount", login_id_or_guid);
}

void Simulator::SignIn(const std::string &login_id_or_guid)
{
    Command("SignIn", login_id_or_guid);
}

void Simulator::SignOut()
{
    Command("SignOut");
}

std::string Simulator::Accounts()
{
    return StringReply(Call("GetAccounts", nullptr, "(s)"));
}

std::string Simulator::State()
{
    return StringReply(Call("GetState", nullptr, "(s)"));
}

void Simulator::SetApplicationData(const std::string &package, const std::string &guid,
                                   const std::string &key, const std::string &value)
{
    Command("SetApplicationData",
            g_variant_new("(ssss)", package.c_str(), guid.c_str(), key.c_str(), value.c_str()));
}

void Simulator::RemoveApplicationData(const std::string &package)
{
    Command("RemoveApplicationData", package);
}

void Simulator::WritePublicData(const std::string &text)
{
    Command("WritePublicData", text);
}

void Simulator::Publish()
{
    Command("Publish");
}

std::string Simulator::Issued()
{
    return StringReply(Call("GetIssued", nullptr, "(s)"));
}

void Simulator::ClearIssued()
{
    Command("ClearIssued");
}

void Simulator::RegisterClient(const std::string &app_id, const std::string &secret)
{
    g_variant_unref(
        Call("RegisterClient", g_variant_new("(ss)", app_id.c_str(), secret.c_str()), "()"));
}

void Simulator::RegisterWhitelist(const std::string &package, const std::string &signature)
{
    g_variant_unref(
        Call("RegisterWhitelist", g_variant_new("(ss)", package.c_str(), signature.c_str()), "()"));
}

// ------------------------------------------------------------ SimulatorTest

void SimulatorTest::SetUp()
{
    BusTest::SetUp();
    sim_.Start();
}

void SimulatorTest::TearDown()
{
    sim_.Stop();
    BusTest::TearDown();
}

} // namespace ssotest
