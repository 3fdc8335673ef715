# What is installed, and where. Included by the root, behind all the folders whose targets it names.

# ---- The driver library
install(FILES ${PROJECT_SOURCE_DIR}/driver/prn.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/valmere)
if(WIN32)
  install(TARGETS valmere_driver prntest RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  return()
endif()

# ---- The libraries as a CMake package and, for other build systems, as a pkg-config file. Neither
# holds an absolute path, so an installed tree can be moved.
set(made_for_install ${PROJECT_BINARY_DIR}/install)
set_target_properties(valmere_client PROPERTIES EXPORT_NAME client)
set_target_properties(valmere_driver PROPERTIES EXPORT_NAME driver)
target_include_directories(valmere_client INTERFACE
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_include_directories(valmere_driver INTERFACE
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS valmere_client valmere_driver EXPORT ValmereTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Valmere)
install(EXPORT ValmereTargets NAMESPACE Valmere:: DESTINATION ${package_folder})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ValmereConfig.cmake.in
                              ${made_for_install}/ValmereConfig.cmake
                              INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${made_for_install}/ValmereConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${made_for_install}/ValmereConfig.cmake
              ${made_for_install}/ValmereConfigVersion.cmake
        DESTINATION ${package_folder})

set(pkgconfig_folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig ${pkgconfig_folder} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH library_folder ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH include_folder ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/valmere-client.pc.in
               ${made_for_install}/valmere-client.pc @ONLY)
install(FILES ${made_for_install}/valmere-client.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- The client library's headers. Programs include <valmere/client/session.h>. The copies that
# are installed include each other by that name too, so that they never meet a folder "client" of
# the program's own.
set(public_headers
  client.h
  connector.h
  deadline.h
  driver_transport.h
  observed_transport.h
  property.h
  result.h
  session.h
  socket_path.h
  socket_transport.h
  transport.h)
set(installed_headers ${made_for_install}/valmere/client)
foreach(header IN LISTS public_headers)
  set(source ${PROJECT_SOURCE_DIR}/client/${header})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  file(READ ${source} text)
  string(REPLACE "#include \"client/" "#include \"valmere/client/" text "${text}")
  file(CONFIGURE OUTPUT ${installed_headers}/${header} CONTENT "${text}" @ONLY)
endforeach()
install(DIRECTORY ${installed_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/valmere)

# ---- valmered. Its units name the installed program. The service manager finds them without a
# setting where the prefix is /usr or /usr/local.
install(TARGETS valmered RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
set(VALMERED_PROGRAM ${CMAKE_INSTALL_FULL_BINDIR}/valmered)
set(units ${PROJECT_SOURCE_DIR}/host/systemd)
configure_file(${units}/valmered.service.in ${made_for_install}/valmered.service @ONLY)
install(FILES ${made_for_install}/valmered.service ${units}/valmered.socket
        DESTINATION lib/systemd/system)
install(FILES ${units}/valmere.conf DESTINATION lib/sysusers.d)

# ---- The command
if(VALMERE_COMMAND)
  install(TARGETS valmere RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  set(completions ${PROJECT_SOURCE_DIR}/completions)
  install(FILES ${completions}/valmere.bash RENAME valmere
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completions}/_valmere DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${completions}/valmere.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR})
