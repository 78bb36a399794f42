// app_control in process: handles, their fields and extra data with bad
// input, the callee side in a process that was not launched, the application
// registry library, and launch requests that fail before any process starts.
#include <app_control.h>
#include <app_control_registry.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "app_control_test_util.h"
#include "sso_test_harness.h"

namespace {

using apptest::Extras;
using apptest::ExtrasOf;

// Owns a handle for the length of a test.
class Handle {
public:
    Handle() { EXPECT_EQ(APP_CONTROL_ERROR_NONE, app_control_create(&h_)); }
    explicit Handle(app_control_h h) : h_(h) {}
    ~Handle()
    {
        if (h_)
            app_control_destroy(h_);
    }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    app_control_h get() const { return h_; }
    operator app_control_h() const { return h_; }

private:
    app_control_h h_ = nullptr;
};

std::string Take(char *s)
{
    std::string out = s ? s : "<null>";
    std::free(s);
    return out;
}

std::string AppId(app_control_h h)
{
    char *s = reinterpret_cast<char *>(1);
    EXPECT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_app_id(h, &s));
    return Take(s);
}

std::string Operation(app_control_h h)
{
    char *s = reinterpret_cast<char *>(1);
    EXPECT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_operation(h, &s));
    return Take(s);
}

std::string Extra(app_control_h h, const char *key)
{
    char *s = nullptr;
    int rc = app_control_get_extra_data(h, key, &s);
    if (rc != APP_CONTROL_ERROR_NONE)
        return "<rc " + std::to_string(rc) + ">";
    return Take(s);
}

// ---- handles ----

TEST(AppControlHandle, ANewHandleIsEmpty)
{
    Handle h;
    ASSERT_NE(nullptr, h.get());
    EXPECT_EQ("<null>", AppId(h));
    EXPECT_EQ("<null>", Operation(h));
    app_control_launch_mode_e mode = APP_CONTROL_LAUNCH_MODE_GROUP;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_launch_mode(h, &mode));
    EXPECT_EQ(APP_CONTROL_LAUNCH_MODE_SINGLE, mode);
    EXPECT_TRUE(ExtrasOf(h).empty());
}

TEST(AppControlHandle, NullArgumentsAreRejected)
{
    Handle h;
    char *s = nullptr;
    app_control_launch_mode_e mode;
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_create(nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_destroy(nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_clone(nullptr, h));
    app_control_h clone = nullptr;
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_clone(&clone, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_set_app_id(nullptr, "a"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_app_id(nullptr, &s));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_app_id(h, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_set_operation(nullptr, "op"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_operation(nullptr, &s));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_operation(h, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_set_launch_mode(nullptr, APP_CONTROL_LAUNCH_MODE_GROUP));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_launch_mode(nullptr, &mode));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_launch_mode(h, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_add_extra_data(nullptr, "k", "v"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_extra_data(nullptr, "k", &s));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_remove_extra_data(nullptr, "k"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_foreach_extra_data(nullptr, apptest::CollectKey, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_foreach_extra_data(h, nullptr, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_send_launch_request(nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, s);
}

TEST(AppControlHandle, AppIdSetGetAndClear)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.account.signin"));
    EXPECT_EQ("org.orvex.account.signin", AppId(h));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "other app/with slash"));
    EXPECT_EQ("other app/with slash", AppId(h));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, nullptr));
    EXPECT_EQ("<null>", AppId(h));
}

TEST(AppControlHandle, UnusableAppIdsAreRejectedAndKeepTheOldOne)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "good.id"));
    for (const std::string &bad :
         {std::string(""), std::string("new\nline"), std::string(256, 'a'), std::string(90, '/')})
        EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_set_app_id(h, bad.c_str()))
            << bad.size();
    EXPECT_EQ("good.id", AppId(h));
}

TEST(AppControlHandle, OperationSetGetAndClear)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              app_control_set_operation(h, "org.orvex.platform.appcontrol.operation.SIGNIN"));
    EXPECT_EQ("org.orvex.platform.appcontrol.operation.SIGNIN", Operation(h));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_set_operation(h, ""));
    EXPECT_EQ("org.orvex.platform.appcontrol.operation.SIGNIN", Operation(h));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_operation(h, nullptr));
    EXPECT_EQ("<null>", Operation(h));
    EXPECT_STREQ("org.orvex.platform.appcontrol.operation.DEFAULT", APP_CONTROL_OPERATION_DEFAULT);
}

