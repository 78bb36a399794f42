// Local account getters against a bare read of one settings key, and the
// reload of a six-account document after a data-version bump.
#include <sso_api/sso_api.h>

#include <chrono>
#include <cstdlib>

#include "account_documents.h"
#include "bench_support.h"
#include "sso_ss_data_storage.h"
#include "sso_test_harness.h"

namespace {

void BM_VconfGetInt_Bare(benchmark::State &state)
{
    int value = 0;
    for (auto _ : state) {
        vconf_get_int("db/sso/login_status", &value);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_VconfGetInt_Bare)->Repetitions(3)->ReportAggregatesOnly(true);

void BM_GetLoginState(benchmark::State &state)
{
    sso_login_state login = SSO_NOT_LOGIN;
    for (auto _ : state) {
        sso_get_login_state(&login);
        benchmark::DoNotOptimize(login);
    }
}
BENCHMARK(BM_GetLoginState)->Repetitions(3)->ReportAggregatesOnly(true);

void BM_GetGuid_UnchangedVersion(benchmark::State &state)
{
    for (auto _ : state) {
        char *guid = nullptr;
        if (sso_get_guid(&guid) != 0) {
            state.SkipWithError("sso_get_guid failed");
            break;
        }
        free(guid);
    }
}
BENCHMARK(BM_GetGuid_UnchangedVersion)->Repetitions(3)->ReportAggregatesOnly(true);

void BM_GetLoginInfo_UnchangedVersion(benchmark::State &state)
{
    sso_login_info_s info;
    for (auto _ : state) {
        if (sso_get_login_info(&info) != 0) {
            state.SkipWithError("sso_get_login_info failed");
            break;
        }
        benchmark::DoNotOptimize(info);
    }
}
BENCHMARK(BM_GetLoginInfo_UnchangedVersion)->Repetitions(3)->ReportAggregatesOnly(true);

// Time of the first read after the service bumped the version: the secure
// storage read, the parse and the cache update.
void BM_ReloadAfterVersionBump_SixAccounts(benchmark::State &state)
{
    CSSOSSData *cache = SSOAPISingleton<CSSOSSData>::GetInstance();
    int version = 1000;
    for (auto _ : state) {
        vconf_set_int("memory/sso/public_data_ver", ++version);
        auto start = std::chrono::steady_clock::now();
        sso_accounts_info info = cache->GetAccountsInfo();
        auto end = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(info);
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
}
BENCHMARK(BM_ReloadAfterVersionBump_SixAccounts)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    ssotest::PlatformRoot root;
    // The platform's default log threshold and destination unless the caller
    // chose others.
    if (getenv("SSO_BENCH_LOG") != nullptr) {
        setenv("SSO_PLATFORM_LOG", getenv("SSO_BENCH_LOG"), 1);
    } else {
        unsetenv("SSO_PLATFORM_LOG");
    }
    unsetenv("SSO_PLATFORM_LOG_LEVEL");
    dlog_reload_config();
    std::vector<ssotest::TestAccount> accounts;
    for (int i = 1; i <= 6; ++i)
        accounts.push_back(ssotest::MakeAccount(i));
    ssotest::SignIn(accounts, 2);
    ssobench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios({{"BM_GetGuid_UnchangedVersion", "BM_VconfGetInt_Bare"},
                          {"BM_GetLoginInfo_UnchangedVersion", "BM_VconfGetInt_Bare"},
                          {"BM_GetLoginState", "BM_VconfGetInt_Bare"}});
    benchmark::Shutdown();
    return 0;
}
