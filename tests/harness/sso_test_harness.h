// Test harness shared by every test binary: a private system bus, a fresh
// platform root with a captured log, child processes that die with the test,
// and waiting with deadlines instead of sleeps.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace ssotest {

// How a PrivateBus polices its clients.
//   Open:   anyone may own any name and call anything (the default).
//   Strict: a system bus as a distribution ships it (nobody owns a name or
//           sends a method call except to the bus itself) plus the project's
//           D-Bus policy files from the build tree (share/dbus-1/system.d).
//           The service's user named in them becomes the user running the
//           tests, who may also script the simulator. The bus directory is
//           open to other users.
// SSO_TEST_BUS_POLICY=strict makes Strict the default of every bus.
enum class BusPolicy { Open, Strict };
BusPolicy DefaultBusPolicy();

// A dbus-daemon with a system-bus-like configuration on a socket in a
// temporary directory. Start() sets DBUS_SYSTEM_BUS_ADDRESS; the daemon is
// killed by pid in Stop(), in the destructor, and by the kernel if the test
// process dies (PR_SET_PDEATHSIG).
class PrivateBus {
public:
    PrivateBus() = default;
    ~PrivateBus();
    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    // Starts the daemon; extra_config is inserted into <busconfig> (policies)
    // in place of the policy of DefaultBusPolicy(). A restart keeps the same
    // socket path, address and policy.
    void Start(const std::string &extra_config = "");
    void StartWithPolicy(BusPolicy policy, const std::string &extra_config = "");
    void Stop();
    void Restart();
    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    const std::string &address() const { return address_; }
    const std::string &dir() const { return dir_; }

private:
    std::string dir_;
    std::string address_;
    std::string extra_config_;
    BusPolicy policy_ = BusPolicy::Open;
    pid_t pid_ = -1;
};

class ChildProcess;

// A fresh platform root in a temporary directory: SSO_PLATFORM_ROOT points
// at it and the platform log goes to <root>/log.txt at verbose level. The
// root is 0755, as on a device: processes of other users reach what the
// platform lets them.
//
// The platform's storage service (sso-storaged) starts on first use: by
// StartStorage(), EnsureStorageService(), a Simulator, or the test helpers
// that write secure-storage items. It runs as the user running the test (the
// service's user, in tests) and is killed by pid with the root, or by the
// kernel when the test process dies.
class PlatformRoot {
public:
    PlatformRoot();
    ~PlatformRoot();
    PlatformRoot(const PlatformRoot &) = delete;
    PlatformRoot &operator=(const PlatformRoot &) = delete;

    const std::string &path() const { return path_; }
    std::string log_path() const { return path_ + "/log.txt"; }
    // Host path of a device path: "/etc/debug" -> <root>/fs/etc/debug.
    std::string DevicePath(const std::string &device_path) const;
    // Creates (or removes) a marker file at a device path.
    void CreateDeviceFile(const std::string &device_path, const std::string &content = "");
    void RemoveDeviceFile(const std::string &device_path);

    // Starts the storage service for this root unless it runs; waits for its
    // "ready". extra_args go to sso-storaged (e.g. {"--service-user", "123"})
    // on a fresh start. Throws std::runtime_error when it is not ready in
    // time.
    void StartStorage(const std::vector<std::string> &extra_args = {});
    // Kills it (SIGKILL, reaped); a later StartStorage starts a new one.
    void StopStorage();
    bool storage_running();
    pid_t storage_pid() const;
    // Stops it (SIGSTOP) and returns once every thread of it is stopped, so
    // that nothing more is answered: a hung service. false when it did not
    // stop in time. ResumeStorage lets it go on.
    bool SuspendStorage();
    void ResumeStorage();

    // The root made most recently and still alive, or nullptr.
    static PlatformRoot *Current();

private:
    std::string path_;
    std::unique_ptr<ChildProcess> storage_;
    PlatformRoot *previous_ = nullptr;
};

// Starts the storage service of PlatformRoot::Current() when there is one
// and SSO_PLATFORM_ROOT still names it; otherwise does nothing.
void EnsureStorageService();

// Reads the captured platform log.
class LogCapture {
public:
    explicit LogCapture(std::string path) : path_(std::move(path)) {}
    std::string Text() const;
    std::vector<std::string> Lines() const;
    bool Contains(const std::string &needle) const;
    int Count(const std::string &needle) const;
    // Lines that contain every one of the needles.
    std::vector<std::string> LinesWith(const std::vector<std::string> &needles) const;
    // Forgets what was logged so far (truncates the file).
    void Clear() const;

private:
    std::string path_;
};

// A child process that is killed when this object goes away or the test
// process dies.
class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&other) noexcept;
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // argv[0] is looked up in PATH when it has no slash. env entries are added
    // to (or replace) the current environment. stdout goes to a pipe that
    // ReadStdout() drains unless stdout_to_parent is set.
    static ChildProcess Spawn(const std::vector<std::string> &argv,
                              const std::map<std::string, std::string> &env = {},
                              bool stdout_to_parent = false);
    // Runs fn in a forked child, which exits with fn's return value.
    static ChildProcess Fork(const std::function<int()> &fn);

    pid_t pid() const { return pid_; }
    // Waits for exit up to the timeout; returns the exit status (WEXITSTATUS,
    // or 128 + signal), or -1 on timeout.
    int Wait(std::chrono::milliseconds timeout = std::chrono::seconds(30));
    void Kill(int sig = 9);
    // Reads what the child wrote to stdout so far (non-blocking after exit).
    std::string ReadStdout(std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Reads stdout until a line containing needle arrives or the time runs out.
    bool WaitForOutput(const std::string &needle,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10));
    const std::string &output() const { return out_; }

private:
    pid_t pid_ = -1;
    int out_fd_ = -1;
    int status_ = -1;
    std::string out_;
};

// Runs a command to completion and returns (exit status, stdout).
struct CommandResult {
    int status = -1;
    std::string out;
};
CommandResult RunCommand(const std::vector<std::string> &argv,
                         const std::map<std::string, std::string> &env = {},
                         std::chrono::milliseconds timeout = std::chrono::seconds(30));

// Other users. Only root can be them; tests that need them skip otherwise.
bool CanSwitchUsers();
struct Identity {
    uid_t uid;
    gid_t gid;
    std::vector<gid_t> groups; // supplementary groups
};
// Runs fn in a forked child (as ChildProcess::Fork) after it took on the
// identity: groups, gid, then uid, for good (no way back to root). A child
// that cannot exits with 125. No passwd entry is needed for the ids.
ChildProcess ForkAs(const Identity &identity, const std::function<int()> &fn);

// Polls pred every millisecond until it holds or the deadline passes.
bool WaitUntil(const std::function<bool()> &pred,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));

// Directory of the test executables' sibling tools, from the build.
std::string BuildDir();
std::string ToolPath(const std::string &name);

// The fixture every integration test uses: a fresh platform root with its
// log, and a private system bus. The platform log configuration is reloaded
// so this process logs into the fresh root.
class BusTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    PlatformRoot root_;
    PrivateBus bus_;
    LogCapture log() const { return LogCapture(root_.log_path()); }
};

// The same without the bus, for tests that need only the platform root.
class RootTest : public ::testing::Test {
protected:
    void SetUp() override;
    PlatformRoot root_;
    LogCapture log() const { return LogCapture(root_.log_path()); }
};

// A platform root with its storage service running.
class StorageTest : public RootTest {
protected:
    void SetUp() override
    {
        RootTest::SetUp();
        root_.StartStorage();
    }
    std::string StoreDir() const { return root_.path() + "/secure-storage"; }
};

} // namespace ssotest
