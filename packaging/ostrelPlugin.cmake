# ostrel_add_plugin(NAME SOURCE...): a target that builds the plug-in NAME.ostr from C or C++.
#
# It is linked against nothing of ostrel, and only what the daemon looks for is visible in it, as the loader would take
# equal names of two plug-ins for one. Install it into ${OSTREL_PLUGIN_DIRECTORY}.
set(OSTREL_PLUGIN_DIRECTORY /vemra/default/ostrPlugins)

function(ostrel_add_plugin name)
    # Not a variable of the file: the function is also seen where those are not.
    set(exports ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ostrelPlugin.map)
    add_library(${name} MODULE ${ARGN})
    target_link_libraries(${name} PRIVATE ostrel::plugin)
    target_compile_features(${name} PRIVATE cxx_std_17)
    # The map keeps in also what the compiler instantiates of the standard library. The daemon's functions are found when
    # it loads the plug-in, also where a distribution's flags ask for all to be found at once.
    target_link_options(${name} PRIVATE LINKER:--version-script=${exports} LINKER:-z,undefs)
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX .ostr C_VISIBILITY_PRESET hidden
        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON LINK_DEPENDS ${exports})
endfunction()
