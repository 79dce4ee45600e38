# Parses once for each target what almost every file of it includes. Done where nothing is optimized: in
# the builds with sanitizers, and for the end-to-end tests. In optimized code GCC 12 would warn of the library's own
# headers, and no build would tell of a missing include.
function(ostrel_precompile target)
    target_precompile_headers(${target} PRIVATE <algorithm> <chrono> <cstdint> <functional> <map> <memory> <optional>
        <sstream> <string> <string_view> <vector> ${ARGN})
endfunction()
