# OSTREL_SANITIZE: a value for -fsanitize=, such as "address,undefined"; empty for none.
set(OSTREL_SANITIZE "" CACHE STRING "Sanitizers to build everything with")
if(OSTREL_SANITIZE)
    add_compile_options(-fsanitize=${OSTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${OSTREL_SANITIZE})
endif()

# Builds the fuzz targets with libFuzzer, which only clang has, instead of the tests.
option(OSTREL_FUZZ "Build the fuzz targets" OFF)
if(OSTREL_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
