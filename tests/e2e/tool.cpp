#include "tool.h"

#include <sys/wait.h>

#include <cstdlib>
#include <ostream>

#include "files.h"

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << outcome.status << "\n" << outcome.output << outcome.errors;
}

Outcome runTool(const std::string& command, const std::string& input) {
    writeFile("/tmp/input", input);
    // In front, so that the command's own redirections win.
    int status = std::system(("</tmp/input >/tmp/out 2>/tmp/err /vemra/bin/" + command).c_str());
    return {WEXITSTATUS(status), readFile("/tmp/out"), readFile("/tmp/err")};
}

std::string json(const std::string& text, const std::string& path) {
    const std::string program =
        "import json, sys\n"
        "value = json.loads(sys.stdin.buffer.read())\n"
        "for key in sys.argv[1:]:\n"
        "    value = value[int(key) if isinstance(value, list) else key]\n"
        "print(end=json.dumps(value, sort_keys=True))\n";
    return runTool("../../usr/bin/python3 -c '" + program + "' " + path, text).output;
}
