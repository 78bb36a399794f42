// Shared by the request tests: callbacks of every shape that record what
// they receive, the fixture (simulator running, a user signed in), and
// helpers that expand expected request tuples and read the journal.
#pragma once

#include <gio/gio.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "SSOAPIClientUtil.h"
#include "records.h"
#include "sso_api/sso_api.h"
#include "sso_api_private.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace reqtest {

inline constexpr const char *kAppId = "org.example.requests";
inline constexpr const char *kHotelFlag = "com.veltra/featureconf/product.b2b_option_support";

// One callback as the application saw it.
struct Call {
    std::string kind; // which recording callback ran
    std::string thread;
    void *userData = nullptr;
    int result = 0;
    std::vector<std::string> texts;
};

class Recorder : public ssotest::Records<Call> {
public:
    static Recorder &Get()
    {
        // Never destroyed: a late result can still arrive on the library's
        // thread while the process exits, before the library is unloaded.
        static Recorder *recorder = new Recorder();
        return *recorder;
    }
    void Add(const char *kind, void *userData, int result, std::vector<std::string> texts)
    {
        char name[32] = {0};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        Records::Add(Call{kind, name, userData, result, std::move(texts)});
    }
    std::vector<Call> Calls() const { return All(); }
};

inline std::string Text(const char *text)
{
    return text != nullptr ? text : "(null)";
}

// Application callbacks, one per shape.
inline int StringCb(void *ud, int result, char *text)
{
    Recorder::Get().Add("string", ud, result, {Text(text)});
    return 0;
}
inline int ResultOnlyCb(void *ud, int result)
{
    Recorder::Get().Add("result-only", ud, result, {});
    return 0;
}
inline int TwoStringsCb(void *ud, int result, char *birthday, char *url)
{
    Recorder::Get().Add("two-strings", ud, result, {Text(birthday), Text(url)});
    return 0;
}
// Records the success flag as the result.
inline int NameCheckCb(void *ud, bool success, char *birthDate, char *age, char *url)
{
    Recorder::Get().Add("name-check", ud, success ? 1 : 0, {Text(birthDate), Text(age), Text(url)});
    return 0;
}
inline int UserInfoCb(void *ud, int result, sso_user_info info)
{
    Recorder::Get().Add("user-info", ud, result,
                        {info.user_id, info.prefix_name, info.first_name, info.last_name,
                         info.birth_date, info.zip_code, info.mobile_num, info.receive_email,
                         info.auth});
    return 0;
}
inline int JsonCb(void *ud, int result, char *json)
{
    Recorder::Get().Add("json", ud, result, {Text(json)});
    return 0;
}

template <typename P> std::string Int(P pointer)
{
    return std::to_string(static_cast<long long>(reinterpret_cast<intptr_t>(pointer)));
}

// Replaces each "{key}" of pattern by its value.
inline std::string Expand(std::string pattern, const std::map<std::string, std::string> &values)
{
    for (const auto &entry : values) {
        const std::string key = "{" + entry.first + "}";
        for (size_t at = pattern.find(key); at != std::string::npos;
             at = pattern.find(key, at + entry.second.size()))
            pattern.replace(at, key.size(), entry.second);
    }
    return pattern;
}

inline std::string ObjectName()
{
    return "obj" + std::to_string(getpid()) + "_" + kAppId;
}

// The journal without the liveness checks some requests make first.
inline std::vector<ssotest::JournalEntry> Sent(ssotest::Simulator &sim)
{
    return sim.Requests();
}

// The ae_index of a journalled asynchronous request: the second to last
// field of its tuple text.
inline int AeIndexOf(const std::string &args)
{
    size_t last = args.rfind(", ");
    size_t before = args.rfind(", ", last - 1);
    return std::stoi(args.substr(before + 2, last - before - 2));
}

// The exact error line of the library, with its colours.
inline std::string Red(const std::string &text)
{
    return "\033[0;31m" + text + "\033[0m";
}

// The simulator up, two accounts registered, kim signed in.
class Requests : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        setenv("SSO_PLATFORM_APP_ID", kAppId, 1);
        SimulatorTest::SetUp();
        Recorder::Get().Clear();
        kimGuid_ = sim_.AddAccount(ssotest::KimAccount());
        leeGuid_ = sim_.AddAccount(ssotest::LeeAccount());
        if (SignInFirst())
            sim_.SignIn("kim@example.com");
    }

    virtual bool SignInFirst() const { return true; }

    // Lines the library wrote (the simulator logs to the same file).
    std::string LibraryLog() const
    {
        std::string out;
        for (const auto &line : log().Lines())
            if (line.find(" SSOAPIClient: ") != std::string::npos)
                out += line + "\n";
        return out;
    }

    bool WaitForCalls(size_t n) const
    {
        return ssotest::WaitUntil([n] { return Recorder::Get().Count() >= n; });
    }

    // An accepted request needing neither login nor liveness; its ae_index
    // shows how many indexes were taken before it.
    int NextAeIndex()
    {
        size_t before = Sent(sim_).size();
        EXPECT_EQ(sso_request_authcode_for_other_device("DSC-next", &StringCb, NextMarker()), 0);
        auto journal = Sent(sim_);
        if (journal.size() != before + 1)
            return -1;
        return AeIndexOf(journal.back().args);
    }

    // The user data of NextAeIndex's request.
    static void *NextMarker()
    {
        static int marker;
        return &marker;
    }

    // After NextAeIndex: its result is the one and only callback.
    void ExpectOnlyTheNextRequestCalledBack()
    {
        ASSERT_TRUE(WaitForCalls(1));
        auto calls = Recorder::Get().Calls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].userData, NextMarker());
    }

    std::string kimGuid_;
    std::string leeGuid_;
};

} // namespace reqtest
