// Reads the JSON output of the benchmark binaries (every repetition, not
// only the aggregates) and writes the performance report: each figure with
// its median, p99 and spread, and each target with the ratio measured in the
// same run and PASS or MISS.
//
//   bench_report --out DIR [--compare OLD_REPORT.json] RESULT.json...
//
// writes DIR/report.txt and DIR/report.json; with --compare, the text also
// shows how each figure and each target moved against an earlier report.
#include <json/json.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

// ------------------------------------------------------------ statistics

double Quantile(std::vector<double> v, double q)
{
    if (v.empty())
        return NAN;
    std::sort(v.begin(), v.end());
    double pos = q * static_cast<double>(v.size() - 1);
    size_t lo = static_cast<size_t>(std::floor(pos));
    size_t hi = std::min(lo + 1, v.size() - 1);
    return v[lo] + (v[hi] - v[lo]) * (pos - static_cast<double>(lo));
}

double Median(const std::vector<double> &v)
{
    return Quantile(v, 0.5);
}

double Stddev(const std::vector<double> &v)
{
    if (v.size() < 2)
        return 0;
    double mean = 0;
    for (double x : v)
        mean += x;
    mean /= static_cast<double>(v.size());
    double sum = 0;
    for (double x : v)
        sum += (x - mean) * (x - mean);
    return std::sqrt(sum / static_cast<double>(v.size() - 1));
}

// --------------------------------------------------------------- figures

// One benchmark's repetitions.
struct Figure {
    std::string name;           // "BM_CheckAlive_Library"
    std::string source;         // the binary's output file
    std::vector<double> timeNs; // per repetition: time per iteration
    std::vector<double> itemsPerSecond;
    std::map<std::string, std::vector<double>> counters;
    std::string label;
    std::string error;

    // The figure's values, one per repetition: the median of single
    // operations where the benchmark timed each one (robust against the
    // stalls a shared machine inflicts on a few of them), else the mean time
    // per iteration.
    const std::vector<double> &values() const
    {
        auto it = counters.find("p50_ns");
        return it != counters.end() && it->second.size() == timeNs.size() ? it->second : timeNs;
    }
    bool perOperation() const { return &values() != &timeNs; }
    double median() const { return Median(values()); }
    double meanPerIteration() const { return Median(timeNs); }
    double counterMedian(const std::string &c) const
    {
        auto it = counters.find(c);
        return it == counters.end() ? NAN : Median(it->second);
    }
    double counterSum(const std::string &c) const
    {
        auto it = counters.find(c);
        if (it == counters.end())
            return NAN;
        double s = 0;
        for (double x : it->second)
            s += x;
        return s;
    }
    // The 99th percentile of single operations when the benchmark recorded
    // them (median over repetitions), else of the repetitions themselves.
    double p99() const
    {
        double c = counterMedian("p99_ns");
        return std::isnan(c) ? Quantile(timeNs, 0.99) : c;
    }
    bool p99OfOperations() const { return counters.count("p99_ns") != 0; }
};

double ToNs(double value, const std::string &unit)
{
    if (unit == "us")
        return value * 1e3;
    if (unit == "ms")
        return value * 1e6;
    if (unit == "s")
        return value * 1e9;
    return value;
}

std::string BaseName(const std::string &runName)
{
    return runName.substr(0, runName.find('/'));
}

// Fields of a benchmark run that are not counters of the benchmark's own.
bool IsRunField(const std::string &key)
{
    static const char *known[] = {"name",
                                  "family_index",
                                  "per_family_instance_index",
                                  "run_name",
                                  "run_type",
                                  "repetitions",
                                  "repetition_index",
                                  "threads",
                                  "iterations",
                                  "real_time",
                                  "cpu_time",
                                  "time_unit",
                                  "items_per_second",
                                  "bytes_per_second",
                                  "label",
                                  "error_occurred",
                                  "error_message",
                                  "aggregate_name",
                                  "aggregate_unit"};
    for (const char *k : known)
        if (key == k)
            return true;
    return false;
}