TEST(AppControlHandle, LaunchModeSetGetAndBadValues)
{
    Handle h;
    app_control_launch_mode_e mode = APP_CONTROL_LAUNCH_MODE_SINGLE;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              app_control_set_launch_mode(h, APP_CONTROL_LAUNCH_MODE_GROUP));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_launch_mode(h, &mode));
    EXPECT_EQ(APP_CONTROL_LAUNCH_MODE_GROUP, mode);
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_set_launch_mode(h, static_cast<app_control_launch_mode_e>(7)));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_set_launch_mode(h, static_cast<app_control_launch_mode_e>(-1)));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_launch_mode(h, &mode));
    EXPECT_EQ(APP_CONTROL_LAUNCH_MODE_GROUP, mode);
}

// ---- extra data ----

TEST(AppControlExtras, AddGetAndReplaceInPlace)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "first", "1"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "second", "2"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "third", "3"));
    EXPECT_EQ("2", Extra(h, "second"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "second", "two"));
    EXPECT_EQ("two", Extra(h, "second"));
    EXPECT_EQ((Extras{{"first", "1"}, {"second", "two"}, {"third", "3"}}), ExtrasOf(h));
}

TEST(AppControlExtras, GetGivesACopyTheCallerFrees)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "k", "value"));
    char *a = nullptr;
    char *b = nullptr;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_extra_data(h, "k", &a));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_extra_data(h, "k", &b));
    EXPECT_NE(a, b);
    a[0] = 'X';
    EXPECT_STREQ("value", b);
    EXPECT_EQ("value", Extra(h, "k"));
    std::free(a);
    std::free(b);
}

TEST(AppControlExtras, AMissingKeyIsKeyNotFoundAndLeavesTheOutput)
{
    Handle h;
    char *value = reinterpret_cast<char *>(0x1);
    EXPECT_EQ(APP_CONTROL_ERROR_KEY_NOT_FOUND, app_control_get_extra_data(h, "absent", &value));
    EXPECT_EQ(reinterpret_cast<char *>(0x1), value);
    EXPECT_EQ(APP_CONTROL_ERROR_KEY_NOT_FOUND, app_control_remove_extra_data(h, "absent"));
}

TEST(AppControlExtras, EmptyAndOddValuesAreKept)
{
    Handle h;
    const std::string odd = "line1\nline2=with%signs \xc3\xa9";
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "empty", ""));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "odd key=%", odd.c_str()));
    EXPECT_EQ("", Extra(h, "empty"));
    EXPECT_EQ(odd, Extra(h, "odd key=%"));
}

TEST(AppControlExtras, BadKeysAndValuesAreRejected)
{
    Handle h;
    char *value = nullptr;
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_add_extra_data(h, nullptr, "v"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_add_extra_data(h, "", "v"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_add_extra_data(h, "k", nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_extra_data(h, nullptr, &value));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_extra_data(h, "", &value));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_extra_data(h, "k", nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_remove_extra_data(h, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_remove_extra_data(h, ""));
    EXPECT_TRUE(ExtrasOf(h).empty());
}

TEST(AppControlExtras, RemoveKeepsTheOrderOfTheRest)
{
    Handle h;
    for (const char *k : {"a", "b", "c", "d"})
        ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, k, k));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_remove_extra_data(h, "b"));
    EXPECT_EQ((Extras{{"a", "a"}, {"c", "c"}, {"d", "d"}}), ExtrasOf(h));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_remove_extra_data(h, "d"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "b", "again"));
    EXPECT_EQ((Extras{{"a", "a"}, {"c", "c"}, {"b", "again"}}), ExtrasOf(h));
}

TEST(AppControlExtras, ManyExtras)
{
    Handle h;
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(APP_CONTROL_ERROR_NONE,
                  app_control_add_extra_data(h, ("key" + std::to_string(i)).c_str(),
                                             std::to_string(i * 7).c_str()));
    EXPECT_EQ(1000u, ExtrasOf(h).size());
    EXPECT_EQ("6993", Extra(h, "key999"));
}

struct Visit {
    std::vector<std::string> keys;
    size_t stop_after = 1000;
    bool modify = false;
};

bool VisitKey(app_control_h h, const char *key, void *data) noexcept
{
    auto *v = static_cast<Visit *>(data);
    v->keys.push_back(key);
    if (v->modify) {
        app_control_remove_extra_data(h, key);
        app_control_add_extra_data(h, (std::string("new.") + key).c_str(), "x");
    }
    return v->keys.size() < v->stop_after;
}

TEST(AppControlExtras, ForeachVisitsInOrderAndStopsOnFalse)
{
    Handle h;
    for (const char *k : {"z", "a", "m"})
        ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, k, "v"));
    Visit all;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_foreach_extra_data(h, VisitKey, &all));
    EXPECT_EQ((std::vector<std::string>{"z", "a", "m"}), all.keys);
    Visit two;
    two.stop_after = 2;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_foreach_extra_data(h, VisitKey, &two));
    EXPECT_EQ((std::vector<std::string>{"z", "a"}), two.keys);
    Handle empty;
    Visit none;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_foreach_extra_data(empty, VisitKey, &none));
    EXPECT_TRUE(none.keys.empty());
}

