# cmake -D BUILD=folder -D SANITIZE=names -P cmake/install_test.cmake
#
# Installs below a prefix of its own: the program has to be there, and a small C program has to find the
# library by pkg-config, by the CMake package and by the static library, and to run.
set(root ${BUILD}/install-test)
file(REMOVE_RECURSE ${root})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "failed: ${command}\n${said}")
  endif()
endfunction()

# Without a service there is no answer; that the call says so shows that it was the library's.
function(expect_unreachable program)
  execute_process(COMMAND ${ARGN} ${program} RESULT_VARIABLE result OUTPUT_VARIABLE said)
  if(NOT result EQUAL 3)
    message(FATAL_ERROR "${program} ended with ${result}: ${said}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${root}/prefix)
if(NOT EXISTS ${root}/prefix/sbin/Veltrancord)
  message(FATAL_ERROR "there is no sbin/Veltrancord")
endif()

set(flags)
if(SANITIZE)
  set(flags -fsanitize=${SANITIZE})
endif()
file(WRITE ${root}/try.c "
#include <stdlib.h>
#include <veltrancord/client.h>
int main(void) {
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    char value[32];
    client.socket_path = \"${root}/nobody-listens\";
    client.timeout_ms = 1;
    return veltrancord_get(&client, \"System.Name\", value, sizeof value) == VELTRANCORD_UNREACHABLE
               ? 3 : EXIT_FAILURE;
}
")

file(GLOB_RECURSE description ${root}/prefix/*/veltrancord.pc)
cmake_path(GET description PARENT_PATH descriptions)
cmake_path(GET descriptions PARENT_PATH libraries)
set(ENV{PKG_CONFIG_PATH} ${descriptions})
execute_process(COMMAND pkg-config --cflags --libs veltrancord OUTPUT_VARIABLE found
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(found UNIX_COMMAND "${found}")
run(cc ${flags} ${root}/try.c -o ${root}/try ${found})
expect_unreachable(${root}/try ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libraries})
run(cc ${flags} -I${root}/prefix/include ${root}/try.c -o ${root}/try_static
    ${libraries}/libveltrancord.a)
expect_unreachable(${root}/try_static)

file(WRITE ${root}/CMakeLists.txt "
cmake_minimum_required(VERSION 3.23)
project(try C)
find_package(Veltrancord 1 REQUIRED)
foreach(kind veltrancord veltrancord_static)
  add_executable(try_\${kind} try.c)
  target_link_libraries(try_\${kind} Veltrancord::\${kind})
endforeach()
")
run(${CMAKE_COMMAND} -S ${root} -B ${root}/build -G Ninja -D CMAKE_PREFIX_PATH=${root}/prefix
    "-DCMAKE_C_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${root}/build)
expect_unreachable(${root}/build/try_veltrancord)
expect_unreachable(${root}/build/try_veltrancord_static)
file(REMOVE_RECURSE ${root})
