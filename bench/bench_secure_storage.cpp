// Costs of the secure storage on the library's paths: reading the account
// document (every signed-in check that goes to disk) and writing it (every
// account change), for a 4 KiB opaque item and a document of six accounts,
// through the storage service as applications do (BM_SsRead, BM_SsWrite) and
// in the service's own store (BM_StoreRead, BM_StoreWrite): the difference is
// the connection and the copies. Each operation reads the device key, derives
// the credential key and runs AES-GCM, since nothing is cached between calls.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <ss_manager.h>
#include <ss_store.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_temp_root.h"

namespace {

// A private platform root for one benchmark run, with a storage service of
// its own (sso-storaged from this program's directory, killed by pid and
// with this process), removed afterwards.
class TempRoot : public ssobench::TempRoot {
public:
    explicit TempRoot(bool with_service = true) : ssobench::TempRoot("sso-bench-ss-")
    {
        service_ok_ = !ssobench::TempRoot::ok() || !with_service || StartService();
    }
    ~TempRoot()
    {
        if (service_ > 0) {
            kill(service_, SIGKILL);
            waitpid(service_, nullptr, 0);
        }
    }

    bool ok() const { return ssobench::TempRoot::ok() && service_ok_; }

private:
    bool StartService()
    {
        char self[PATH_MAX];
        ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
        if (n <= 0)
            return false;
        self[n] = '\0';
        const std::string exe = std::string(self, strrchr(self, '/')) + "/sso-storaged";
        int fds[2];
        if (pipe(fds) != 0)
            return false;
        service_ = fork();
        if (service_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(fds[1], 1);
            close(fds[0]);
            execl(exe.c_str(), exe.c_str(), "--root", path().c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
        close(fds[1]);
        // Its "ready" line, or EOF when it could not start.
        std::string out;
        char c;
        while (out.find("ready\n") == std::string::npos && read(fds[0], &c, 1) == 1)
            out += c;
        close(fds[0]);
        return out.find("ready\n") != std::string::npos;
    }

    bool service_ok_ = false;
    pid_t service_ = -1;
};

ss_credential_t Credential()
{
    ss_uuid_t uuid;
    uuid.word[0] = 0x5f0a93c2d1e84b7aull;
    uuid.word[1] = 0xa6e2c90b3f17d845ull;
    ss_credential_t c;
    ss_init_credential(&c, 0x53534F41u, &uuid, SS_FLAG_INIT);
    return c;
}

std::string OpaqueItem()
{
    std::string s(4096, '\0');
    for (size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char>((i * 2654435761u) >> 11);
    return s;
}

// Six accounts as the service stores them, about 3 KiB.
std::string AccountsDocument()
{
    std::string doc = "{\"version\":1,\"accounts\":[";
    for (int i = 0; i < 6; ++i) {
        std::string n = std::to_string(i);
        if (i)
            doc += ",";
        doc += "{\"guid\":\"9c1e7a40-55d2-4f0b-8e61-0a4b3c2d1e" + n + "0\",";
        doc += "\"login_id\":\"user" + n + "@example.com\",";
        doc += "\"display_name\":\"Family Member " + n + "\",";
        doc += "\"image_url\":\"https://img.example.com/profiles/" + n + "/" +
               std::string(48, static_cast<char>('0' + i)) + ".jpg\",";
        doc += "\"country\":\"DE\",\"birth_date\":\"19850" + n + "12\",";
        doc += "\"access_token\":\"" + std::string(96, static_cast<char>('a' + i)) + "\",";
        doc += "\"refresh_token\":\"" + std::string(96, static_cast<char>('A' + i)) + "\",";
        doc += "\"expires_at\":17700000" + n + "0,\"is_main\":" + (i == 0 ? "true" : "false");
        doc += "}";
    }
    doc += "]}";
    return doc;
}

const std::string &Payload(int which)
{
    static const std::string opaque = OpaqueItem();
    static const std::string accounts = AccountsDocument();
    return which == 0 ? opaque : accounts;
}

void BM_SsRead(benchmark::State &state)
{
    TempRoot root;
    ss_credential_t cred = Credential();
    const std::string &data = Payload(static_cast<int>(state.range(0)));
    if (!root.ok() || ss_write("bench", reinterpret_cast<const unsigned char *>(data.data()),
                               data.size(), &cred, 0) != SS_ERROR_NONE) {
        state.SkipWithError("cannot prepare the store");
        return;
    }
    for (auto _ : state) {
        unsigned char *buffer = nullptr;
        size_t length = 0;
        if (ss_read(&buffer, &length, nullptr, nullptr, "bench", &cred, SS_FLAG_READ) !=
            SS_ERROR_NONE) {
            state.SkipWithError("ss_read failed");
            break;
        }
        benchmark::DoNotOptimize(buffer);
        ss_free_buffer(buffer);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
    state.SetLabel(std::to_string(data.size()) + " bytes");
}
BENCHMARK(BM_SsRead)->ArgName("accounts")->Arg(0)->Arg(1)->MinTime(0.3);

void BM_SsWrite(benchmark::State &state)
{
    TempRoot root;
    ss_credential_t cred = Credential();
    const std::string &data = Payload(static_cast<int>(state.range(0)));
    if (!root.ok()) {
        state.SkipWithError("cannot prepare the store");
        return;
    }
    for (auto _ : state) {
        if (ss_write("bench", reinterpret_cast<const unsigned char *>(data.data()), data.size(),
                     &cred, 0) != SS_ERROR_NONE) {
            state.SkipWithError("ss_write failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
    state.SetLabel(std::to_string(data.size()) + " bytes");
}
BENCHMARK(BM_SsWrite)->ArgName("accounts")->Arg(0)->Arg(1)->MinTime(0.3);

void BM_StoreRead(benchmark::State &state)
{
    TempRoot root(false);
    ss_credential_t cred = Credential();
    const std::string &data = Payload(static_cast<int>(state.range(0)));
    if (!root.ok() || ss_store_prepare() != SS_ERROR_NONE ||
        ss_store_write("bench", reinterpret_cast<const unsigned char *>(data.data()), data.size(),
                       &cred) != SS_ERROR_NONE) {
        state.SkipWithError("cannot prepare the store");
        return;
    }
    for (auto _ : state) {
        unsigned char *buffer = nullptr;
        size_t length = 0;
        if (ss_store_read("bench", &cred, &buffer, &length) != SS_ERROR_NONE) {
            state.SkipWithError("ss_store_read failed");
            break;
        }
        benchmark::DoNotOptimize(buffer);
        ss_store_free(buffer, length);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
    state.SetLabel(std::to_string(data.size()) + " bytes");
}
BENCHMARK(BM_StoreRead)->ArgName("accounts")->Arg(0)->Arg(1)->MinTime(0.3);

void BM_StoreWrite(benchmark::State &state)
{
    TempRoot root(false);
    ss_credential_t cred = Credential();
    const std::string &data = Payload(static_cast<int>(state.range(0)));
    if (!root.ok() || ss_store_prepare() != SS_ERROR_NONE) {
        state.SkipWithError("cannot prepare the store");
        return;
    }
    for (auto _ : state) {
        if (ss_store_write("bench", reinterpret_cast<const unsigned char *>(data.data()),
                           data.size(), &cred) != SS_ERROR_NONE) {
            state.SkipWithError("ss_store_write failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
    state.SetLabel(std::to_string(data.size()) + " bytes");
}
BENCHMARK(BM_StoreWrite)->ArgName("accounts")->Arg(0)->Arg(1)->MinTime(0.3);

} // namespace

BENCHMARK_MAIN();