TEST(AppControlExtras, ForeachToleratesChangesFromTheCallback)
{
    Handle h;
    for (const char *k : {"a", "b", "c"})
        ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, k, "v"));
    Visit v;
    v.modify = true;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_foreach_extra_data(h, VisitKey, &v));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), v.keys);
    EXPECT_EQ((Extras{{"new.a", "x"}, {"new.b", "x"}, {"new.c", "x"}}), ExtrasOf(h));
}

TEST(AppControlHandle, CloneIsADeepCopy)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.a"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_operation(h, "op"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE,
              app_control_set_launch_mode(h, APP_CONTROL_LAUNCH_MODE_GROUP));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "k", "v"));
    app_control_h raw = nullptr;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_clone(&raw, h));
    Handle clone(raw);
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_add_extra_data(h, "k", "changed"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.b"));
    EXPECT_EQ("org.orvex.a", AppId(clone));
    EXPECT_EQ("op", Operation(clone));
    app_control_launch_mode_e mode = APP_CONTROL_LAUNCH_MODE_SINGLE;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_launch_mode(clone, &mode));
    EXPECT_EQ(APP_CONTROL_LAUNCH_MODE_GROUP, mode);
    EXPECT_EQ((Extras{{"k", "v"}}), ExtrasOf(clone));
}

// ---- the callee side, in a process that was not launched ----

TEST(AppControlCallee, AProcessNotLaunchedHasNoRequest)
{
    app_control_h request = reinterpret_cast<app_control_h>(0x1);
    EXPECT_EQ(APP_CONTROL_ERROR_NO_LAUNCH_REQUEST, app_control_get_launch_request(&request));
    EXPECT_EQ(reinterpret_cast<app_control_h>(0x1), request);
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_launch_request(nullptr));
}

TEST(AppControlCallee, HandlesThatAreNotReceivedRequestsCannotBeRepliedTo)
{
    Handle request;
    Handle reply;
    char *caller = nullptr;
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_caller(request, &caller));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_caller(nullptr, &caller));
    EXPECT_EQ(nullptr, caller);
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_reply_to_launch_request(reply, request, APP_CONTROL_RESULT_SUCCEEDED));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_reply_to_launch_request(reply, nullptr, APP_CONTROL_RESULT_SUCCEEDED));
}

// ---- the registry library ----

class AppRegistry : public ssotest::RootTest {
protected:
    std::string EntryFile(const std::string &encoded) const
    {
        return root_.path() + "/apps/" + encoded;
    }
};

struct Listed {
    std::vector<std::pair<std::string, std::string>> apps;
    size_t stop_after = 1000;
};

bool ListApp(const char *id, const char *exec, void *data) noexcept
{
    auto *l = static_cast<Listed *>(data);
    l->apps.emplace_back(id, exec);
    return l->apps.size() < l->stop_after;
}

Listed List(size_t stop_after = 1000)
{
    Listed l;
    l.stop_after = stop_after;
    EXPECT_EQ(APP_CONTROL_ERROR_NONE, app_control_foreach_registered_app(ListApp, &l));
    return l;
}

TEST_F(AppRegistry, RegisterGetUnregister)
{
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("org.orvex.a", "/usr/bin/a"));
    char *exec = nullptr;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_app_exec("org.orvex.a", &exec));
    EXPECT_STREQ("/usr/bin/a", exec);
    std::free(exec);
    EXPECT_EQ("/usr/bin/a\n", apptest::ReadWholeFile(EntryFile("org.orvex.a")));

    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("org.orvex.a", "/opt/a2"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_get_app_exec("org.orvex.a", &exec));
    EXPECT_STREQ("/opt/a2", exec);
    std::free(exec);

    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_unregister_app("org.orvex.a"));
    exec = nullptr;
    EXPECT_EQ(APP_CONTROL_ERROR_APP_NOT_FOUND, app_control_get_app_exec("org.orvex.a", &exec));
    EXPECT_EQ(nullptr, exec);
    EXPECT_EQ(APP_CONTROL_ERROR_APP_NOT_FOUND, app_control_unregister_app("org.orvex.a"));
}

TEST_F(AppRegistry, ForeachListsWellFormedEntriesInIdOrder)
{
    EXPECT_TRUE(List().apps.empty());
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("zeta", "/z"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("alpha/with slash", "/a"));
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("mid", "/m"));
    // Strays the registry never writes are skipped.
    std::ofstream(EntryFile("broken")) << "relative/path\n";
    std::ofstream(EntryFile("%2fnot-canonical")) << "/x\n";
    std::ofstream(EntryFile(".mid.tmp123")) << "/x\n";
    Listed l = List();
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{
                  {"alpha/with slash", "/a"}, {"mid", "/m"}, {"zeta", "/z"}}),
              l.apps);
    EXPECT_EQ(1u, List(1).apps.size());
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_foreach_registered_app(nullptr, nullptr));
}

