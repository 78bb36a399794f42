// What the simulator remembers for tests to inspect over the control
// interface.
#pragma once

#include <string>
#include <vector>

namespace ssosim {

// One request received (after GDBus accepted its argument types).
struct JournalEntry {
    std::string sender; // unique bus name of the caller
    std::string method;
    std::string args; // g_variant_print(params, TRUE)
};

// One result call sent to a client.
struct DeliveryRecord {
    std::string destination; // unique name of the client connection that asked
    std::string method;      // client method
    std::string args;        // g_variant_print(args, TRUE)
};

} // namespace ssosim