void AddPairedSide(std::map<std::string, Figure> &figures, const std::string &name,
                   const std::string &prefix, const Json::Value &run, const std::string &source)
{
    Figure &f = figures[name];
    f.name = name;
    f.source = source;
    if (run.isMember("error_occurred") && run["error_occurred"].asBool()) {
        f.error = run.get("error_message", "error").asString();
        return;
    }
    if (!run.isMember(prefix + "p50_ns"))
        return;
    f.timeNs.push_back(run[prefix + "mean_ns"].asDouble());
    for (const char *c : {"p50_ns", "p99_ns", "max_ns"})
        f.counters[c].push_back(run[prefix + c].asDouble());
    // The side's other counters (a_callbacks_missing...), and those of the
    // pair as a whole.
    for (const std::string &key : run.getMemberNames()) {
        if (IsRunField(key) || !run[key].isNumeric())
            continue;
        if (key.rfind(prefix, 0) == 0) {
            std::string own = key.substr(prefix.size());
            if (own != "p50_ns" && own != "p99_ns" && own != "max_ns" && own != "mean_ns")
                f.counters[own].push_back(run[key].asDouble());
        } else if (key.rfind("a_", 0) != 0 && key.rfind("b_", 0) != 0) {
            f.counters[key].push_back(run[key].asDouble());
        }
    }
}

bool ReadResults(const std::string &path, std::map<std::string, Figure> &figures)
{
    std::ifstream in(path);
    Json::Value root;
    Json::CharReaderBuilder builder;
    builder["allowSpecialFloats"] = true; // NaN of empty aggregates
    std::string errors;
    if (!in || !Json::parseFromStream(builder, in, &root, &errors)) {
        std::fprintf(stderr, "bench_report: cannot read %s: %s\n", path.c_str(), errors.c_str());
        return false;
    }
    std::string source = path.substr(path.rfind('/') + 1);
    for (const Json::Value &b : root["benchmarks"]) {
        if (b.get("run_type", "iteration").asString() != "iteration")
            continue;
        std::string name = BaseName(b.get("run_name", b["name"]).asString());
        size_t bar = name.find('|');
        if (bar != std::string::npos) {
            // Two figures measured side by side (RegisterPair): the a_ and b_
            // counters of each repetition belong to one each.
            AddPairedSide(figures, name.substr(0, bar), "a_", b, source);
            AddPairedSide(figures, name.substr(bar + 1), "b_", b, source);
            continue;
        }
        Figure &f = figures[name];
        f.name = name;
        f.source = source;
        if (b.isMember("error_occurred") && b["error_occurred"].asBool()) {
            f.error = b.get("error_message", "error").asString();
            continue;
        }
        f.timeNs.push_back(ToNs(b["real_time"].asDouble(), b.get("time_unit", "ns").asString()));
        if (b.isMember("items_per_second"))
            f.itemsPerSecond.push_back(b["items_per_second"].asDouble());
        if (b.isMember("label"))
            f.label = b["label"].asString();
        for (const std::string &key : b.getMemberNames())
            if (!IsRunField(key) && b[key].isNumeric())
                f.counters[key].push_back(b[key].asDouble());
    }
    return true;
}

// --------------------------------------------------------------- targets

enum class Kind {
    RatioAtMost,      // median(a) / median(b) <= limit (times)
    RateAtLeast,      // items_per_second(a) / items_per_second(b) >= limit
    TimeBelow,        // median(a) < limit ns
    CounterAtMost,    // counter of a (max over repetitions) <= limit
    CounterAtLeast,   // counter of a (min over repetitions) >= limit
    CounterDiffAtMost // median counter of a - median counter of b <= limit
};

struct Target {
    std::string id;
    std::string what;
    Kind kind;
    std::string a, b; // figures; b unused for TimeBelow and CounterAtMost
    double limit;
    std::string counter; // CounterAtMost
    bool informational = false;
};

