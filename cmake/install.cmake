# What `cmake --install` installs: the library, its headers, the programs with their man pages, and the files with which
# CMake and pkg-config find them. Also the stub of the browser's libraries, which the programs need to run, and with
# which a host can be built without a browser.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_LIBDIR lib CACHE PATH "Where libraries are installed; programs look for the plugin in ../lib")
include(GNUInstallDirs)
set(KIV_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/kiv_proc_plugin)
set(KIV_PACKAGEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/kiv_proc_plugin)

install(TARGETS kiv_proc_plugin corvane EXPORT kiv_proc_plugin LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES plugin/kiv_proc_plugin.h plugin/corvane.h plugin/commands.h DESTINATION ${KIV_INCLUDEDIR}/plugin)
install(DIRECTORY platform/ DESTINATION ${KIV_INCLUDEDIR}/platform FILES_MATCHING PATTERN *.h)
target_include_directories(kiv_proc_plugin INTERFACE $<INSTALL_INTERFACE:${KIV_INCLUDEDIR}>)
target_include_directories(corvane INTERFACE
  $<INSTALL_INTERFACE:${KIV_INCLUDEDIR}> $<INSTALL_INTERFACE:${KIV_INCLUDEDIR}/platform>)

install(EXPORT kiv_proc_plugin NAMESPACE kiv:: DESTINATION ${KIV_PACKAGEDIR} FILE kiv_proc_plugin-config.cmake)
write_basic_package_version_file(kiv_proc_plugin-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kiv_proc_plugin-config-version.cmake DESTINATION ${KIV_PACKAGEDIR})
foreach(package kiv_proc_plugin corvane)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# Installs a program, and its man page, which is made from its --help and --version.
find_program(HELP2MAN help2man)
function(install_program name summary)
  if(NOT TARGET ${name})
    return()
  endif()
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  if(HELP2MAN)
    set(page ${CMAKE_BINARY_DIR}/man/${name}.1)
    add_custom_command(OUTPUT ${page} DEPENDS ${name}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
      COMMAND ${HELP2MAN} --no-info --name=${summary} --output=${page} $<TARGET_FILE:${name}> VERBATIM)
    add_custom_target(${name}_man ALL DEPENDS ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endfunction()

install_program(kiv_replay "replay recorded page loads with and without the preloading plugin")
install_program(kiv_link "run commands at the two ends of a link with a given delay, rate and queue")
install_program(kiv_proxy "a proxy for a browser that preloads what pages are going to need")
