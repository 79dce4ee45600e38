# Parses once for each target what almost every file of it includes. Only the builds with sanitizers do so: they are made
# often and do not optimize. In optimized code GCC 12 would warn of the library's own headers; clang-tidy, which reads
# dev's compile commands, does not understand GCC's precompiled ones; and some build must tell of a missing include.
function(ostrel_precompile target)
    target_precompile_headers(${target} PRIVATE <algorithm> <chrono> <cstdint> <functional> <map> <memory> <optional>
        <sstream> <string> <string_view> <vector> ${ARGN})
endfunction()
