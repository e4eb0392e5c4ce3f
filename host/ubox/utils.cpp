// utils.cpp - one block for several objects.
#include <libubox/utils.h>

#include <cstdarg>
#include <cstddef>
#include <cstdlib>

namespace {

constexpr size_t kAlignment = alignof(max_align_t);

constexpr size_t aligned(size_t size) {
    return (size + kAlignment - 1) & ~(kAlignment - 1);
}

size_t total_size(size_t first, va_list arguments) {
    size_t total = aligned(first);
    while (va_arg(arguments, void**)) {
        total += aligned(va_arg(arguments, size_t));
    }
    return total;
}

void hand_out(char* block, size_t first, va_list arguments) {
    char* next = block + aligned(first);
    while (void** address = va_arg(arguments, void**)) {
        *address = next;
        next += aligned(va_arg(arguments, size_t));
    }
}

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl50-cpp,cert-dcl51-cpp)
void* __calloc_a(size_t len, ...) {
    va_list arguments;
    va_start(arguments, len);
    const size_t size = total_size(len, arguments);
    va_end(arguments);

    char* block = static_cast<char*>(calloc(1, size));
    if (!block) return nullptr;
    va_start(arguments, len);
    hand_out(block, len, arguments);
    va_end(arguments);
    return block;
}