std::vector<Target> Targets()
{
    using K = Kind;
    return {
        {"1a", "sso_check_alive vs bare call_sync", K::RatioAtMost, "BM_CheckAlive_Library",
         "BM_CheckAlive_Bare", 1.15, ""},
        {"1b", "accepted sso_request_access_token vs bare call_sync", K::RatioAtMost,
         "BM_AccessTokenAccept_Library", "BM_AccessTokenAccept_Bare", 1.15, ""},
        {"2", "request start to callback vs bare GDBus client", K::RatioAtMost,
         "BM_RequestToCallback_Library", "BM_RequestToCallback_Bare", 1.25, ""},
        {"3a", "throughput, 1 thread", K::RateAtLeast, "BM_Throughput1T_Library",
         "BM_Throughput1T_Bare", 0.9, ""},
        {"3b", "throughput, 4 threads", K::RateAtLeast, "BM_Throughput4T_Library",
         "BM_Throughput4T_Bare", 0.9, ""},
        {"3c", "throughput, 16 threads", K::RateAtLeast, "BM_Throughput16T_Library",
         "BM_Throughput16T_Bare", 0.9, ""},
        {"3d", "throughput, 20 processes", K::RateAtLeast, "BM_Throughput20P_Library",
         "BM_Throughput20P_Bare", 0.9, ""},
        {"3e", "callbacks missing (all library throughput runs)", K::CounterAtMost,
         "BM_Throughput*_Library", "", 0, "callbacks_missing"},
        {"3f", "callbacks duplicated (all library throughput runs)", K::CounterAtMost,
         "BM_Throughput*_Library", "", 0, "callbacks_duplicated"},
        {"4a", "first request of a process vs bare", K::RatioAtMost, "BM_FirstRequest_Library",
         "BM_FirstRequest_Bare", 1.2, ""},
        {"4b", "first request never near the 10 s hand-shake (slowest, ns)", K::CounterAtMost,
         "BM_FirstRequest_Library", "", 1e9, "max_ns"},
        {"5a", "sso_get_guid vs one vconf read", K::RatioAtMost, "BM_GetGuid_UnchangedVersion",
         "BM_VconfGetInt_BareVsGuid", 3.0, ""},
        {"5b", "sso_get_login_info vs one vconf read", K::RatioAtMost,
         "BM_GetLoginInfo_UnchangedVersion", "BM_VconfGetInt_BareVsLoginInfo", 3.0, ""},
        {"5c", "sso_get_login_state vs one vconf read", K::RatioAtMost, "BM_GetLoginState",
         "BM_VconfGetInt_BareVsLoginState", 3.0, ""},
        {"5d", "reload after a version bump, six accounts (< 1 ms)", K::TimeBelow,
         "BM_GetGuid_AfterVersionBump_SixAccounts", "", 1e6, ""},
        {"6", "login notification, sign-in write to callback (< 5 ms median)", K::TimeBelow,
         "BM_LoginNotificationLatency", "", 5e6, ""},
        {"7a", "request at the default log threshold vs log off", K::RatioAtMost,
         "BM_RequestLog_Default", "BM_RequestLog_OffVsDefault", 1.05, ""},
        {"7b", "the same with a log daemon reading every line", K::RatioAtMost,
         "BM_RequestLog_DefaultToSyslogReader", "BM_RequestLog_OffVsSyslogReader", 1.05, ""},
        {"7c", "full info logging to a log daemon vs log off (reported)", K::RatioAtMost,
         "BM_RequestLog_InfoToSyslogReader", "BM_RequestLog_OffVsInfoToSyslogReader", 0, "", true},
        {"7d", "full info logging to a file vs log off (reported)", K::RatioAtMost,
         "BM_RequestLog_InfoToFile", "BM_RequestLog_OffVsInfoToFile", 0, "", true},
        {"8a", "resident memory added, over a bare client doing the same (KiB)",
         K::CounterDiffAtMost, "BM_Memory_Library", "BM_Memory_Bare", 2048, "rss_added_kib"},
        {"8a'", "  of it not shared with other processes (reported, KiB)", K::CounterDiffAtMost,
         "BM_Memory_Library", "BM_Memory_Bare", 0, "private_added_kib", true},
        {"8a\"", "  resident memory added to a process without the library (reported, KiB)",
         K::CounterAtMost, "BM_Memory_Library", "", 0, "rss_added_kib", true},
        {"8b", "threads added, over a bare client doing the same", K::CounterDiffAtMost,
         "BM_Memory_Library", "BM_Memory_Bare", 0, "threads_added"},
        {"8b'", "  threads of the library's own: monitor and reader (reported)", K::CounterAtMost,
         "BM_Memory_Library", "", 0, "own_threads", true},
        {"8c", "resident memory growth over the last 90% of the requests (KiB)", K::CounterAtMost,
         "BM_Memory_Library", "", 256, "rss_growth_kib"},
        {"8d", "open descriptors growth over the requests", K::CounterAtMost, "BM_Memory_Library",
         "", 0, "fd_growth"},
        {"8e", "callbacks missing or duplicated in the memory run", K::CounterAtMost,
         "BM_Memory_Library", "", 0, "callbacks_lost_or_repeated"},
        {"9a", "C++ API request to callback vs the C API", K::RatioAtMost,
         "BM_CxxRequestToCallback", "BM_CRequestToCallback_VsCxx", 1.05, ""},
        {"9b", "C++ API request to Future::get vs the C API", K::RatioAtMost, "BM_CxxFutureGet",
         "BM_CRequestToCallback_VsFuture", 1.05, ""},
        {"9c", "C++ API result on a main loop vs the C API handed over by hand", K::RatioAtMost,
         "BM_CxxRequestToMainLoop", "BM_CRequestHandedToMainLoop", 1.05, ""},
        {"10a", "genuine results under a hostile flood: p99, worst repetition (ns)",
         K::CounterAtMost, "BM_GenuineResults_Under*", "", 1e8, "p99_ns"},
        {"10b", "genuine results lost, quiet and under the flood", K::CounterAtMost,
         "BM_GenuineResults_*", "", 0, "genuine_lost"},
        {"10c", "hostile calls per second the library answered, slowest repetition",
         K::CounterAtLeast, "BM_GenuineResults_Under*", "", 3000, "hostile_calls_per_s"},
        {"10d", "genuine result latency under the flood vs quiet (reported)", K::RatioAtMost,
         "BM_GenuineResults_UnderFlood", "BM_GenuineResults_Quiet", 0, "", true},
        {"10e", "the same with connections replaced all the time (reported)", K::RatioAtMost,
         "BM_GenuineResults_UnderChurningFlood", "BM_GenuineResults_Quiet", 0, "", true},
    };
}

