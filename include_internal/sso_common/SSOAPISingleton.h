// Holder of the library's process-wide objects (the D-Bus transport, the
// secure-storage data cache and the caller identity). Each holder class T
// derives from SSOAPISingleton<T>; the instance is created on first use and
// deleted by RemoveInstance at library unload.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include "sso_log.h"

template <typename T> class SSOAPISingleton {
public:
    virtual ~SSOAPISingleton() = default;

    // Called once, right after construction, under m_mutexInstance. It must
    // not call GetInstance of the same type: that blocks on the mutex.
    virtual void PostCreateInstance() {}

    // Returns the instance, creating it on first use. The common path reads
    // the pointer and the ready flag without the lock; creation is serialised
    // by the per-type mutex. A failed lock is fatal (std::system_error).
    static T *GetInstance()
    {
        T *instance = m_pInstance.load(std::memory_order_acquire);
        if (instance != nullptr && IsReady(instance))
            return instance;

        SSO_LOGD_AT(sso_log_lines::kGetInstanceStart, "[START] ");
        int err = pthread_mutex_lock(&m_mutexInstance);
        if (err != 0)
            throw std::system_error(err, std::generic_category(), "pthread_mutex_lock");
        instance = m_pInstance.load(std::memory_order_relaxed);
        if (instance == nullptr) {
            instance = new T();
            // Published before the hook runs: a second caller arriving now
            // sees the flag still false, takes the slow path and waits here.
            m_pInstance.store(instance, std::memory_order_release);
            instance->PostCreateInstance();
            static_cast<SSOAPISingleton<T> *>(instance)->m_bInitialized.store(
                true, std::memory_order_release);
        }
        SSO_LOGD_AT(sso_log_lines::kGetInstanceEnd, "[END] ");
        pthread_mutex_unlock(&m_mutexInstance);
        return instance;
    }

    // The instance if it exists and is ready; never creates one and never
    // waits. For code that must not block on a creation or removal under way
    // (the response dispatcher, while the library is being unloaded).
    static T *PeekInstance()
    {
        T *instance = m_pInstance.load(std::memory_order_acquire);
        return (instance != nullptr && IsReady(instance)) ? instance : nullptr;
    }

    // The instance once constructed, even while its PostCreateInstance still
    // runs: for what must reach it then (the unload cancelling a set-up).
    // Never creates one and never waits.
    static T *PeekConstructedInstance() { return m_pInstance.load(std::memory_order_acquire); }

    // In a child after fork(): forgets the parent's instance without
    // touching it (its threads are the parent's) and makes the lock usable
    // again, whoever held it at the fork. For the atfork child handler only.
    static void ForgetInstanceAfterFork()
    {
        // Never freed (its destructor would join threads the child does not
        // have), but kept where a leak checker sees it held.
        T *forgotten = m_pInstance.exchange(nullptr, std::memory_order_acq_rel);
        for (size_t i = 0; forgotten != nullptr && i < kForgottenSlots; ++i)
            if (m_pForgotten[i] == nullptr) {
                m_pForgotten[i] = forgotten;
                forgotten = nullptr;
            }
        pthread_mutex_init(&m_mutexInstance, nullptr);
    }

    // Deletes the instance if there is one.
    static void RemoveInstance()
    {
        SSO_LOGD_AT(sso_log_lines::kRemoveInstanceStart, "[START] ");
        int err = pthread_mutex_lock(&m_mutexInstance);
        if (err != 0)
            throw std::system_error(err, std::generic_category(), "pthread_mutex_lock");
        T *instance = m_pInstance.load(std::memory_order_relaxed);
        if (instance != nullptr) {
            static_cast<SSOAPISingleton<T> *>(instance)->m_bInitialized.store(
                false, std::memory_order_release);
            delete static_cast<SSOAPISingleton<T> *>(instance);
            m_pInstance.store(nullptr, std::memory_order_release);
        }
        SSO_LOGD_AT(sso_log_lines::kRemoveInstanceEnd, "[END] ");
        pthread_mutex_unlock(&m_mutexInstance);
    }

protected:
    SSOAPISingleton() = default;

    // True once PostCreateInstance has returned; false again just before the
    // instance is deleted.
    std::atomic<bool> m_bInitialized{false};

private:
    static bool IsReady(T *instance)
    {
        return static_cast<SSOAPISingleton<T> *>(instance)->m_bInitialized.load(
            std::memory_order_acquire);
    }

    static std::atomic<T *> m_pInstance;    // guarded by m_mutexInstance for writes
    static pthread_mutex_t m_mutexInstance; // non-recursive
    // Instances of the parents of this process, one per fork (written only
    // by the single-threaded atfork child handler).
    static constexpr size_t kForgottenSlots = 8;
    static T *m_pForgotten[kForgottenSlots];
};

template <typename T> std::atomic<T *> SSOAPISingleton<T>::m_pInstance{nullptr};

template <typename T>
pthread_mutex_t SSOAPISingleton<T>::m_mutexInstance = PTHREAD_MUTEX_INITIALIZER;

template <typename T> T *SSOAPISingleton<T>::m_pForgotten[SSOAPISingleton<T>::kForgottenSlots] = {};
