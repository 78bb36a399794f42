// The "method behaviour" layer: how the simulated service treats a request to
// one method. Tests script it per method (or for all methods with "*");
// every field left unset falls back to the "*" entry, then to the built-in
// default of a well-behaved service.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace ssosim {

// A scripted behaviour: only the fields that were set.
struct Behaviour {
    std::optional<std::int32_t> accept;               // (i) answer; 1 = accepted
    std::optional<std::int32_t> result;               // "result" of the delivered callback
    std::optional<std::vector<std::string>> payloads; // string payloads in order
    std::optional<std::uint32_t> answer_delay_ms;     // before the answer
    std::optional<std::uint32_t> result_delay_ms;     // between the answer and the delivery
    std::optional<bool> drop_result;                  // answer, never deliver
    std::optional<std::string> error;                 // answer with this D-Bus error ("" = none)
    std::optional<bool> no_answer;                    // never answer at all
    // Random mode: every request draws its own fate. Percentages 0 to 100;
    // a drawn delay is uniform from 0 to the maximum. random_seed restarts
    // the draws, so a run can be repeated.
    std::optional<std::uint32_t> refuse_percent;      // answered 0 (no result)
    std::optional<std::uint32_t> drop_percent;        // of the accepted: never delivered
    std::optional<std::uint32_t> answer_delay_max_ms; // answer 0..max ms late
    std::optional<std::uint32_t> result_delay_max_ms; // deliver 0..max ms after the answer
    std::optional<std::uint32_t> random_seed;

    // Fields set in other override ours.
    void MergeFrom(const Behaviour &other);
    bool empty() const;
    // "accept=0 result=3 ..." for the log; payload contents are not shown.
    std::string Describe() const;
};

// What a request actually gets: every field resolved. accept and result stay
// unset when nobody scripted them: the service decides them from its state.
struct EffectiveBehaviour {
    std::optional<std::int32_t> accept;
    std::optional<std::int32_t> result;
    std::vector<std::string> payloads;
    std::uint32_t answer_delay_ms = 0;
    std::uint32_t result_delay_ms = 0;
    bool drop_result = false;
    std::string error;
    bool no_answer = false;
    std::uint32_t refuse_percent = 0;
    std::uint32_t drop_percent = 0;
    std::uint32_t answer_delay_max_ms = 0;
    std::uint32_t result_delay_max_ms = 0;
};

// A scripting request the simulator refuses (unknown method or key, wrong
// type, malformed error name). Reported to the caller as InvalidArgs.
struct BehaviourError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

// Reads the a{sv} of Configure. Throws BehaviourError.
Behaviour BehaviourFromVariant(GVariant *dict);

class BehaviourTable {
public:
    static constexpr const char *kAllMethods = "*";

    // is_known says which method names may be scripted (besides "*").
    explicit BehaviourTable(std::function<bool(const std::string &)> is_known)
        : is_known_(std::move(is_known))
    {
    }

    // Merges into the method's scripted behaviour. Throws BehaviourError.
    void Configure(const std::string &method, const Behaviour &behaviour);
    // Back to the default (for "*": the built-in default). Throws BehaviourError.
    void Reset(const std::string &method);
    void ResetAll();
    EffectiveBehaviour For(const std::string &method) const;
    // Settles the random fields of e for one request: accept 0, a dropped
    // result, the delays. Without random fields e stays as it is.
    void Draw(EffectiveBehaviour &e);

private:
    void Check(const std::string &method) const;

    std::function<bool(const std::string &)> is_known_;
    std::map<std::string, Behaviour> scripted_;
    std::mt19937 random_{1};
};

} // namespace ssosim
