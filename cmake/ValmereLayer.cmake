# One layer of the system: an object library, compiled once and linked into the driver library, the
# tests and the benches alike.
#
#   valmere_layer(NAME SOURCES a.cpp b.cpp USES lower_layer ...)
#
# makes the object library `valmere_NAME` and the interface target `valmere::NAME`, which brings the
# objects of this layer and of all layers below it.
add_library(valmere_options INTERFACE)
target_include_directories(valmere_options INTERFACE ${PROJECT_SOURCE_DIR})
# Unique symbols would keep the library loaded after dlclose.
target_compile_options(valmere_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
if(NOT WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  # File sizes, inode numbers and times have 64 bits, as elsewhere: files that do not fit into less
  # could not even be looked at, and the device may be at work after 2038.
  target_compile_definitions(valmere_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
if(VALMERE_WARNINGS_AS_ERRORS)
  target_compile_options(valmere_options INTERFACE -Werror)
endif()
target_compile_options(valmere_options INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
                                                 -Wcast-align -Wunused -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(valmere_options INTERFACE -Wthread-safety)
endif()
if(VALMERE_SANITIZE)
  target_compile_options(valmere_options INTERFACE -fsanitize=${VALMERE_SANITIZE}
                                                   -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(valmere_options INTERFACE -fsanitize=${VALMERE_SANITIZE})
  if(VALMERE_SANITIZE MATCHES "undefined")
    # Looking at every pointer is most of what this sanitizer adds. In tests the address sanitizer is
    # enough; they take a third less time to compile.
    target_compile_options(valmere_options INTERFACE
      $<$<BOOL:$<TARGET_PROPERTY:VALMERE_IS_TEST>>:-fno-sanitize=null,alignment,vptr>)
  endif()
endif()
if(VALMERE_SANITIZE STREQUAL "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # As a C++ linker clang adds the sanitizer's operators new and delete, where tests have their own.
  set(CMAKE_CXX_LINK_EXECUTABLE
      "<CMAKE_C_COMPILER> <FLAGS> <CMAKE_CXX_LINK_FLAGS> <LINK_FLAGS> <OBJECTS> -o <TARGET> \
<LINK_LIBRARIES> -lstdc++ -lm")
endif()
if(VALMERE_COVERAGE)
  # By clang, which counts the branches of the source. gcc counts each call that may throw as one.
  target_compile_options(valmere_options INTERFACE -fprofile-instr-generate -fcoverage-mapping)
  target_link_options(valmere_options INTERFACE -fprofile-instr-generate)
endif()

function(valmere_layer name)
  cmake_parse_arguments(LAYER "" "" "SOURCES;USES" ${ARGN})
  add_library(valmere_${name} OBJECT ${LAYER_SOURCES})
  target_link_libraries(valmere_${name} PUBLIC valmere_options)
  add_library(valmere_${name}_all INTERFACE)
  target_link_libraries(valmere_${name}_all INTERFACE valmere_options Threads::Threads)
  target_sources(valmere_${name}_all INTERFACE $<TARGET_OBJECTS:valmere_${name}>)
  foreach(lower IN LISTS LAYER_USES)
    target_link_libraries(valmere_${name}_all INTERFACE valmere::${lower})
  endforeach()
  add_library(valmere::${name} ALIAS valmere_${name}_all)
endfunction()
