// Local account getters on an unchanged data version against a bare read of
// one settings key, and the first getter after the service bumped the data
// version of a six-account document (secure-storage read, parse, cache).
#include <sso_api/sso_api.h>
#include <vconf.h>

#include <cstdlib>
#include <cstring>

#include "account_documents.h"
#include "bench_support.h"

namespace {

// Each operation timed on its own: the nanoseconds, or -1 on failure.
template <typename Op> std::int64_t Timed(Op op)
{
    std::int64_t start = ssobench::NowNs();
    bool ok = op();
    std::int64_t end = ssobench::NowNs();
    return ok ? end - start : -1;
}

std::int64_t VconfRead()
{
    int value = 0;
    return Timed([&] { return vconf_get_int("db/sso/login_status", &value) == VCONF_OK; });
}

// The getters on an unchanged data version, each side by side with one bare
// read of a settings key.
void RegisterAll()
{
    ssobench::RegisterPair(
        "BM_GetGuid_UnchangedVersion", "BM_VconfGetInt_BareVsGuid",
        [] {
            char *guid = nullptr;
            std::int64_t ns = Timed([&] { return sso_get_guid(&guid) == 0; });
            free(guid);
            return ns;
        },
        VconfRead);
    ssobench::RegisterPair(
        "BM_GetLoginInfo_UnchangedVersion", "BM_VconfGetInt_BareVsLoginInfo",
        [] {
            sso_login_info_s info;
            return Timed([&] { return sso_get_login_info(&info) == 0; });
        },
        VconfRead);
    ssobench::RegisterPair(
        "BM_GetLoginState", "BM_VconfGetInt_BareVsLoginState",
        [] {
            sso_login_state login = SSO_NOT_LOGIN;
            return Timed([&] { return sso_get_login_state(&login) == 0; });
        },
        VconfRead);
}

// The first sso_get_guid after the service bumped the version: the version
// test, the secure-storage read, the parse and the cache update.
void BM_GetGuid_AfterVersionBump_SixAccounts(benchmark::State &state)
{
    int version = 1000;
    ssobench::Latencies latencies;
    for (auto _ : state) {
        vconf_set_int("memory/sso/public_data_ver", ++version);
        std::int64_t start = ssobench::NowNs();
        char *guid = nullptr;
        if (sso_get_guid(&guid) != 0) {
            state.SkipWithError("sso_get_guid failed");
            break;
        }
        std::int64_t end = ssobench::NowNs();
        free(guid);
        state.SetIterationTime(static_cast<double>(end - start) / 1e9);
        latencies.Add(end - start);
    }
    latencies.Report(state);
}
BENCHMARK(BM_GetGuid_AfterVersionBump_SixAccounts)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    ssobench::Initialize(&argc, &argv);
    ssobench::Environment env(false, false);
    std::vector<ssotest::TestAccount> accounts;
    for (int i = 1; i <= 6; ++i)
        accounts.push_back(ssotest::MakeAccount(i));
    ssotest::SignIn(accounts, 2);
    RegisterAll();
    ssobench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintPairs();
    benchmark::Shutdown();
    return 0;
}
