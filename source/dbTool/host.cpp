// What the store asks of its host program: its errors go to the user.
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "dbTool/toolFailure.h"
#include "ostrel/plugin.h"

void ostrelPrintLine(int level, const char*, int, const char*, const char* format, ...) {
    if (level != 1)
        return;
    std::array<char, 4096> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "ostrelDbTool: %s\n", text.data());
}

void Die(const char* message) {
    std::fprintf(stderr, "ostrelDbTool: %s\n", message);
    std::exit(static_cast<int>(Status::findings));
}
