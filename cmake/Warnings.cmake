# Warnings are errors, everywhere.
add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion
                    -Wcast-align -Wcast-qual -Wundef -Wformat=2 -Wnon-virtual-dtor
                    -Woverloaded-virtual)
