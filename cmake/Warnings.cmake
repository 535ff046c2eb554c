# Warnings are errors, everywhere.
add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion
                    -Wcast-align -Wcast-qual -Wundef -Wformat=2 -Wnon-virtual-dtor
                    -Woverloaded-virtual)

# For code that is never in a hurry and has many templates: builds in half the time, and still has the lines of
# a stack trace.
set(QUICK_BUILD $<$<CONFIG:RelWithDebInfo>:-O1> $<$<CONFIG:RelWithDebInfo>:-g1>)

# For tests that spend their time in the code under test: in the presets that ./check builds, their own code is
# not optimised, which is a third of the compiler's work on it, and half or more with sanitizers. The presets for
# debugging and coverage keep their flags.
set(UNHURRIED_BUILD "")
if(CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    set(UNHURRIED_BUILD -O0 -g1)
endif()
