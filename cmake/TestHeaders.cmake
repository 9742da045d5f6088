# GoogleTest's headers take a compiler longer than most tests do, so they are compiled once: for the
# first target, whose compiled form the others take over. These have to have its compile options.
function(precompile_test_headers target)
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  get_property(first GLOBAL PROPERTY first_target_with_test_headers)
  if(first)
    target_precompile_headers(${target} REUSE_FROM ${first})
  else()
    set_property(GLOBAL PROPERTY first_target_with_test_headers ${target})
    target_precompile_headers(
      ${target} PRIVATE <gtest/gtest.h> <filesystem> <fstream> <memory> <random> <string> <vector>)
  endif()
endfunction()
