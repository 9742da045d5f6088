# Warnings are errors everywhere; what is listed here was chosen to be useful, not to be many.
add_library(veltrancord_warnings INTERFACE)
target_compile_options(
  veltrancord_warnings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Werror
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wdouble-promotion
            -Wformat=2
            -Wcast-align
            -Wcast-qual
            -Wundef
            -Wvla
            -Wimplicit-fallthrough
            -Wmissing-declarations
            -Wunused)
target_compile_options(
  veltrancord_warnings
  INTERFACE $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes
            -Wmissing-prototypes>
            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor
            -Wold-style-cast
            -Woverloaded-virtual
            -Wextra-semi>)
# Some only one of the two compilers knows.
target_compile_options(
  veltrancord_warnings
  INTERFACE $<$<C_COMPILER_ID:GNU>:-Wduplicated-cond
            -Wduplicated-branches
            -Wlogical-op
            -Walloca>
            $<$<C_COMPILER_ID:Clang>:-Wcomma
            -Wunreachable-code
            -Wloop-analysis>)
