#include "text/shown.h"

#include "text/characters.h"

namespace store {

std::string shown(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (isControl(c))
            appendHex(result, c);
        else
            result += c;
    }
    return result;
}

std::string printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const size_t plain = steeringSize(text) == 0 ? characterSize(text) : 0;
        if (plain != 0)
            out += text.substr(0, plain);
        else
            appendHex(out, text[0]);
        text.remove_prefix(plain != 0 ? plain : 1);
    }
    return out;
}

}  // namespace store
