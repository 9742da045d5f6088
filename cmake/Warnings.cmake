# Warnings are errors everywhere; what is listed here was chosen to be useful, not to be many.
add_library(veltrancord_warnings INTERFACE)
target_compile_options(
  veltrancord_warnings
  INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wformat=2
            -Wcast-align -Wcast-qual -Wundef -Wvla -Wnull-dereference -Wimplicit-fallthrough
            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor
            -Wold-style-cast
            -Woverloaded-virtual
            -Wextra-semi>)
