// What a test's code writes to standard output, which is the log; how the test was built.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

template <typename Body>
std::string outputOf(Body body) {
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    body();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
