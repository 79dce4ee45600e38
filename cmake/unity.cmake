# Where most of the time goes into parsing the same headers, several files are compiled as one: in the presets with
# sanitizers, and the tests in each. The rest of the other presets is not, as some build must tell of a missing include.
#
# ostrel_compile_alone(FILE...): these have names of their own that others in their target have, too.
function(ostrel_compile_alone)
    set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
