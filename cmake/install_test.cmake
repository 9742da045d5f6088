# cmake -D BUILD=folder -P cmake/install_test.cmake
set(root ${BUILD}/install-test)
file(REMOVE_RECURSE ${root})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${root}
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()
if(NOT EXISTS ${root}/sbin/Veltrancord)
  message(FATAL_ERROR "there is no sbin/Veltrancord")
endif()
file(REMOVE_RECURSE ${root})