// Figures matching a name with an optional '*'.
std::vector<const Figure *> Matching(const std::map<std::string, Figure> &figures,
                                     const std::string &pattern)
{
    std::vector<const Figure *> out;
    size_t star = pattern.find('*');
    for (const auto &f : figures) {
        const std::string &n = f.first;
        bool match =
            star == std::string::npos
                ? n == pattern
                : n.size() >= pattern.size() - 1 && n.compare(0, star, pattern, 0, star) == 0 &&
                      n.compare(n.size() - (pattern.size() - star - 1), pattern.size() - star - 1,
                                pattern, star + 1, std::string::npos) == 0;
        if (match)
            out.push_back(&f.second);
    }
    return out;
}

struct Outcome {
    bool measured = false;
    double value = NAN;  // ratio, time or counter
    double spread = NAN; // IQR of the per-repetition ratios
    bool pass = false;
    std::string note;
};

Outcome Evaluate(const Target &t, const std::map<std::string, Figure> &figures)
{
    Outcome o;
    auto as = Matching(figures, t.a);
    const Figure *a = as.empty() ? nullptr : as.front();
    const Figure *b = nullptr;
    if (!t.b.empty()) {
        auto bs = Matching(figures, t.b);
        b = bs.empty() ? nullptr : bs.front();
    }
    for (const Figure *f : as)
        if (!f->error.empty())
            o.note = f->name + ": " + f->error;
    if (b != nullptr && !b->error.empty())
        o.note = b->name + ": " + b->error;
    switch (t.kind) {
    case Kind::RatioAtMost:
    case Kind::RateAtLeast: {
        if (a == nullptr || b == nullptr)
            return o;
        bool rate = t.kind == Kind::RateAtLeast;
        // Both on the same basis: per-operation medians when both have them.
        bool ops = a->perOperation() && b->perOperation();
        // A rate without items per second: the figures are times per request,
        // and the rate ratio is their inverse.
        bool inverse = rate && (a->itemsPerSecond.empty() || b->itemsPerSecond.empty());
        const std::vector<double> &va = rate && !inverse ? a->itemsPerSecond
                                        : ops            ? a->values()
                                                         : a->timeNs;
        const std::vector<double> &vb = rate && !inverse ? b->itemsPerSecond
                                        : ops            ? b->values()
                                                         : b->timeNs;
        if (va.empty() || vb.empty())
            return o;
        o.measured = true;
        o.value = inverse ? Median(vb) / Median(va) : Median(va) / Median(vb);
        std::vector<double> paired;
        for (size_t i = 0; i < std::min(va.size(), vb.size()); ++i)
            if (vb[i] > 0 && va[i] > 0)
                paired.push_back(inverse ? vb[i] / va[i] : va[i] / vb[i]);
        if (paired.size() >= 2)
            o.spread = Quantile(paired, 0.75) - Quantile(paired, 0.25);
        o.pass = rate ? o.value >= t.limit : o.value <= t.limit;
        break;
    }
    case Kind::TimeBelow:
        if (a == nullptr || a->timeNs.empty())
            return o;
        o.measured = true;
        o.value = a->median();
        o.pass = o.value < t.limit;
        break;
    case Kind::CounterDiffAtMost: {
        if (a == nullptr || b == nullptr)
            return o;
        double va = a->counterMedian(t.counter);
        double vb = b->counterMedian(t.counter);
        if (std::isnan(va) || std::isnan(vb))
            return o;
        o.measured = true;
        o.value = va - vb;
        o.pass = o.value <= t.limit;
        break;
    }
    case Kind::CounterAtMost:
    case Kind::CounterAtLeast: {
        const bool atLeast = t.kind == Kind::CounterAtLeast;
        double worst = NAN;
        for (const Figure *f : as) {
            std::vector<double> values;
            if (t.counter == "callbacks_lost_or_repeated") {
                auto m = f->counters.find("callbacks_missing");
                auto d = f->counters.find("callbacks_duplicated");
                if (m != f->counters.end() && d != f->counters.end())
                    for (size_t i = 0; i < std::min(m->second.size(), d->second.size()); ++i)
                        values.push_back(m->second[i] + d->second[i]);
            } else {
                auto it = f->counters.find(t.counter);
                if (it != f->counters.end())
                    values = it->second;
            }
            for (double v : values)
                worst = std::isnan(worst) ? v : atLeast ? std::min(worst, v) : std::max(worst, v);
        }
        if (std::isnan(worst))
            return o;
        o.measured = true;
        o.value = worst;
        o.pass = atLeast ? worst >= t.limit : worst <= t.limit;
        break;
    }
    }
    return o;
}

