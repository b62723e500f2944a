// The replaced global allocation functions behind allocation_counter.h.
#include "support/allocation_counter.h"

#include <cstdlib>
#include <new>

// GCC cannot see that these replacements pair malloc with free.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    if (allocation_counter::armed.load(std::memory_order_relaxed))
        allocation_counter::allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
// The non-throwing forms too (std::stable_sort's buffer uses them): memory from one family
// must never reach the other's delete.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (allocation_counter::armed.load(std::memory_order_relaxed))
        allocation_counter::allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
