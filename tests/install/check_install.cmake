# cmake -D BUILD=... -D PREFIX=... -D LIBRARY_FOLDER=... -D CONFIGURATION=... -D COMPILER=...
#       -D CONSUMER=... -P check_install.cmake
#
# Installs the build into PREFIX, looks at what is there, and builds and runs the program in
# CONSUMER on it: by the CMake package, by pkg-config, and each public header alone.

function(run what)
  cmake_parse_arguments(RUN "" "OUTPUT" "" ${ARGN})
  execute_process(COMMAND ${RUN_UNPARSED_ARGUMENTS}
                  RESULT_VARIABLE failed
                  OUTPUT_VARIABLE output
                  ERROR_VARIABLE errors)
  if(failed)
    message(FATAL_ERROR "${what} failed (${failed}):\n${output}${errors}")
  endif()
  if(RUN_OUTPUT)
    set(${RUN_OUTPUT} "${output}" PARENT_SCOPE)
  endif()
endfunction()

# The installed tree is moved after its installation: nothing in it may depend on where it was.
file(REMOVE_RECURSE ${PREFIX} ${PREFIX}.first ${PREFIX}.work)
run("cmake --install" ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX}.first
    --config ${CONFIGURATION})
file(RENAME ${PREFIX}.first ${PREFIX})
file(MAKE_DIRECTORY ${PREFIX}.work/root)

foreach(file
        ${LIBRARY_FOLDER}/libvalmere.so
        ${LIBRARY_FOLDER}/libvalmere_client.a
        ${LIBRARY_FOLDER}/cmake/Valmere/ValmereConfig.cmake
        ${LIBRARY_FOLDER}/pkgconfig/valmere-client.pc
        bin/valmered
        bin/valmere
        include/valmere/prn.h
        include/valmere/client/session.h)
  if(NOT EXISTS ${PREFIX}/${file})
    message(SEND_ERROR "${file} was not installed")
  endif()
endforeach()

foreach(program valmered valmere)
  run("bin/${program} --help" ${PREFIX}/bin/${program} --help)
endforeach()

# Each header is enough by itself, strictly by the standard.
file(GLOB headers RELATIVE ${PREFIX}/include ${PREFIX}/include/valmere/*.h
                           ${PREFIX}/include/valmere/client/*.h)
foreach(header IN LISTS headers)
  file(WRITE ${PREFIX}.work/header.cpp "#include <${header}>\n#include <${header}>\n")
  run("compiling <${header}> alone" ${COMPILER} -std=c++20 -pedantic -Wall -Wextra -Werror
      -fsyntax-only -I ${PREFIX}/include ${PREFIX}.work/header.cpp)
endforeach()

function(check_consumer way program)
  run("running the program built by ${way}"
      ${CMAKE_COMMAND} -E env VALMERE_ROOT=${PREFIX}.work/root
      LD_LIBRARY_PATH=${PREFIX}/${LIBRARY_FOLDER} ${program}
      OUTPUT said)
  if(NOT said STREQUAL "Speed: fast\n")
    message(SEND_ERROR "the program built by ${way} says: ${said}")
  endif()
endfunction()

run("configuring by find_package"
    ${CMAKE_COMMAND} -S ${CONSUMER} -B ${PREFIX}.work/by-cmake
    -D CMAKE_BUILD_TYPE=${CONFIGURATION} -D CMAKE_CXX_COMPILER=${COMPILER}
    -D CMAKE_PREFIX_PATH=${PREFIX})
run("building by find_package" ${CMAKE_COMMAND} --build ${PREFIX}.work/by-cmake)
check_consumer(find_package ${PREFIX}.work/by-cmake/consumer)

find_program(pkg_config pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBRARY_FOLDER}/pkgconfig)
run("pkg-config --cflags" ${pkg_config} --cflags valmere-client OUTPUT compile)
run("pkg-config --libs" ${pkg_config} --libs valmere-client OUTPUT libraries)
separate_arguments(compile UNIX_COMMAND "${compile}")
separate_arguments(libraries UNIX_COMMAND "${libraries}")
run("building by pkg-config"
    ${COMPILER} -std=c++20 ${compile} ${CONSUMER}/consumer.cpp ${libraries} -lvalmere
    -o ${PREFIX}.work/by-pkg-config)
check_consumer(pkg-config ${PREFIX}.work/by-pkg-config)
