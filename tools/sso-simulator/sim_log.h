// Everything the simulator does goes to the platform log under one tag, so a
// test can read what happened from the captured log.
#pragma once

#include <dlog.h>

namespace ssosim {
inline constexpr const char *kLogTag = "SSOSimulator";
} // namespace ssosim

#define SIM_LOGD(...) dlog_print(DLOG_DEBUG, ssosim::kLogTag, __VA_ARGS__)
#define SIM_LOGI(...) dlog_print(DLOG_INFO, ssosim::kLogTag, __VA_ARGS__)
#define SIM_LOGW(...) dlog_print(DLOG_WARN, ssosim::kLogTag, __VA_ARGS__)
#define SIM_LOGE(...) dlog_print(DLOG_ERROR, ssosim::kLogTag, __VA_ARGS__)
