# Every target of ours links ostrelWarnings; each warning is an error. clang, which builds the fuzz targets only, does not
# know all of them.
add_library(ostrelWarnings INTERFACE)
set(gccOnly $<$<C_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>)
set(gccOnlyCxx $<$<CXX_COMPILER_ID:GNU>:-Wuseless-cast>)
target_compile_options(ostrelWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wcast-align
    -Wformat=2 -Wundef ${gccOnly}
    $<$<COMPILE_LANGUAGE:CXX>:${gccOnlyCxx} -Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor
        -Wextra-semi -Wzero-as-null-pointer-constant -Wsuggest-override>)
