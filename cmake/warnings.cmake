# Every target of ours links ostrelWarnings; each warning is an error.
add_library(ostrelWarnings INTERFACE)
target_compile_options(ostrelWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wcast-align
    -Wformat=2 -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wuseless-cast -Woverloaded-virtual -Wnon-virtual-dtor
        -Wextra-semi -Wzero-as-null-pointer-constant -Wsuggest-override>)
