# cmake -D SOURCE=folder -D BUILD=folder -P cmake/without_tool_libraries_test.cmake
#
# Without the libraries of the command-line tool the service can be built all the same, and whoever asks
# for the tool is told what is missing.
set(root ${BUILD}/without-tool-libraries-test)
file(REMOVE_RECURSE ${root})
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${root} -G Ninja -D BUILD_TESTING=OFF
          -D CMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -D CMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON
  RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "could not be configured:\n${said}")
endif()

# Nothing is compiled here: that the build knows how to make the service is enough.
execute_process(COMMAND ninja -C ${root} -t commands bin/Veltrancord
                RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(NOT result EQUAL 0 OR NOT said MATCHES "src/service/main.cpp")
  message(FATAL_ERROR "the service could not be built:\n${said}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${root} --target veltrancordctl
                RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(result EQUAL 0 OR NOT said MATCHES "libcli11-dev and nlohmann-json3-dev")
  message(FATAL_ERROR "it is not told what the tool lacks (${result}):\n${said}")
endif()
file(REMOVE_RECURSE ${root})
