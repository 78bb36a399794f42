// sso-platform log: reads the platform log on a development machine, the way
// a device's log utility does: filters by tag, priority and pid, follows the
// file as it grows, and renders or strips the colour codes. The stored lines
// keep their codes; only what is shown changes.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "cli.h"
#include "tool_json.h"

namespace ssoplatform {

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnStopSignal(int)
{
    g_stop = 1;
}

// The priorities in the order of the log's letters ("??VDIWEFS").
struct Priority {
    char letter;
    const char *name;
};
constexpr Priority kPriorities[] = {
    {'V', "verbose"}, {'D', "debug"}, {'I', "info"}, {'W', "warn"}, {'E', "error"}, {'F', "fatal"},
};

int RankOfLetter(char letter)
{
    for (std::size_t i = 0; i < sizeof(kPriorities) / sizeof(kPriorities[0]); ++i)
        if (kPriorities[i].letter == letter)
            return static_cast<int>(i);
    return -1;
}

int ParsePriority(const std::string &text)
{
    for (std::size_t i = 0; i < sizeof(kPriorities) / sizeof(kPriorities[0]); ++i) {
        const Priority &p = kPriorities[i];
        if (text == p.name ||
            (text.size() == 1 && (text[0] == p.letter || text[0] == p.letter + 32)))
            return static_cast<int>(i);
    }
    if (text == "warning")
        return RankOfLetter('W');
    throw UsageError("invalid priority '" + text +
                     "' (verbose, debug, info, warn, error or fatal, or its first letter)");
}

// One line of the file form:
//   2026-11-22 10:00:00.123456 <pid> <tid> <P>/<buffer> <tag>: <message>
struct Entry {
    bool parsed = false;
    std::string time;
    long pid = 0;
    long tid = 0;
    char letter = '?';
    std::string buffer;
    std::string tag;
    std::string message;
};

bool ParseNumber(const std::string &text, long *out)
{
    if (text.empty() || text.size() > 10)
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    *out = std::strtol(text.c_str(), nullptr, 10);
    return true;
}

Entry Parse(const std::string &line)
{
    Entry e;
    std::size_t at = 0;
    std::string fields[5];
    for (std::string &field : fields) {
        const std::size_t end = line.find(' ', at);
        if (end == std::string::npos)
            return e;
        field = line.substr(at, end - at);
        at = end + 1;
    }
    const std::size_t colon = line.find(": ", at);
    if (colon == std::string::npos || fields[4].size() < 3 || fields[4][1] != '/' ||
        !ParseNumber(fields[2], &e.pid) || !ParseNumber(fields[3], &e.tid) ||
        RankOfLetter(fields[4][0]) < 0)
        return e;
    e.time = fields[0] + " " + fields[1];
    e.letter = fields[4][0];
    e.buffer = fields[4].substr(2);
    e.tag = line.substr(at, colon - at);
    e.message = line.substr(colon + 2);
    e.parsed = true;
    return e;
}

// Removes the terminal's colour and attribute sequences (ESC [ ... m).
std::string StripColour(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b' && i + 1 < text.size() && text[i + 1] == '[') {
            std::size_t j = i + 2;
            while (j < text.size() && ((text[j] >= '0' && text[j] <= '9') || text[j] == ';'))
                ++j;
            if (j < text.size() && text[j] == 'm') {
                i = j;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

struct Filter {
    std::set<std::string> tags; // empty: every tag
    int min_rank = 0;
    long pid = 0; // 0: every process
    bool any() const { return !tags.empty() || min_rank > 0 || pid != 0; }
    bool Pass(const Entry &e) const
    {
        return (tags.empty() || tags.count(e.tag) != 0) && RankOfLetter(e.letter) >= min_rank &&
               (pid == 0 || e.pid == pid);
    }
};

class Printer {
public:
    Printer(const Filter &filter, bool colour) : filter_(filter), colour_(colour) {}

    void Line(const std::string &line)
    {
        const Entry e = Parse(line);
        // A line that is not an entry (the rest of a message that held a
        // line feed) goes with the entry before it.
        if (e.parsed)
            shown_ = filter_.Pass(e);
        else if (!filter_.any())
            shown_ = true;
        if (!shown_)
            return;
        if (JsonOutput()) {
            Json::Value out(Json::objectValue);
            if (e.parsed) {
                out["time"] = e.time;
                out["pid"] = static_cast<Json::Int64>(e.pid);
                out["tid"] = static_cast<Json::Int64>(e.tid);
                out["priority"] = kPriorities[RankOfLetter(e.letter)].name;
                out["buffer"] = e.buffer;
                out["tag"] = e.tag;
                out["message"] = StripColour(e.message);
            } else {
                for (const char *name : {"time", "pid", "tid", "priority", "buffer", "tag"})
                    out[name] = Json::Value();
                out["message"] = StripColour(line);
            }
            ssotools::PrintJson(out);
            return;
        }
        const std::string shown = colour_ ? line : StripColour(line);
        std::fwrite(shown.data(), 1, shown.size(), stdout);
        std::fputc('\n', stdout);
    }

private:
    const Filter &filter_;
    bool colour_;
    bool shown_ = false; // whether the last entry was shown
};

// The file the platform log goes to: --file, else SSO_PLATFORM_LOG's
// file:PATH. Any other destination has nothing to read here.
std::string LogPath(const Args &args)
{
    if (args.Has("--file")) {
        if (args.Get("--file").empty())
            throw UsageError("--file needs a path");
        return args.Get("--file");
    }
    const char *dest = std::getenv("SSO_PLATFORM_LOG");
    const std::string d = dest && *dest ? dest : "syslog";
    if (d.compare(0, 5, "file:") == 0 && d.size() > 5)
        return d.substr(5);
    throw Failure("the platform log goes to " + d +
                  ", not to a file (SSO_PLATFORM_LOG=file:PATH sends it to one); name the "
                  "file with --file PATH");
}

bool UseColour(const Args &args)
{
    const std::string mode = args.Get("--color", "auto");
    if (mode == "always")
        return true;
    if (mode == "never")
        return false;
    if (mode != "auto")
        throw UsageError("invalid --color '" + mode + "' (auto, always or never)");
    const char *term = std::getenv("TERM");
    return isatty(STDOUT_FILENO) && std::getenv("NO_COLOR") == nullptr && term &&
           std::strcmp(term, "dumb") != 0;
}

// Reads whole lines from fd into the printer; the rest of a line that is
// still being written waits in pending.
void Drain(int fd, std::string &pending, Printer &printer)
{
    char buf[65536];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) {
            if (g_stop)
                return;
            continue;
        }
        if (n < 0)
            throw Failure(std::string("cannot read the log: ") + std::strerror(errno));
        if (n == 0)
            return;
        pending.append(buf, static_cast<std::size_t>(n));
        std::size_t start = 0;
        for (std::size_t nl; (nl = pending.find('\n', start)) != std::string::npos; start = nl + 1)
            printer.Line(pending.substr(start, nl - start));
        pending.erase(0, start);
    }
}

// The bytes just before the read position: a file truncated and written
// again past that position no longer holds them there.
constexpr off_t kTailBytes = 64;

std::string TailOf(int fd)
{
    const off_t offset = lseek(fd, 0, SEEK_CUR);
    const off_t start = offset > kTailBytes ? offset - kTailBytes : 0;
    std::string tail(static_cast<std::size_t>(offset - start), '\0');
    const ssize_t n = pread(fd, tail.data(), tail.size(), start);
    tail.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return tail;
}

// Whether the file was truncated since the position was reached: it is
// shorter, or what lay before the position changed.
bool Truncated(int fd, const std::string &tail)
{
    struct stat st;
    const off_t offset = lseek(fd, 0, SEEK_CUR);
    if (fstat(fd, &st) != 0 || offset <= 0)
        return false;
    return st.st_size < offset || TailOf(fd) != tail;
}

int Log(const Args &args)
{
    Filter filter;
    if (args.Has("--tag")) {
        const std::string tags = args.Get("--tag");
        std::size_t at = 0;
        for (;;) {
            const std::size_t comma = tags.find(',', at);
            const std::string tag = tags.substr(at, comma - at);
            if (tag.empty())
                throw UsageError("--tag needs TAG[,TAG...]");
            filter.tags.insert(tag);
            if (comma == std::string::npos)
                break;
            at = comma + 1;
        }
    }
    if (args.Has("--priority"))
        filter.min_rank = ParsePriority(args.Get("--priority"));
    if (args.Has("--pid") && (!ParseNumber(args.Get("--pid"), &filter.pid) || filter.pid <= 0))
        throw UsageError("invalid --pid '" + args.Get("--pid") + "'");
    const bool follow = args.Has("--follow");
    const bool colour = UseColour(args);
    const std::string path = LogPath(args);

    int fd = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    // Following a log that no process has written yet waits for it.
    if (fd < 0 && !(follow && errno == ENOENT))
        throw Failure("cannot open the log " + path + ": " + std::strerror(errno));

    Printer printer(filter, colour);
    std::string pending;
    std::string tail;
    if (fd >= 0) {
        Drain(fd, pending, printer);
        tail = TailOf(fd);
    }
    if (follow && path != "-") {
        struct sigaction sa = {};
        sa.sa_handler = OnStopSignal;
        sigaction(SIGINT, &sa, nullptr);
        sigaction(SIGTERM, &sa, nullptr);
        // Woken by inotify on the file's directory (the file may not exist
        // yet, or be replaced); the time-out covers a file system that does
        // not notify.
        const std::string dir = path.find('/') == std::string::npos
                                    ? std::string(".")
                                    : path.substr(0, path.rfind('/') + (path.rfind('/') == 0));
        int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (watch >= 0)
            inotify_add_watch(watch, dir.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
        std::fflush(stdout);
        while (!g_stop) {
            struct pollfd p = {watch, POLLIN, 0};
            poll(&p, watch >= 0 ? 1 : 0, 250);
            if (watch >= 0) {
                char events[4096];
                while (read(watch, events, sizeof(events)) > 0) {
                }
            }
            struct stat by_path;
            const bool exists = stat(path.c_str(), &by_path) == 0;
            struct stat open_one;
            if (fd >= 0 && fstat(fd, &open_one) == 0 && exists &&
                (open_one.st_ino != by_path.st_ino || open_one.st_dev != by_path.st_dev)) {
                Drain(fd, pending, printer); // the rest of the old file first
                close(fd);
                fd = -1;
            }
            if (fd < 0 && exists) {
                fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
                pending.clear();
                tail.clear();
            }
            if (fd < 0)
                continue;
            if (Truncated(fd, tail)) {
                lseek(fd, 0, SEEK_SET); // truncated: start again
                pending.clear();
            }
            Drain(fd, pending, printer);
            tail = TailOf(fd);
            std::fflush(stdout);
        }
        if (watch >= 0)
            close(watch);
    }
    if (!pending.empty())
        printer.Line(pending);
    if (fd > STDIN_FILENO)
        close(fd);
    if (std::fflush(stdout) != 0)
        throw Failure("cannot write to stdout: " + std::string(std::strerror(errno)));
    return kExitOk;
}

} // namespace

const Group &LogGroup()
{
    static const Group group = {
        "log",
        "Show the platform log: filter by tag, priority and pid, follow",
        "Reads the log file the platform writes when SSO_PLATFORM_LOG=file:PATH\n"
        "(or the file given with --file; '-' reads stdin). Lines keep the colour\n"
        "codes the libraries write; the viewer shows them as colours on a\n"
        "terminal and strips them elsewhere.",
        {
            {"show",
             "[--tag TAG[,TAG...]] [--priority LEVEL] [--pid PID] [--follow] [--file PATH]",
             "Print the log's lines, filtered",
             "Prints each line that passes every filter given: one of the tags, at\n"
             "least the priority (verbose, debug, info, warn, error or fatal, or its\n"
             "letter), written by the process. A line that continues a message goes\n"
             "with the line before it. --follow keeps reading as the file grows, is\n"
             "replaced or truncated, until SIGINT or SIGTERM (exit 0). With --json:\n"
             "one {\"time\", \"pid\", \"tid\", \"priority\", \"buffer\", \"tag\", \"message\"}\n"
             "a line, colour codes stripped (null fields for a line that is not an entry).\n"
             "\n"
             "Examples:\n"
             "  sso-platform log show --tag SSOAPIClient --priority warn\n"
             "  sso-platform log show --follow --pid 4242 --color never\n"
             "  sso-platform --json log show --file /tmp/sso-dev/log/platform.log",
             {{"--tag", "TAG[,TAG...]", "Only lines with one of these tags"},
              {"--priority", "LEVEL", "Only lines of this priority or higher"},
              {"--pid", "PID", "Only lines written by this process"},
              {"--follow", nullptr, "Keep reading as lines are added (like tail -f)"},
              {"--file", "PATH", "Read this file (default: SSO_PLATFORM_LOG's file:PATH)"},
              {"--color", "WHEN", "Colours: auto (on a terminal), always or never"}},
             0,
             0,
             Log},
        },
        false,
    };
    return group;
}

} // namespace ssoplatform
