// A launchable application for the tests: it reads its launch request,
// records what it received, and then behaves as the request's extras (or its
// environment) script it.
//
// Script (extras; the environment variable in brackets is the fallback):
//   test_app.action     [SSO_TEST_APP_ACTION] what to do after recording:
//                         succeed (default)  reply APP_CONTROL_RESULT_SUCCEEDED
//                         fail               reply APP_CONTROL_RESULT_FAILED
//                         cancel             reply APP_CONTROL_RESULT_CANCELED
//                         reply_twice        reply SUCCEEDED, then try again
//                         exit               exit without replying
//                         crash              abort() without replying
//                         hang               wait without replying until killed
//   test_app.record     [SSO_TEST_APP_RECORD] a file to record the request in
//   test_app.reply.KEY  VALUE: the reply carries KEY = VALUE
//   test_app.echo       "1": the reply also carries every request extra whose
//                       key does not start with "test_app."
//   test_app.exit_code  the exit status after replying (default 0)
//
// The record is written atomically (a temporary file renamed over the path),
// so a reader sees it whole or not at all. It holds one "name=value" line
// each for pid, env.SSO_PLATFORM_APP_ID, env.SSO_PLATFORM_ROOT,
// get_launch_request (the result code), app_id, caller, operation and
// launch_mode (single or group), then "extra.KEY=VALUE" per extra in the
// request's order. Names and values are percent-escaped ('%', '=', CR, LF and
// other control bytes as %XX). After replying, the app writes
// "<record>.reply" the same way with reply (the first reply's result code)
// and, for reply_twice, second_reply.
//
// Exit status: exit_code after a reply or "exit"; 3 when the process was not
// launched with a request. The app gets SIGKILL when the thread that launched
// it ends (parent death signal), so a hanging one never outlives a test.
#include <signal.h>
#include <unistd.h>

#include <app_control.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "../../tools/common/launch_record.h"

namespace {

constexpr const char *kPrefix = "test_app.";
constexpr const char *kReplyPrefix = "test_app.reply.";

using ssotools::Env;
using ssotools::WriteRecord;
using Lines = ssotools::RecordLines;

// The value of an extra, or fallback when absent.
std::string Extra(app_control_h h, const std::string &key, const std::string &fallback = "")
{
    char *value = nullptr;
    if (app_control_get_extra_data(h, key.c_str(), &value) != APP_CONTROL_ERROR_NONE)
        return fallback;
    return ssotools::Owned(value);
}

int Run()
{
    // Die with the launcher; never leave a core file behind on "crash".
    ssotools::DieWithLauncher();

    app_control_h request = nullptr;
    int rc = app_control_get_launch_request(&request);
    Lines record = {
        {"pid", std::to_string(getpid())},
        {"env.SSO_PLATFORM_APP_ID", Env("SSO_PLATFORM_APP_ID")},
        {"env.SSO_PLATFORM_ROOT", Env("SSO_PLATFORM_ROOT")},
        {"get_launch_request", std::to_string(rc)},
    };
    if (rc != APP_CONTROL_ERROR_NONE) {
        WriteRecord(Env("SSO_TEST_APP_RECORD"), record);
        return 3;
    }

    ssotools::RecordRequest(request, record);
    const std::vector<std::string> keys = ssotools::ExtraKeys(request);

    const std::string record_path = Extra(request, "test_app.record", Env("SSO_TEST_APP_RECORD"));
    const std::string action = Extra(request, "test_app.action", Env("SSO_TEST_APP_ACTION"));
    const int exit_code = std::atoi(Extra(request, "test_app.exit_code", "0").c_str());
    WriteRecord(record_path, record);

    if (action == "exit") {
        app_control_destroy(request);
        return exit_code;
    }
    if (action == "crash")
        std::abort();
    if (action == "hang") {
        for (;;)
            pause();
    }

    app_control_h reply = nullptr;
    app_control_create(&reply);
    const bool echo = Extra(request, "test_app.echo") == "1";
    for (const std::string &key : keys) {
        if (key.compare(0, std::strlen(kReplyPrefix), kReplyPrefix) == 0)
            app_control_add_extra_data(reply, key.c_str() + std::strlen(kReplyPrefix),
                                       Extra(request, key).c_str());
        else if (echo && key.compare(0, std::strlen(kPrefix), kPrefix) != 0)
            app_control_add_extra_data(reply, key.c_str(), Extra(request, key).c_str());
    }
    app_control_result_e result = APP_CONTROL_RESULT_SUCCEEDED;
    if (action == "fail")
        result = APP_CONTROL_RESULT_FAILED;
    else if (action == "cancel")
        result = APP_CONTROL_RESULT_CANCELED;
    Lines replied = {
        {"reply", std::to_string(app_control_reply_to_launch_request(reply, request, result))}};
    if (action == "reply_twice")
        replied.emplace_back("second_reply", std::to_string(app_control_reply_to_launch_request(
                                                 reply, request, result)));
    if (!record_path.empty())
        WriteRecord(record_path + ".reply", replied);
    app_control_destroy(reply);
    app_control_destroy(request);
    return exit_code;
}

} // namespace

int main()
{
    return ssotools::RunLaunched(Run);
}
