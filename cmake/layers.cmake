# Each folder of sources is seen only by those that link its target, under its own name: text/values.h. What a folder
# may not know it cannot include.
#
# ostrel_share(TARGET PUBLIC|PRIVATE|INTERFACE): the target, and unless PRIVATE whoever links it, finds the headers of
# this folder as FOLDER/....
function(ostrel_share target scope)
    cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
    set(root ${PROJECT_BINARY_DIR}/layers/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
    target_include_directories(${target} ${scope} ${root})
endfunction()
