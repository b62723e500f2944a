// Counting allocations on the audio path: a test program that compiles allocation_counter.cpp
// gets a global operator new that counts every call made while `armed` is set.
#pragma once

#include <atomic>

namespace allocation_counter {

inline std::atomic<bool> armed{false};
inline std::atomic<long> allocations{0};

}  // namespace allocation_counter
