// Shared set-up of the fuzz targets: a private platform root (with the debug
// marker, so the "[DEVEL]" dumps run too) whose log is formatted in full and
// thrown away, and, for the dispatcher, a private system bus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ssofuzz {

// Once per process: platform root, debug marker, log at verbose level into
// /dev/null. Later calls do nothing.
void SetUpPlatform();

// Once per process: starts a dbus-daemon of its own and points
// DBUS_SYSTEM_BUS_ADDRESS at it. False when no daemon could be started.
bool StartPrivateBus();
// Stops that daemon and removes its directory.
void StopPrivateBus();

// A broken invariant: prints what and aborts, so that libFuzzer keeps the
// input as a crash.
[[noreturn]] void Fail(const char *what, const std::string &detail = "");

// The input as text.
inline std::string AsText(const uint8_t *data, size_t size)
{
    return std::string(reinterpret_cast<const char *>(data), size);
}

} // namespace ssofuzz
