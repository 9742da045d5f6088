# Sanitizers and hardening exclude each other: FORTIFY_SOURCE hides reads from the sanitizers.
add_library(veltrancord_hardening INTERFACE)
if(VELTRANCORD_SANITIZE)
  # The check of virtual tables looks at memory through a pipe, so it cries wolf in a process that
  # has no descriptor left; and there are tests of just that.
  target_compile_options(
    veltrancord_hardening
    INTERFACE -fsanitize=${VELTRANCORD_SANITIZE} -fno-sanitize=vptr
              -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(veltrancord_hardening INTERFACE -fsanitize=${VELTRANCORD_SANITIZE})
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  # All symbols are bound when the program starts (see below), so a call of a library goes to its
  # address at once and not by a stub that would bind it.
  target_compile_options(veltrancord_hardening INTERFACE -fstack-protector-strong
                                                         -fstack-clash-protection -fno-plt)
  target_compile_definitions(veltrancord_hardening INTERFACE _FORTIFY_SOURCE=2)
  target_link_options(
    veltrancord_hardening
    INTERFACE
    -Wl,-z,relro
    -Wl,-z,now
    -Wl,-z,noexecstack
    -Wl,--as-needed)
  # Position-independent programs; the policy lets CMake pass -pie to the linker for programs alone.
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
endif()
