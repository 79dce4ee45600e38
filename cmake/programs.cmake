# What every program has: its manual page, which tells the project's version.
function(ostrel_document program page)
    configure_file(${PROJECT_SOURCE_DIR}/man/${page} ${PROJECT_BINARY_DIR}/man/${page} @ONLY)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${PROJECT_BINARY_DIR}/man/${page} DESTINATION share/man/man${section})
endfunction()
