// A name that somebody else chose, as log lines show it. The bytes that begin another line or command a
// terminal (0x00 to 0x1f, 0x7f) become \xHH; all others stay as they are, '%' and '\' too.
//
// Whoever logs such a name wraps it: LogText(name).text(), which is borrowed until the end of the statement.
#pragma once

#include <string>

class LogText {
public:
    // Borrowed; may be null, as the log shows that.
    explicit LogText(const char* text) : shown_(text != nullptr ? text : "(null)") {
        const char* at = shown_;
        while (*at != '\0' && !commands(*at))
            ++at;
        if (*at != '\0')
            escape();
    }
    ~LogText() = default;
    LogText(const LogText&) = delete;
    LogText& operator=(const LogText&) = delete;

    const char* text() const { return shown_; }

private:
    static bool commands(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

    void escape() {
        constexpr char digits[] = "0123456789abcdef";
        for (const char* at = shown_; *at != '\0'; ++at) {
            auto byte = static_cast<unsigned char>(*at);
            if (commands(*at))
                escaped_.append("\\x").append(1, digits[byte >> 4U]).append(1, digits[byte & 0xFU]);
            else
                escaped_ += *at;
        }
        shown_ = escaped_.c_str();
    }

    std::string escaped_{};  // empty when nothing is to be escaped: then nothing is allocated
    const char* shown_;
};
