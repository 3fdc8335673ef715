# cmake -D BUILD=... -D PREFIX=... -D LIBRARY_FOLDER=... -D CONFIGURATION=... -P check_install.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX}
                        --config ${CONFIGURATION}
                RESULT_VARIABLE failed
                OUTPUT_VARIABLE output
                ERROR_VARIABLE output)
if(failed)
  message(FATAL_ERROR "cmake --install failed:\n${output}")
endif()

foreach(file ${LIBRARY_FOLDER}/libvalmere.so bin/valmered bin/valmere include/valmere/prn.h)
  if(NOT EXISTS ${PREFIX}/${file})
    message(SEND_ERROR "${file} was not installed")
  endif()
endforeach()

foreach(program valmered valmere)
  execute_process(COMMAND ${PREFIX}/bin/${program} --help RESULT_VARIABLE failed OUTPUT_QUIET)
  if(failed)
    message(SEND_ERROR "bin/${program} does not start: ${failed}")
  endif()
endforeach()
