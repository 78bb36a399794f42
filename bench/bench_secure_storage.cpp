// Costs of the secure storage on the library's paths: reading the account
// document (every signed-in check that goes to disk) and writing it (every
// account change), for a 4 KiB opaque item and a document of six accounts.
// Each operation reads the device key, derives the credential key and runs
// AES-GCM, since nothing is cached between calls.
#include <benchmark/benchmark.h>
#include <ss_manager.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

// A private platform root for one benchmark run, removed afterwards.
class TempRoot {
public:
    TempRoot()
    {
        const char *tmp = std::getenv("TMPDIR");
        std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/sso-bench-ss-XXXXXX";
        std::vector<char> buf(templ.begin(), templ.end());
        buf.push_back('\0');
        if (mkdtemp(buf.data()))
            path_ = buf.data();
        if (!path_.empty())
            setenv("SSO_PLATFORM_ROOT", path_.c_str(), 1);
    }
    ~TempRoot()
    {
        if (path_.empty())
            return;
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
        unsetenv("SSO_PLATFORM_ROOT");
    }
    TempRoot(const TempRoot &) = delete;
    TempRoot &operator=(const TempRoot &) = delete;

    bool ok() const { return !path_.empty(); }

private:
    std::string path_;
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

} // namespace

BENCHMARK_MAIN();
