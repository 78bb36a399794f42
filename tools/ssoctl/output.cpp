// Printing, masking and small parsers shared by every command.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "ssoctl.h"

namespace ssoctl {

std::string Invocation::Value(const std::string &option, const std::string &fallback) const
{
    auto it = values.find(option);
    return it == values.end() ? fallback : it->second;
}

const char *Invocation::Optional(const std::string &option) const
{
    auto it = values.find(option);
    return it == values.end() ? nullptr : it->second.c_str();
}

std::string Mask(const std::string &value, bool show)
{
    if (show || value.empty())
        return value;
    return value.substr(0, 6) + "\xE2\x80\xA6";
}

bool IsSecretKey(const std::string &key)
{
    std::string lower;
    for (char c : key)
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char *word : {"auth", "token", "passw", "guid", "secret"})
        if (lower.find(word) != std::string::npos)
            return true;
    return false;
}

void MaskSecrets(Json::Value &v)
{
    if (v.isObject()) {
        for (const std::string &name : v.getMemberNames()) {
            Json::Value &member = v[name];
            if (member.isString() && IsSecretKey(name))
                member = Mask(member.asString(), false);
            else
                MaskSecrets(member);
        }
    } else if (v.isArray()) {
        for (Json::Value &item : v)
            MaskSecrets(item);
    }
}

Json::Value ParseLoose(const std::string &text)
{
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && (text[first] == '{' || text[first] == '[')) {
        Json::Value v;
        Json::CharReaderBuilder reader;
        std::string errors;
        std::istringstream in(text);
        if (Json::parseFromStream(reader, in, &v, &errors))
            return v;
    }
    return Json::Value(text);
}

namespace {

std::string Write(const Json::Value &v, const char *indentation)
{
    Json::StreamWriterBuilder writer;
    writer["emitUTF8"] = true;
    writer["indentation"] = indentation;
    return Json::writeString(writer, v);
}

} // namespace

std::string CompactJson(const Json::Value &v)
{
    return Write(v, "");
}

std::string PrettyJson(const Json::Value &v)
{
    return Write(v, "  ");
}

void PrintLine(const std::string &line)
{
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void PrintJson(const Json::Value &v)
{
    PrintLine(CompactJson(v));
}

int Fail(const std::string &message, int code)
{
    std::fprintf(stderr, "ssoctl: %s\n", message.c_str());
    return code;
}

std::string ServiceAnswered(int code)
{
    const char *name = sso_service_result_name(code);
    std::string text = "service answered " + std::to_string(code);
    if (name != nullptr) {
        std::string words = name;
        for (char &c : words)
            if (c == '_')
                c = ' ';
        text += ": " + words;
    }
    return text;
}

std::string LastCause()
{
    const sso_error_e error = sso_last_error();
    switch (error) {
    case SSO_ERROR_NO_BUS: {
        const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
        return std::string("no bus at ") + (address != nullptr && *address != '\0'
                                                ? address
                                                : "unix:path=/var/run/dbus/system_bus_socket");
    }
    case SSO_ERROR_NOT_SIGNED_IN:
        return "not signed in";
    case SSO_ERROR_SERVICE_REFUSED:
        return ServiceAnswered(sso_last_service_answer());
    default:
        return sso_strerror(error);
    }
}

std::string LastCauseName()
{
    return sso_error_name(sso_last_error());
}

int FailWithCause(const Invocation &inv, const std::string &what)
{
    const std::string cause = LastCause();
    if (inv.json) {
        Json::Value v(Json::objectValue);
        v["ok"] = false;
        v["error"] = LastCauseName();
        PrintJson(v);
    }
    return Fail(what + ": " + cause, kExitFailed);
}

int UsageError(const Invocation &inv, const std::string &message)
{
    std::fprintf(stderr, "ssoctl %s: %s\nTry \"ssoctl %s --help\".\n", inv.command.c_str(),
                 message.c_str(), inv.command.c_str());
    return kExitUsage;
}

std::string TakeString(char *s)
{
    std::string out = s ? s : "";
    std::free(s);
    return out;
}

bool ReadSecret(const Invocation &inv, const std::string &option, std::string *out)
{
    auto it = inv.values.find(option);
    if (it == inv.values.end())
        return false;
    if (it->second != "-") {
        *out = it->second;
        return true;
    }
    std::string line;
    if (!std::getline(std::cin, line))
        return false;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    *out = line;
    return true;
}

bool ParseInt(const std::string &text, long lo, long hi, long *out)
{
    if (text.empty())
        return false;
    char *end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi)
        return false;
    *out = v;
    return true;
}

