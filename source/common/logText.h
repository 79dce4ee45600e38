// A name that somebody else chose, as log lines show it. The bytes that begin another line or command a
// terminal (0x00 to 0x1f, 0x7f) become \xHH; all others stay as they are, '%' and '\' too.
//
// Whoever logs such a name wraps it: LogText(name).text(), which is borrowed until the end of the statement.
#pragma once

#include <string>

#include "text/characters.h"
#include "text/shown.h"

class LogText {
public:
    // Borrowed; may be null, as the log shows that.
    explicit LogText(const char* text) : shown_(text != nullptr ? text : "(null)") {
        const char* at = shown_;
        while (*at != '\0' && !store::isControl(*at))
            ++at;
        if (*at != '\0')
            escape();
    }
    ~LogText() = default;
    LogText(const LogText&) = delete;
    LogText& operator=(const LogText&) = delete;

    const char* text() const { return shown_; }

private:
    void escape() {
        escaped_ = store::shown(shown_);
        shown_ = escaped_.c_str();
    }

    std::string escaped_{};  // empty when nothing is to be escaped: then nothing is allocated
    const char* shown_;
};
