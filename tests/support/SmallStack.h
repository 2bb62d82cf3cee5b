#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <pthread.h>

/// A stack that holds some thousand calls at most: recursion over a long chain does not go by unseen.
#if defined(KR_SANITIZED) || !defined(__OPTIMIZE__)
constexpr std::size_t kSmallStack = 1024 * 1024;
#else
constexpr std::size_t kSmallStack = 160 * 1024;
#endif

/// Runs `work` to its end on a thread with a stack of that size.
inline void onStackOf(std::size_t bytes, const std::function<void()>& work)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    const auto run = [](void* what) -> void* {
        (*static_cast<const std::function<void()>*>(what))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}
