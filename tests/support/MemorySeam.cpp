#include "tests/support/MemorySeam.h"

#include <new>

bool memoryExhausted = false;

/** Takes the place of the language runtime's in programs that use the seam. */
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return memoryExhausted ? nullptr : ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
