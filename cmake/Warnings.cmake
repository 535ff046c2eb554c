# Warnings are errors, everywhere.
add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion
                    -Wcast-align -Wcast-qual -Wundef -Wformat=2 -Wnon-virtual-dtor
                    -Woverloaded-virtual)

# For code that is never in a hurry and has many templates: builds in half the time, and still has the lines of
# a stack trace.
set(QUICK_BUILD $<$<CONFIG:RelWithDebInfo>:-O1> $<$<CONFIG:RelWithDebInfo>:-g1>)
