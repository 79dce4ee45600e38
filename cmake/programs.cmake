# What every program has: its manual page, and the project's version in that and in the program.
function(ostrel_document program page)
    target_compile_definitions(${program} PRIVATE OSTREL_VERSION="${PROJECT_VERSION}")
    configure_file(${PROJECT_SOURCE_DIR}/man/${page} ${PROJECT_BINARY_DIR}/man/${page} @ONLY)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${PROJECT_BINARY_DIR}/man/${page} DESTINATION share/man/man${section})
endfunction()