TEST_F(AppRegistry, MalformedEntriesReadAsIoErrors)
{
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_register_app("ok", "/ok"));
    for (const std::string &content : {std::string(""), std::string("relative\n"),
                                       std::string("/two\nlines\n"), std::string("\n")}) {
        std::ofstream(EntryFile("bad"), std::ios::trunc) << content;
        char *exec = nullptr;
        EXPECT_EQ(APP_CONTROL_ERROR_IO_ERROR, app_control_get_app_exec("bad", &exec)) << content;
        EXPECT_EQ(nullptr, exec);
    }
}

TEST_F(AppRegistry, BadArgumentsAreRejected)
{
    char *exec = nullptr;
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app(nullptr, "/a"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app("", "/a"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app("a\n", "/a"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app("a", nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app("a", ""));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app("a", "relative"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_register_app("a", "/new\nline"));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_unregister_app(nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_app_exec(nullptr, &exec));
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER, app_control_get_app_exec("a", nullptr));
    EXPECT_TRUE(List().apps.empty());
}

TEST_F(AppRegistry, AnUnusableRegistryIsAnIoError)
{
    std::ofstream(root_.path() + "/apps") << "not a directory";
    EXPECT_EQ(APP_CONTROL_ERROR_IO_ERROR, app_control_register_app("a", "/a"));
    char *exec = nullptr;
    EXPECT_EQ(APP_CONTROL_ERROR_IO_ERROR, app_control_get_app_exec("a", &exec));
    Listed l;
    EXPECT_EQ(APP_CONTROL_ERROR_IO_ERROR, app_control_foreach_registered_app(ListApp, &l));
}

// ---- launches that fail before a process starts ----

int g_calls = 0;
void CountCall(app_control_h, app_control_h, app_control_result_e, void *) noexcept
{
    ++g_calls;
}

TEST_F(AppRegistry, LaunchWithoutAnAppIdIsInvalid)
{
    Handle h;
    EXPECT_EQ(APP_CONTROL_ERROR_INVALID_PARAMETER,
              app_control_send_launch_request(h, CountCall, nullptr));
}

TEST_F(AppRegistry, LaunchOfAnUnknownAppFailsAtOnce)
{
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.nobody"));
    EXPECT_EQ(APP_CONTROL_ERROR_APP_NOT_FOUND,
              app_control_send_launch_request(h, CountCall, nullptr));
    EXPECT_EQ(APP_CONTROL_ERROR_APP_NOT_FOUND,
              app_control_send_launch_request(h, nullptr, nullptr));
    // Nothing was attached: a context iteration finds nothing to dispatch.
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(0, g_calls);
}

TEST_F(AppRegistry, LaunchOfAMissingProgramFails)
{
    ASSERT_EQ(
        APP_CONTROL_ERROR_NONE,
        app_control_register_app("org.orvex.gone", (root_.path() + "/no-such-program").c_str()));
    std::ofstream(root_.path() + "/not-executable") << "#!/bin/sh\n";
    chmod((root_.path() + "/not-executable").c_str(), 0644);
    ASSERT_EQ(
        APP_CONTROL_ERROR_NONE,
        app_control_register_app("org.orvex.noexec", (root_.path() + "/not-executable").c_str()));
    for (const char *id : {"org.orvex.gone", "org.orvex.noexec"}) {
        Handle h;
        ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, id));
        // Even root cannot execute a file without any execute bit.
        EXPECT_EQ(APP_CONTROL_ERROR_LAUNCH_FAILED,
                  app_control_send_launch_request(h, CountCall, nullptr))
            << id;
    }
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(0, g_calls);
    // The failed start left no process behind, not even a zombie.
    EXPECT_FALSE(apptest::HasChildren());
}

TEST_F(AppRegistry, LaunchOfAMalformedRegistrationFails)
{
    std::string dir = root_.path() + "/apps";
    mkdir(dir.c_str(), 0755);
    std::ofstream(dir + "/org.orvex.broken") << "not/absolute\n";
    Handle h;
    ASSERT_EQ(APP_CONTROL_ERROR_NONE, app_control_set_app_id(h, "org.orvex.broken"));
    EXPECT_EQ(APP_CONTROL_ERROR_IO_ERROR, app_control_send_launch_request(h, CountCall, nullptr));
    EXPECT_EQ(0, g_calls);
}

} // namespace
