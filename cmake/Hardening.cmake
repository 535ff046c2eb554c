# What is shipped runs as root and reads what anybody may write into a log: included behind the targets of module and
# agent, hardens all of them. tests/style/hardened looks at the files that come out.

# The compiler's checks of buffer sizes need optimisation, and the sanitizers have their own. Not in the module
# (vkevmon, folder_*): its tests put calls of their own in the place of the C library's, by name, and the checked
# calls have other names.
set(CHECK_BUFFERS "")
if(CMAKE_BUILD_TYPE MATCHES "^Rel" AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    set(CHECK_BUFFERS -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

get_property(shipped DIRECTORY PROPERTY BUILDSYSTEM_TARGETS)
foreach(target IN LISTS shipped)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(STATIC|SHARED|OBJECT|MODULE)_LIBRARY$|^EXECUTABLE$")
        target_compile_options(${target} PRIVATE -fstack-protector-strong)
        if(NOT target MATCHES "^(vkevmon|folder_)")
            target_compile_options(${target} PRIVATE ${CHECK_BUFFERS})
        endif()
    endif()
    if(type MATCHES "SHARED_LIBRARY|EXECUTABLE")
        target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    endif()
    if(type STREQUAL EXECUTABLE)
        target_link_options(${target} PRIVATE -pie)
    endif()
endforeach()
