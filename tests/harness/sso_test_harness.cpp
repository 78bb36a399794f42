#include "sso_test_harness.h"

#include "test_files.h"

#include <dirent.h>
#include <dlog.h>
#include <fcntl.h>
#include <poll.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#ifndef SSO_BUILD_DIR
#error "SSO_BUILD_DIR must be defined"
#endif

extern char **environ;

namespace ssotest {
namespace {

using Clock = std::chrono::steady_clock;

std::string MakeTempDir(const char *prefix)
{
    const char *tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + "XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data()))
        throw std::runtime_error(std::string("mkdtemp: ") + strerror(errno));
    return std::string(buf.data());
}

// fork() for a child that must not outlive this process: it is killed when
// the parent goes, and exits at once if the parent went before it could ask.
// 0 in the child (only async-signal-safe calls there), its pid here.
pid_t ForkTied()
{
    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(127);
    }
    return pid;
}

void RemoveTree(const std::string &path)
{
    if (path.empty() || path == "/")
        return;
    // Make everything writable first so a test that chmod'ed a directory
    // read-only does not leave it behind.
    std::string cmd = "chmod -R u+rwx '" + path + "' 2>/dev/null; rm -rf '" + path + "'";
    int rc = system(cmd.c_str());
    (void)rc;
}

void WriteFile(const std::string &path, const std::string &content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        throw std::runtime_error("cannot write " + path);
    out << content;
}

void MkdirP(const std::string &path)
{
    std::string cur;
    std::stringstream ss(path);
    std::string part;
    if (!path.empty() && path[0] == '/')
        cur = "";
    while (std::getline(ss, part, '/')) {
        if (part.empty())
            continue;
        cur += "/" + part;
        mkdir(cur.c_str(), 0755);
    }
}

// Reads from fd until the text contains needle, EOF or the deadline.
bool ReadUntil(int fd, std::string &acc, const std::string &needle, Clock::time_point deadline)
{
    char buf[4096];
    while (needle.empty() || acc.find(needle) == std::string::npos) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        struct pollfd pfd = {fd, POLLIN, 0};
        int r = poll(&pfd, 1, static_cast<int>(left.count()));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (n <= 0)
            return needle.empty();
        acc.append(buf, static_cast<size_t>(n));
    }
    return true;
}

// The strict bus: default deny as on a distribution's system bus, then the
// project's policy files (copied into dir/system.d, the service's user
// replaced by the one running the tests), then scripting of the simulator
// for that user.
std::string StrictPolicyConfig(const std::string &dir)
{
    const struct passwd *me = getpwuid(geteuid());
    if (me == nullptr)
        throw std::runtime_error("strict bus policy: no user name for uid " +
                                 std::to_string(geteuid()));
    const std::string user = me->pw_name;
    const std::string source = std::string(SSO_BUILD_DIR) + "/share/dbus-1/system.d";
    const std::string target = dir + "/system.d";
    mkdir(target.c_str(), 0755);
    int copied = 0;
    if (DIR *d = opendir(source.c_str())) {
        while (const struct dirent *entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name.size() < 5 || name.compare(name.size() - 5, 5, ".conf") != 0)
                continue;
            std::string text = ReadWholeFile(source + "/" + name);
            const std::string key = "<policy user=\"";
            std::size_t at = text.find(key);
            if (at != std::string::npos) {
                at += key.size();
                const std::string from =
                    "user=\"" + text.substr(at, text.find('"', at) - at) + "\"";
                const std::string to = "user=\"" + user + "\"";
                for (std::size_t p = text.find(from); p != std::string::npos;
                     p = text.find(from, p + to.size()))
                    text.replace(p, from.size(), to);
            }
            WriteFile(target + "/" + name, text);
            ++copied;
        }
        closedir(d);
    }
    if (copied == 0)
        throw std::runtime_error("strict bus policy: no policy files in " + source +
                                 " (configure the build first)");
    return "  <policy context=\"default\">\n"
           "    <allow user=\"*\"/>\n"
           "    <deny own=\"*\"/>\n"
           "    <deny send_type=\"method_call\"/>\n"
           "    <allow send_type=\"signal\"/>\n"
           "    <allow send_requested_reply=\"true\" send_type=\"method_return\"/>\n"
           "    <allow send_requested_reply=\"true\" send_type=\"error\"/>\n"
           "    <allow receive_type=\"method_call\"/>\n"
           "    <allow receive_type=\"method_return\"/>\n"
           "    <allow receive_type=\"error\"/>\n"
           "    <allow receive_type=\"signal\"/>\n"
           "    <allow send_destination=\"org.freedesktop.DBus\"\n"
           "           send_interface=\"org.freedesktop.DBus\"/>\n"
           "    <allow send_destination=\"org.freedesktop.DBus\"\n"
           "           send_interface=\"org.freedesktop.DBus.Introspectable\"/>\n"
           "    <allow send_destination=\"org.freedesktop.DBus\"\n"
           "           send_interface=\"org.freedesktop.DBus.Properties\"/>\n"
           "    <deny send_destination=\"org.freedesktop.DBus\"\n"
           "          send_interface=\"org.freedesktop.DBus\"\n"
           "          send_member=\"UpdateActivationEnvironment\"/>\n"
           "  </policy>\n"
           "  <includedir>" +
           target +
           "</includedir>\n"
           "  <policy user=\"" +
           user +
           "\">\n"
           "    <allow send_destination=\"org.orvex.tv.ssoservice.server\"\n"
           "           send_interface=\"org.orvex.tv.ssoservice.simulator.Control\"/>\n"
           "  </policy>\n";
}

} // namespace