// ---------------------------------------------------------------- output

std::string Time(double ns)
{
    char buf[64];
    if (std::isnan(ns))
        return "-";
    if (std::fabs(ns) >= 1e9)
        snprintf(buf, sizeof(buf), "%.3f s", ns / 1e9);
    else if (std::fabs(ns) >= 1e6)
        snprintf(buf, sizeof(buf), "%.3f ms", ns / 1e6);
    else if (std::fabs(ns) >= 1e3)
        snprintf(buf, sizeof(buf), "%.2f us", ns / 1e3);
    else
        snprintf(buf, sizeof(buf), "%.0f ns", ns);
    return buf;
}

std::string Num(double v, const char *fmt = "%.3f")
{
    if (std::isnan(v))
        return "-";
    char buf[64];
    snprintf(buf, sizeof(buf), fmt, v);
    return buf;
}

std::string LimitText(const Target &t)
{
    switch (t.kind) {
    case Kind::RatioAtMost:
        return t.informational ? "report" : "<= " + Num(t.limit, "%.2f") + "x";
    case Kind::RateAtLeast:
        return ">= " + Num(t.limit, "%.2f") + "x";
    case Kind::TimeBelow:
        return "< " + Time(t.limit);
    case Kind::CounterAtMost:
    case Kind::CounterDiffAtMost:
        if (t.informational)
            return "report";
        return "<= " + (t.counter == "p99_ns" ? Time(t.limit) : Num(t.limit, "%.0f"));
    case Kind::CounterAtLeast:
        return ">= " + Num(t.limit, "%.0f");
    }
    return "";
}

