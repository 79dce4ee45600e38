#include "ctl/knownNames.h"

#include <chrono>
#include <filesystem>
#include <string_view>

#include "ctl/commandFailure.h"
#include "ctl/lines.h"
#include "process/childProcess.h"

void requireKnown(const std::string& name) {
    constexpr std::chrono::seconds limit{10};
    const std::filesystem::path programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    // Those that begin with the name; sorted, so that itself stands in front.
    const ChildResult tool = runChild({programs / "ostrelDbTool", "names", "--", "all", name}, limit);
    const bool isRead = tool.end == ChildResult::End::exited && tool.number == 0;
    if (isRead && !std::string_view(tool.output).starts_with(name + '\n'))
        throw Failure(OSTREL_MISSING, "", "",
                      {{.key = keyText(name, 0),
                        .reason = "nothing has this name: no key, vector, structure or template"}});
}