bool ParseBool(const std::string &text, bool *out)
{
    std::string t;
    for (char c : text)
        t += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (t == "1" || t == "yes" || t == "true" || t == "on") {
        *out = true;
        return true;
    }
    if (t == "0" || t == "no" || t == "false" || t == "off") {
        *out = false;
        return true;
    }
    return false;
}

bool Need(const Invocation &inv, const std::string &option, std::string *out, int *rc)
{
    if (!inv.Has(option)) {
        *rc = UsageError(inv, option + " is required");
        return false;
    }
    *out = inv.Value(option);
    return true;
}

bool NeedSecret(const Invocation &inv, const std::string &option, std::string *out, int *rc)
{
    if (!inv.Has(option)) {
        *rc = UsageError(inv, option + " is required");
        return false;
    }
    if (!ReadSecret(inv, option, out)) {
        *rc = UsageError(inv, "no line on stdin for " + option + " -");
        return false;
    }
    return true;
}

// ---- result reporting ----

Json::Value Outcome(bool ok, int result)
{
    Json::Value v(Json::objectValue);
    v["ok"] = ok;
    v["result"] = result;
    return v;
}

int ReportRefused(const Invocation &inv, const std::string &what, int ret)
{
    const std::string cause = LastCause();
    if (inv.json) {
        Json::Value v = Outcome(false, ret);
        v["refused"] = true;
        v["error"] = LastCauseName();
        if (sso_last_error() == SSO_ERROR_SERVICE_REFUSED) {
            const int answer = sso_last_service_answer();
            const char *name = sso_service_result_name(answer);
            v["service_answer"] = answer;
            v["service_answer_name"] = name != nullptr ? Json::Value(name) : Json::Value();
        }
        PrintJson(v);
    }
    return Fail(what + ": " + cause + " (result " + std::to_string(ret) + ")", kExitFailed);
}

int ReportFailedResult(const Invocation &inv, const std::string &what, int result,
                       const Json::Value &extra)
{
    if (inv.json) {
        Json::Value v = Outcome(false, result);
        // The service's own reason, by its name where it defines one.
        const char *name = sso_service_result_name(result);
        v["error"] = name != nullptr ? name : "service_result";
        if (extra.isObject())
            for (const std::string &member : extra.getMemberNames())
                v[member] = extra[member];
        PrintJson(v);
    }
    return Fail(what + ": " + ServiceAnswered(result), kExitFailed);
}

int FinishSecretText(const Invocation &inv, Pending *p, const std::string &what,
                     const std::string &key)
{
    if (p->result != 0)
        return ReportFailedResult(inv, what, p->result);
    std::string shown = Mask(p->texts.empty() ? "" : p->texts[0], inv.show_secrets);
    if (inv.json) {
        Json::Value v = Outcome(true, 0);
        v[key] = shown;
        PrintJson(v);
    } else {
        PrintLine(shown);
    }
    return kExitOk;
}

int FinishResponse(const Invocation &inv, Pending *p, const std::string &what,
                   const std::string &message)
{
    Json::Value response = ParseLoose(p->texts.empty() ? "" : p->texts[0]);
    if (!inv.show_secrets)
        MaskSecrets(response);
    if (p->result != 0) {
        Json::Value extra(Json::objectValue);
        if (!(response.isString() && response.asString().empty()))
            extra["response"] = response;
        return ReportFailedResult(inv, what, p->result, extra);
    }
    if (inv.json) {
        Json::Value v = Outcome(true, 0);
        v["response"] = response;
        PrintJson(v);
    } else if (!message.empty()) {
        PrintLine(message);
    } else {
        PrintLine(response.isString() ? response.asString() : PrettyJson(response));
    }
    return kExitOk;
}

int FinishPlain(const Invocation &inv, Pending *p, const std::string &what,
                const std::string &message)
{
    if (p->result != 0)
        return ReportFailedResult(inv, what, p->result);
    if (inv.json)
        PrintJson(Outcome(true, 0));
    else
        PrintLine(message);
    return kExitOk;
}

int ReportImmediate(const Invocation &inv, const std::string &what, int ret,
                    const std::string &message)
{
    if (ret != 0) {
        const std::string cause = LastCause();
        if (inv.json) {
            Json::Value v = Outcome(false, ret);
            v["error"] = LastCauseName();
            PrintJson(v);
        }
        return Fail(what + ": " + cause + " (result " + std::to_string(ret) + ")", kExitFailed);
    }
    if (inv.json)
        PrintJson(Outcome(true, ret));
    if (!inv.json)
        PrintLine(message);
    return kExitOk;
}

} // namespace ssoctl