std::string ValueText(const Target &t, double v)
{
    if (std::isnan(v))
        return "-";
    if (t.kind == Kind::TimeBelow)
        return Time(v);
    if (t.kind == Kind::CounterAtMost || t.kind == Kind::CounterDiffAtMost ||
        t.kind == Kind::CounterAtLeast)
        return t.counter == "max_ns" || t.counter == "p99_ns" ? Time(v) : Num(v, "%.0f");
    return Num(v, "%.3f") + "x";
}

std::string Status(const Target &t, const Outcome &o)
{
    if (!o.measured)
        return "NOT RUN";
    if (t.informational)
        return "INFO";
    return o.pass ? "PASS" : "MISS";
}

Json::Value FigureJson(const Figure &f)
{
    Json::Value v(Json::objectValue);
    v["source"] = f.source;
    v["repetitions"] = static_cast<int>(f.timeNs.size());
    v["median_ns"] = f.median();
    v["median_of"] = f.perOperation() ? "operations" : "repetition means";
    v["mean_per_iteration_ns"] = f.meanPerIteration();
    v["p99_ns"] = f.p99();
    v["p99_of"] = f.p99OfOperations() ? "operations" : "repetitions";
    v["stddev_ns"] = Stddev(f.values());
    v["iqr_ns"] = Quantile(f.values(), 0.75) - Quantile(f.values(), 0.25);
    v["min_ns"] = f.timeNs.empty() ? NAN : *std::min_element(f.timeNs.begin(), f.timeNs.end());
    v["max_ns"] = f.timeNs.empty() ? NAN : *std::max_element(f.timeNs.begin(), f.timeNs.end());
    if (!f.itemsPerSecond.empty()) {
        v["items_per_second_median"] = Median(f.itemsPerSecond);
        v["items_per_second_iqr"] =
            Quantile(f.itemsPerSecond, 0.75) - Quantile(f.itemsPerSecond, 0.25);
    }
    Json::Value counters(Json::objectValue);
    for (const auto &c : f.counters)
        counters[c.first] = Median(c.second);
    v["counters_median"] = counters;
    if (!f.label.empty())
        v["label"] = f.label;
    if (!f.error.empty())
        v["error"] = f.error;
    return v;
}

bool ReadReport(const std::string &path, Json::Value &out)
{
    std::ifstream in(path);
    Json::CharReaderBuilder builder;
    std::string errors;
    return in && Json::parseFromStream(builder, in, &out, &errors);
}

// A number of an earlier report (NaN was written as null).
double OldNumber(const Json::Value &v)
{
    return v.isNumeric() ? v.asDouble() : NAN;
}

std::string Change(double now, double before)
{
    if (std::isnan(now) || std::isnan(before) || before == 0)
        return "-";
    return Num((now / before - 1.0) * 100.0, "%+.1f%%");
}

} // namespace

