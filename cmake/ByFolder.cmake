# Reading headers and writing out templates is most of what the compiler does for the agent and for a test. The files of
# a folder are compiled together, five at a time: so they share the names outside their functions. With the preset dev,
# for whoever changes one file and builds again, and with clang, which warns of names that hide each other, each is
# compiled by itself.
option(SYSLOGMON_BY_FOLDER "Compile the files of a folder together" ON)
set(SYSLOGMON_ALONE "" CACHE STRING "Sources that are compiled by themselves all the same: those that tools/mutants changes")
function(build_by_folder target)
    get_target_property(sources ${target} SOURCES)
    foreach(source ${sources})
        get_filename_component(folder ${source} DIRECTORY)
        string(MAKE_C_IDENTIFIER "${folder}" folder)
        if(NOT DEFINED count_${folder})
            set(count_${folder} 0)
        endif()
        math(EXPR group "${count_${folder}} / 5")
        math(EXPR count_${folder} "${count_${folder}} + 1")
        set_source_files_properties(${source} PROPERTIES UNITY_GROUP "${folder}_${group}")
        if(source IN_LIST SYSLOGMON_ALONE)
            set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
        endif()
    endforeach()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ${SYSLOGMON_BY_FOLDER} UNITY_BUILD_MODE GROUP)
endfunction()
