// What a test's code writes to standard output, which is the log.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

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
