// Log lines whose line number is part of what they say: the device's log
// tools and the people who read them know these lines by file, function and
// number, so the number stays whatever the code around it becomes. Written
// with the SSO_LOG*_AT macros of sso_log.h.
#pragma once

namespace sso_log_lines {

// SSOAPISingleton<T>::GetInstance / RemoveInstance.
constexpr int kGetInstanceStart = 28;
constexpr int kGetInstanceEnd = 39;
constexpr int kRemoveInstanceStart = 47;
constexpr int kRemoveInstanceEnd = 57;

// SSOAPIAutoLock's destructor with no mutex.
constexpr int kAutoLockNoMutex = 32;

// SSOWriteLock: taken, depth; released, depth, end.
constexpr int kWriteLockStart = 45;
constexpr int kWriteLockTaken = 53;
constexpr int kWriteLockReleased = 61;
constexpr int kWriteLockEnd = 62;

// The client-alive flag.
constexpr int kSetClientToAlive = 20;
constexpr int kSetClientToTerminated = 28;
constexpr int kIsClientAlive = 35;

// SSOAPIClientLifeCycle: constructed, alive; destroyed, end.
constexpr int kLifeCycleStart = 12;
constexpr int kLifeCycleAlive = 19;
constexpr int kLifeCycleTerminated = 26;
constexpr int kLifeCycleEnd = 33;

} // namespace sso_log_lines