BusPolicy DefaultBusPolicy()
{
    const char *mode = getenv("SSO_TEST_BUS_POLICY");
    if (mode == nullptr || *mode == '\0' || strcmp(mode, "open") == 0)
        return BusPolicy::Open;
    if (strcmp(mode, "strict") == 0)
        return BusPolicy::Strict;
    throw std::runtime_error(std::string("SSO_TEST_BUS_POLICY must be 'open' or 'strict', not '") +
                             mode + "'");
}

// ---------------------------------------------------------------- PrivateBus

PrivateBus::~PrivateBus()
{
    Stop();
    RemoveTree(dir_);
}

void PrivateBus::Start(const std::string &extra_config)
{
    StartWithPolicy(DefaultBusPolicy(), extra_config);
}

void PrivateBus::StartWithPolicy(BusPolicy bus_policy, const std::string &extra_config)
{
    if (pid_ > 0)
        return;
    if (dir_.empty())
        dir_ = MakeTempDir("sso-bus-");
    extra_config_ = extra_config;
    policy_ = bus_policy;
    const std::string socket = dir_ + "/system_bus_socket";
    const std::string config = dir_ + "/system.conf";
    std::string policy = extra_config;
    if (policy.empty() && bus_policy == BusPolicy::Strict) {
        // Clients of other users must reach the socket.
        chmod(dir_.c_str(), 0755);
        policy = StrictPolicyConfig(dir_);
    }
    if (policy.empty()) {
        policy = "  <policy context=\"default\">\n"
                 "    <allow user=\"*\"/>\n"
                 "    <allow own=\"*\"/>\n"
                 "    <allow send_type=\"method_call\"/>\n"
                 "    <allow send_type=\"signal\"/>\n"
                 "    <allow send_type=\"method_return\"/>\n"
                 "    <allow send_type=\"error\"/>\n"
                 "    <allow receive_type=\"method_call\"/>\n"
                 "    <allow receive_type=\"signal\"/>\n"
                 "    <allow receive_type=\"method_return\"/>\n"
                 "    <allow receive_type=\"error\"/>\n"
                 "  </policy>\n";
    }
    WriteFile(config,
              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
              " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
              "<busconfig>\n"
              "  <type>system</type>\n"
              "  <listen>unix:path=" +
                  socket +
                  "</listen>\n"
                  "  <auth>EXTERNAL</auth>\n"
                  "  <limit name=\"max_replies_per_connection\">50000</limit>\n"
                  "  <limit name=\"max_connections_per_user\">2048</limit>\n"
                  "  <limit name=\"max_match_rules_per_connection\">4096</limit>\n" +
                  policy + "</busconfig>\n");
    unlink(socket.c_str());

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2 failed");
    pid_t pid = ForkTied();
    if (pid == 0) {
        // The address is written to fd 3; dup2 clears FD_CLOEXEC on it.
        dup2(fds[1], 3);
        int devnull = open("/dev/null", O_RDWR);
        if (devnull >= 0) {
            dup2(devnull, 0);
            dup2(devnull, 1);
        }
        std::string cfg = "--config-file=" + config;
        execlp("dbus-daemon", "dbus-daemon", cfg.c_str(), "--nofork", "--nopidfile",
               "--print-address=3", static_cast<char *>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    std::string acc;
    bool ok = ReadUntil(fds[0], acc, "\n", Clock::now() + std::chrono::seconds(20));
    close(fds[0]);
    if (!ok) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        throw std::runtime_error("dbus-daemon did not start");
    }
    pid_ = pid;
    address_ = acc.substr(0, acc.find('\n'));
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

void PrivateBus::Stop()
{
    if (pid_ <= 0)
        return;
    kill(pid_, SIGTERM);
    auto deadline = Clock::now() + std::chrono::seconds(5);
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    pid_ = -1;
}

void PrivateBus::Restart()
{
    Stop();
    StartWithPolicy(policy_, extra_config_);
}

// -------------------------------------------------------------- PlatformRoot

namespace {
PlatformRoot *g_current_root = nullptr;
} // namespace

PlatformRoot::PlatformRoot()
{
    path_ = MakeTempDir("sso-root-");
    chmod(path_.c_str(), 0755);
    setenv("SSO_PLATFORM_ROOT", path_.c_str(), 1);
    setenv("SSO_PLATFORM_LOG", ("file:" + log_path()).c_str(), 1);
    setenv("SSO_PLATFORM_LOG_LEVEL", "verbose", 1);
    dlog_reload_config();
    previous_ = g_current_root;
    g_current_root = this;
}

PlatformRoot::~PlatformRoot()
{
    if (g_current_root == this)
        g_current_root = previous_;
    StopStorage();
    if (getenv("SSO_TEST_KEEP_ROOT") == nullptr)
        RemoveTree(path_);
}

PlatformRoot *PlatformRoot::Current()
{
    return g_current_root;
}

void PlatformRoot::StartStorage(const std::vector<std::string> &extra_args)
{
    if (storage_running())
        return;
    std::vector<std::string> argv = {ToolPath("sso-storaged"), "--root", path_};
    argv.insert(argv.end(), extra_args.begin(), extra_args.end());
    // Killed by pid, the service never reaches an exit where a sanitizer
    // would report: under ThreadSanitizer a race stops it at once instead, so
    // the test's next storage call fails. (AddressSanitizer and UBSan stop
    // at the first error anyway.)
    const char *tsan = getenv("TSAN_OPTIONS");
    std::map<std::string, std::string> env = {
        {"TSAN_OPTIONS", std::string(tsan ? tsan : "") + ":halt_on_error=1"}};
    auto child = std::make_unique<ChildProcess>(ChildProcess::Spawn(argv, env));
    if (!child->WaitForOutput("ready\n", std::chrono::seconds(20))) {
        child->Kill(SIGKILL);
        int status = child->Wait(std::chrono::seconds(5));
        throw std::runtime_error("sso-storaged was not ready (exit status " +
                                 std::to_string(status) + ") for " + path_);
    }
    storage_ = std::move(child);
}

void PlatformRoot::StopStorage()
{
    if (!storage_)
        return;
    storage_->Kill(SIGKILL);
    storage_->Wait(std::chrono::seconds(10));
    storage_.reset();
}

bool PlatformRoot::storage_running()
{
    if (!storage_ || storage_->pid() <= 0)
        return false;
    // Reaps it when it has ended.
    return storage_->Wait(std::chrono::milliseconds(0)) == -1;
}

pid_t PlatformRoot::storage_pid() const
{
    return storage_ ? storage_->pid() : -1;
}

bool PlatformRoot::SuspendStorage()
{
    const pid_t pid = storage_pid();
    if (pid <= 0 || kill(pid, SIGSTOP) != 0)
        return false;
    // The signal is delivered as each thread next runs; until then a thread
    // may still answer.
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    return WaitUntil([&tasks] {
        DIR *d = opendir(tasks.c_str());
        if (d == nullptr)
            return false;
        bool all = true;
        int seen = 0;
        while (const struct dirent *e = readdir(d)) {
            if (e->d_name[0] == '.')
                continue;
            ++seen;
            std::string stat = ReadWholeFile(tasks + "/" + e->d_name + "/stat");
            std::size_t paren = stat.rfind(')');
            char state =
                paren != std::string::npos && paren + 2 < stat.size() ? stat[paren + 2] : '?';
            if (state != 'T' && state != 't')
                all = false;
        }
        closedir(d);
        return all && seen > 0;
    });
}

void PlatformRoot::ResumeStorage()
{
    if (storage_pid() > 0)
        kill(storage_pid(), SIGCONT);
}

void EnsureStorageService()
{
    PlatformRoot *root = PlatformRoot::Current();
    const char *env = getenv("SSO_PLATFORM_ROOT");
    if (root == nullptr || env == nullptr || root->path() != env)
        return;
    root->StartStorage();
}

std::string PlatformRoot::DevicePath(const std::string &device_path) const
{
    return path_ + "/fs" + device_path;
}

void PlatformRoot::CreateDeviceFile(const std::string &device_path, const std::string &content)
{
    std::string host = DevicePath(device_path);
    MkdirP(host.substr(0, host.rfind('/')));
    WriteFile(host, content);
}

void PlatformRoot::RemoveDeviceFile(const std::string &device_path)
{
    unlink(DevicePath(device_path).c_str());
}

// ---------------------------------------------------------------- LogCapture

std::string LogCapture::Text() const
{
    return ReadWholeFile(path_);
}

std::vector<std::string> LogCapture::Lines() const
{
    std::vector<std::string> lines;
    std::stringstream ss(Text());
    std::string line;
    while (std::getline(ss, line))
        lines.push_back(line);
    return lines;
}

bool LogCapture::Contains(const std::string &needle) const
{
    return Text().find(needle) != std::string::npos;
}

int LogCapture::Count(const std::string &needle) const
{
    int n = 0;
    for (const auto &line : Lines())
        if (line.find(needle) != std::string::npos)
            ++n;
    return n;
}

std::vector<std::string> LogCapture::LinesWith(const std::vector<std::string> &needles) const
{
    std::vector<std::string> out;
    for (const auto &line : Lines()) {
        bool all = true;
        for (const auto &n : needles)
            if (line.find(n) == std::string::npos) {
                all = false;
                break;
            }
        if (all)
            out.push_back(line);
    }
    return out;
}

void LogCapture::Clear() const
{
    if (truncate(path_.c_str(), 0) != 0 && errno != ENOENT)
        throw std::runtime_error("cannot truncate " + path_);
}

// -------------------------------------------------------------- ChildProcess

ChildProcess::~ChildProcess()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (out_fd_ >= 0)
        close(out_fd_);
}

ChildProcess::ChildProcess(ChildProcess &&other) noexcept
    : pid_(other.pid_), out_fd_(other.out_fd_), status_(other.status_), out_(std::move(other.out_))
{
    other.pid_ = -1;
    other.out_fd_ = -1;
}

ChildProcess &ChildProcess::operator=(ChildProcess &&other) noexcept
{
    if (this != &other) {
        this->~ChildProcess();
        pid_ = other.pid_;
        out_fd_ = other.out_fd_;
        status_ = other.status_;
        out_ = std::move(other.out_);
        other.pid_ = -1;
        other.out_fd_ = -1;
    }
    return *this;
}

ChildProcess ChildProcess::Spawn(const std::vector<std::string> &argv,
                                 const std::map<std::string, std::string> &env,
                                 bool stdout_to_parent)
{
    if (argv.empty())
        throw std::invalid_argument("empty argv");
    int fds[2] = {-1, -1};
    if (!stdout_to_parent && pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2 failed");
    std::vector<std::string> envs;
    for (char **e = environ; *e; ++e) {
        std::string entry(*e);
        std::string key = entry.substr(0, entry.find('='));
        if (env.count(key) == 0)
            envs.push_back(entry);
    }
    for (const auto &kv : env)
        envs.push_back(kv.first + "=" + kv.second);
    std::vector<char *> cargv;
    for (const auto &a : argv)
        cargv.push_back(const_cast<char *>(a.c_str()));
    cargv.push_back(nullptr);
    std::vector<char *> cenv;
    for (const auto &e : envs)
        cenv.push_back(const_cast<char *>(e.c_str()));
    cenv.push_back(nullptr);

    pid_t pid = ForkTied();
    if (pid == 0) {
        if (!stdout_to_parent)
            dup2(fds[1], 1);
        if (argv[0].find('/') == std::string::npos)
            execvpe(cargv[0], cargv.data(), cenv.data());
        else
            execve(cargv[0], cargv.data(), cenv.data());
        _exit(127);
    }
    ChildProcess child;
    child.pid_ = pid;
    if (!stdout_to_parent) {
        close(fds[1]);
        child.out_fd_ = fds[0];
    }
    return child;
}

ChildProcess ChildProcess::Fork(const std::function<int()> &fn)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2 failed");
    pid_t pid = ForkTied();
    if (pid == 0) {
        dup2(fds[1], 1);
        int rc = 1;
        try {
            rc = fn();
        } catch (...) {
            rc = 126;
        }
        fflush(stdout);
        _exit(rc);
    }
    close(fds[1]);
    ChildProcess child;
    child.pid_ = pid;
    child.out_fd_ = fds[0];
    return child;
}

int ChildProcess::Wait(std::chrono::milliseconds timeout)
{
    if (pid_ <= 0)
        return status_;
    auto deadline = Clock::now() + timeout;
    int status = 0;
    for (;;) {
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_)
            break;
        if (r < 0 && errno != EINTR)
            return -1;
        if (Clock::now() > deadline)
            return -1;
        // Keep draining stdout so a chatty child never blocks on a full pipe.
        if (out_fd_ >= 0)
            ReadUntil(out_fd_, out_, "\x01\x02never", Clock::now() + std::chrono::milliseconds(2));
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pid_ = -1;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
}

void ChildProcess::Kill(int sig)
{
    if (pid_ > 0)
        kill(pid_, sig);
}

std::string ChildProcess::ReadStdout(std::chrono::milliseconds timeout)
{
    if (out_fd_ >= 0)
        ReadUntil(out_fd_, out_, "", Clock::now() + timeout);
    return out_;
}

bool ChildProcess::WaitForOutput(const std::string &needle, std::chrono::milliseconds timeout)
{
    if (out_.find(needle) != std::string::npos)
        return true;
    if (out_fd_ < 0)
        return false;
    return ReadUntil(out_fd_, out_, needle, Clock::now() + timeout);
}

CommandResult RunCommand(const std::vector<std::string> &argv,
                         const std::map<std::string, std::string> &env,
                         std::chrono::milliseconds timeout)
{
    ChildProcess child = ChildProcess::Spawn(argv, env);
    CommandResult result;
    result.status = child.Wait(timeout);
    if (result.status == -1)
        child.Kill(SIGKILL);
    result.out = child.ReadStdout(std::chrono::milliseconds(500));
    return result;
}

bool CanSwitchUsers()
{
    return geteuid() == 0;
}

ChildProcess ForkAs(const Identity &identity, const std::function<int()> &fn)
{
    const pid_t parent = getpid();
    return ChildProcess::Fork([identity, fn, parent] {
        if (setgroups(identity.groups.size(), identity.groups.data()) != 0 ||
            setresgid(identity.gid, identity.gid, identity.gid) != 0 ||
            setresuid(identity.uid, identity.uid, identity.uid) != 0)
            return 125;
        // A change of credentials clears the parent-death signal.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            return 125;
        return fn();
    });
}

bool WaitUntil(const std::function<bool()> &pred, std::chrono::milliseconds timeout)
{
    auto deadline = Clock::now() + timeout;
    while (!pred()) {
        if (Clock::now() > deadline)
            return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string BuildDir()
{
    return SSO_BUILD_DIR;
}

std::string ToolPath(const std::string &name)
{
    return BuildDir() + "/bin/" + name;
}

// ------------------------------------------------------------------ fixtures

void BusTest::SetUp()
{
    bus_.Start();
}

void BusTest::TearDown()
{
    bus_.Stop();
}

void RootTest::SetUp() {}

} // namespace ssotest
