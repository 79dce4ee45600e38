# The version stands in project(), and is configured into all that can be. The rest is held against it.
configure_file(include/ostrel/version.h.in include/ostrel/version.h @ONLY)

# ostrel_check_version(FILE PATTERN): the first match of the regular expression in the file, whose group is a version.
function(ostrel_check_version file pattern)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(READ ${file} text)
    string(REGEX MATCH "${pattern}" found "${text}")
    if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
        message(FATAL_ERROR "${file} has the version \"${CMAKE_MATCH_1}\", the project \"${PROJECT_VERSION}\"")
    endif()
endfunction()

ostrel_check_version(python/ostrel/__init__.py "__version__ = \"([^\"]*)\"")
ostrel_check_version(CHANGELOG.md "\n## ([0-9][0-9.]*)")
# The packages are built from a copy that has this folder elsewhere.
if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/debian)
    ostrel_check_version(packaging/debian/changelog "^ostrel \\(([^)]*)\\)")
endif()
