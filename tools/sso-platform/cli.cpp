#include "cli.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sso_platform_common.h"

namespace ssoplatform {

namespace {

bool g_json = false;

bool IsHelp(const std::string &arg)
{
    return arg == "--help" || arg == "-h";
}

// "-5" is a value, not an option: negative numbers are legal positionals.
bool LooksLikeOption(const std::string &arg)
{
    if (arg.size() < 2 || arg[0] != '-')
        return false;
    return !(arg[1] >= '0' && arg[1] <= '9');
}

std::string Where(const Group &group, const Command *command)
{
    std::string s = std::string(kProgram) + " " + group.name;
    if (command)
        s += std::string(" ") + command->name;
    return s;
}

std::string HelpHint(const Group &group, const Command *command)
{
    return " (see '" + Where(group, command) + " --help')";
}

const Option *FindOption(const Command &command, const std::string &name)
{
    for (const Option &o : command.options)
        if (name == o.name)
            return &o;
    return nullptr;
}

} // namespace

bool JsonOutput()
{
    return g_json;
}

void SetJsonOutput(bool on)
{
    g_json = on;
}

void RequirePlatformRoot()
{
    const char *root = sso_platform_root();
    struct stat st;
    std::string why;
    if (stat(root, &st) != 0)
        why = errno == ENOENT ? "does not exist"
                              : "cannot be read: " + std::string(std::strerror(errno));
    else if (!S_ISDIR(st.st_mode))
        why = "is not a directory";
    else
        return;
    throw Failure("the platform root " + std::string(root) + " is not accessible: it " + why +
                  " (create it with 'mkdir -p " + root +
                  "', or name another with --root DIR or SSO_PLATFORM_ROOT)");
}

void PrintGroupHelp(const Group &group, std::FILE *out)
{
    std::fprintf(out, "Usage: %s %s COMMAND [ARGS...]\n\n%s\n\nCommands:\n", kProgram, group.name,
                 group.help);
    std::size_t width = 0;
    for (const Command &c : group.commands)
        width = std::max(width, std::strlen(c.name));
    for (const Command &c : group.commands)
        std::fprintf(out, "  %-*s  %s\n", static_cast<int>(width), c.name, c.summary);
    std::fprintf(out, "\nRun '%s %s COMMAND --help' for the details of a command.\n", kProgram,
                 group.name);
}

void PrintCommandHelp(const Group &group, const Command &command, std::FILE *out)
{
    std::fprintf(out, "Usage: %s %s\n\n%s\n\n%s\n\nOptions:\n", Where(group, &command).c_str(),
                 command.synopsis, command.summary, command.help);
    std::vector<std::pair<std::string, const char *>> rows;
    for (const Option &o : command.options) {
        std::string left = o.name;
        if (o.value_name)
            left += std::string(" ") + o.value_name;
        rows.emplace_back(left, o.help);
    }
    rows.emplace_back("-h, --help", "Show this help and exit");
    std::size_t width = 0;
    for (const auto &row : rows)
        width = std::max(width, row.first.size());
    for (const auto &row : rows)
        std::fprintf(out, "  %-*s  %s\n", static_cast<int>(width), row.first.c_str(), row.second);
}

namespace {

// text with every "%s" replaced by subject and every "%d" by rc.
std::string Fill(const std::string &text, const std::string &subject, int rc)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 1 < text.size() && (text[i + 1] == 's' || text[i + 1] == 'd')) {
            out += text[i + 1] == 's' ? subject : std::to_string(rc);
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

} // namespace

void CheckResult(int rc, int ok, const std::string &subject, const std::vector<ResultText> &texts,
                 const std::string &fallback)
{
    if (rc == ok)
        return;
    for (const ResultText &t : texts) {
        if (t.rc != rc)
            continue;
        if (t.usage)
            throw UsageError(Fill(t.text, subject, rc));
        throw Failure(Fill(t.text, subject, rc));
    }
    throw Failure(Fill(fallback, subject, rc));
}

int RunGroup(const Group &group, const std::vector<std::string> &argv)
{
    if (argv.empty())
        throw UsageError(std::string("missing command") + HelpHint(group, nullptr));
    if (IsHelp(argv[0])) {
        PrintGroupHelp(group, stdout);
        return kExitOk;
    }
    const Command *command = nullptr;
    for (const Command &c : group.commands)
        if (argv[0] == c.name)
            command = &c;
    if (!command)
        throw UsageError("unknown command '" + argv[0] + "' for '" + Where(group, nullptr) + "'" +
                         HelpHint(group, nullptr));

    // Help wins over everything else on the line, so it works even when the
    // rest is incomplete.
    for (std::size_t i = 1; i < argv.size() && argv[i] != "--"; ++i) {
        if (IsHelp(argv[i])) {
            PrintCommandHelp(group, *command, stdout);
            return kExitOk;
        }
    }

    Args args;
    ssotools::WalkCommandLine(
        argv, 1, LooksLikeOption, [&](const std::string &arg) { args.positional.push_back(arg); },
        [&](const ssotools::OptionWord &word, const std::string *next) {
            const Option *option = FindOption(*command, word.name);
            if (!option)
                throw UsageError("unknown option '" + word.name + "'" + HelpHint(group, command));
            if (!option->value_name && word.inline_value)
                throw UsageError("option '" + word.name + "' takes no value");
            if (option->value_name && !word.inline_value && !next)
                throw UsageError("option '" + word.name + "' needs a value" +
                                 HelpHint(group, command));
            const bool takes_next = option->value_name && !word.inline_value;
            args.options[word.name] = takes_next ? *next : word.inline_value.value_or("");
            return takes_next;
        });

    std::size_t n = args.positional.size();
    if (n < command->min_args)
        throw UsageError("missing argument; usage: " + Where(group, command) + " " +
                         command->synopsis);
    if (n > command->max_args)
        throw UsageError("too many arguments; usage: " + Where(group, command) + " " +
                         command->synopsis);
    if (group.needs_root)
        RequirePlatformRoot();
    return command->run(args);
}

} // namespace ssoplatform
