# cmake -P cmake/value_key_test.cmake: which keys ValueKey.cmake lets pass.
function(expect key passes)
  execute_process(
    COMMAND ${CMAKE_COMMAND} "-DVELTRANCORD_VALUE_KEY=${key}" -P
            ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ValueKey.cmake
    RESULT_VARIABLE result
    OUTPUT_QUIET ERROR_QUIET)
  if(passes AND NOT result EQUAL 0)
    message(SEND_ERROR "refused: ${key}")
  elseif(NOT passes AND result EQUAL 0)
    message(SEND_ERROR "let pass: ${key}")
  endif()
endfunction()

expect("Vt7mkQ2" TRUE)
expect("!#%&'()" TRUE)
expect("" FALSE)
expect("Vt7mkQ" FALSE)
expect("Vt7mkQ22" FALSE)
expect("Vt7 kQ2" FALSE)
expect("Vt7\"kQ2" FALSE)
expect("Vt7\$kQ2" FALSE)
expect("Vt7\\\\kQ2" FALSE)
expect("Vt7?kQ2" FALSE)
# Seven characters, but more bytes than seven.
expect("Vt7mkQé" FALSE)
