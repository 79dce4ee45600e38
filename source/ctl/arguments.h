// The command line.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ctl/commandFailure.h"
#include "ctl/commands.h"
#include "text/fixedPaths.h"

struct Arguments {
    double timeout = 30;  // seconds
    bool json = false;
    bool onlyCheck = false;
    std::vector<std::string> keys{};
    std::string key{};
    std::optional<std::string> typeOrValue{};
    std::optional<std::string> value{};  // nothing: typeOrValue is the value
    std::string templateName{};
    std::string owner = "0";
    std::string path{};
    std::vector<std::string> owners{};
    size_t count = 0;
    std::string logPath = defaultLogPath;
    // The chosen command.
    std::function<Status(Context&, const Arguments&)> run{};
};

// False: the user asked for help, which is printed. Throws Failure with OSTREL_INVALID; json is set then,
// too.
bool parseArguments(int argc, char** argv, Arguments& arguments);
