// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the program when the promise is broken; the fuzzer then keeps the input.
inline void require(bool isKept, const char* promise) {
    if (isKept)
        return;
    std::fprintf(stderr, "broken: %s\n", promise);
    std::abort();
}