int main(int argc, char **argv)
{
    std::string outDir = ".";
    std::string compare;
    std::vector<std::string> inputs;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--out") == 0 && i + 1 < argc)
            outDir = argv[++i];
        else if (strcmp(argv[i], "--compare") == 0 && i + 1 < argc)
            compare = argv[++i];
        else
            inputs.push_back(argv[i]);
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "usage: bench_report --out DIR [--compare OLD.json] RESULT.json...\n");
        return 2;
    }
    std::map<std::string, Figure> figures;
    for (const std::string &in : inputs)
        ReadResults(in, figures);

    Json::Value old;
    bool haveOld = !compare.empty() && ReadReport(compare, old);
    if (!compare.empty() && !haveOld)
        std::fprintf(stderr, "bench_report: cannot read %s\n", compare.c_str());

    std::ostringstream txt;
    Json::Value report(Json::objectValue);
    const std::vector<Target> targets = Targets();
    int misses = 0;

    txt << "Targets (library against a bare baseline measured in the same run; ratio of the\n"
           "figures' medians (below), spread = IQR of the per-repetition ratios)\n\n";
    char line[512];
    snprintf(line, sizeof(line), "%-4s %-62s %12s %9s %10s  %-7s", "id", "target", "measured",
             "spread", "limit", "status");
    txt << line << (haveOld ? "  before" : "") << "\n";
    Json::Value jt(Json::arrayValue);
    for (const Target &t : targets) {
        Outcome o = Evaluate(t, figures);
        std::string status = Status(t, o);
        if (status == "MISS")
            ++misses;
        snprintf(line, sizeof(line), "%-4s %-62s %12s %9s %10s  %-7s", t.id.c_str(), t.what.c_str(),
                 ValueText(t, o.value).c_str(), Num(o.spread, "%.3f").c_str(), LimitText(t).c_str(),
                 status.c_str());
        txt << line;
        if (haveOld)
            for (const Json::Value &ot : old["targets"])
                if (ot["id"].asString() == t.id)
                    txt << "  " << ValueText(t, OldNumber(ot["value"])) << " "
                        << ot["status"].asString();
        txt << "\n";
        if (!o.note.empty())
            txt << "       (" << o.note << ")\n";
        Json::Value j(Json::objectValue);
        j["id"] = t.id;
        j["target"] = t.what;
        j["value"] = o.value;
        j["spread_iqr"] = o.spread;
        j["limit"] = LimitText(t);
        j["status"] = status;
        if (!o.note.empty())
            j["note"] = o.note;
        jt.append(j);
    }
    report["targets"] = jt;

    txt << "\nFigures. median: of single operations where each was timed (*), else of the\n"
           "repetitions' mean time per operation; p99: of single operations (else of the\n"
           "repetitions); stddev and IQR: of the per-repetition values; mean: the repetitions'\n"
           "mean time per operation (median over repetitions)\n\n";
    snprintf(line, sizeof(line), "%-42s %4s %12s %11s %10s %10s %11s %10s", "benchmark", "reps",
             "median", "p99", "stddev", "IQR", "mean", "items/s");
    txt << line << (haveOld ? "   before      change" : "") << "\n";
    Json::Value jf(Json::objectValue);
    for (const auto &entry : figures) {
        const Figure &f = entry.second;
        snprintf(line, sizeof(line), "%-42s %4zu %11s%1s %11s %10s %10s %11s %10s", f.name.c_str(),
                 f.timeNs.size(), Time(f.median()).c_str(), f.perOperation() ? "*" : " ",
                 Time(f.p99()).c_str(), Time(Stddev(f.values())).c_str(),
                 Time(Quantile(f.values(), 0.75) - Quantile(f.values(), 0.25)).c_str(),
                 Time(f.meanPerIteration()).c_str(),
                 f.itemsPerSecond.empty() ? "" : Num(Median(f.itemsPerSecond), "%.0f").c_str());
        txt << line;
        if (haveOld && old["figures"].isMember(f.name)) {
            double before = OldNumber(old["figures"][f.name]["median_ns"]);
            txt << "  " << Time(before) << "  " << Change(f.median(), before);
        }
        txt << "\n";
        if (!f.error.empty())
            txt << "    error: " << f.error << "\n";
        if (!f.label.empty())
            txt << "    " << f.label << "\n";
        jf[f.name] = FigureJson(f);
    }
    report["figures"] = jf;

    txt << "\nCounters (median over repetitions)\n";
    for (const auto &entry : figures) {
        const Figure &f = entry.second;
        if (f.counters.empty())
            continue;
        txt << "  " << f.name << ":";
        for (const auto &c : f.counters)
            txt << " " << c.first << "=" << Num(Median(c.second), "%.6g");
        txt << "\n";
    }
    txt << "\n" << misses << " target(s) missed.\n";
    report["missed"] = misses;

    std::ofstream(outDir + "/report.txt") << txt.str();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    std::ofstream(outDir + "/report.json") << Json::writeString(writer, report) << "\n";
    std::fputs(txt.str().c_str(), stdout);
    return 0;
}
