// A command line, its arguments separated by NULs, against a table with a row of each kind.
#include <cstring>
#include <string_view>
#include <vector>

#include "common/cliArgs.h"
#include "fuzz.h"

namespace {

struct Options {
    char* log = nullptr;
    int number = -1;
    int debug = 0;
    int mayCreate = 0;

    bool operator==(const Options&) const = default;
};

// The same, as one would write it for this table only.
bool expected(const std::vector<char*>& arguments, Options& options) {
    bool isNumbered = false;
    for (auto at = arguments.begin(); at != arguments.end(); ++at) {
        const std::string_view name = *at;
        const bool hasValue = at + 1 != arguments.end();
        if (name == "-d" || name == "--debug") {
            options.debug = 1;
        } else if (name == "--key-create-allowed") {
            options.mayCreate = 1;
        } else if ((name == "-l" || name == "--log") && hasValue) {
            options.log = *++at;
        } else if (name == "-n" && hasValue) {
            options.number = static_cast<int>(std::strtol(*++at, nullptr, 10));
            isNumbered = true;
        } else {
            return false;
        }
    }
    return isNumbered;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    std::vector<char*> arguments;  // no null behind the last: nothing may read it
    for (size_t at = 0; at < size; at += std::strlen(text.data() + at) + 1)
        arguments.push_back(text.data() + at);
    arguments.shrink_to_fit();
    Options parsed;
    TParser_Arg table[] = {
        {"-l", "--log", "", nullptr, &parsed.log, CLIARG_STRING, 0, 0},
        {"-n", nullptr, "", nullptr, &parsed.number, CLIARG_INTEGER, 1, 0},
        {"-d", "--debug", "", nullptr, &parsed.debug, CLIARG_FLAG, 0, 0},
        {nullptr, "--key-create-allowed", "", nullptr, &parsed.mayCreate, CLIARG_FLAG, 0, 0},
        {nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, 0},
    };
    Options wanted;
    const bool isGood = expected(arguments, wanted);
    const int result = CliArgs_Parse(table, static_cast<int>(arguments.size()), arguments.data());
    require((result == 1) == isGood && parsed == wanted, "the options are those of the command line");
    return 0;
}
