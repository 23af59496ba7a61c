// What tests on several threads share.
#pragma once

#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

// Runs the bodies, each on a thread of its own, from when all have come, and waits for them.
inline void runOnThreads(const std::vector<std::function<void()>>& bodies) {
    std::atomic<size_t> missing{bodies.size()};
    std::vector<std::thread> threads;
    for (const auto& body : bodies) {
        threads.emplace_back([&missing, &body] {
            for (--missing; missing > 0;) {
                std::this_thread::yield();
            }
            body();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// The body so many times at once, each with its number.
inline void runOnThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::function<void()>> bodies;
    for (int i = 0; i < count; ++i) {
        bodies.push_back([&body, i] { body(i); });
    }
    runOnThreads(bodies);
}

// What the variable of the environment says, for runs that are longer or shorter than usual.
inline size_t countFor(const char* variable, size_t usual) {
    const char* value = std::getenv(variable);
    return value ? std::strtoul(value, nullptr, 10) : usual;
}
