# What `cmake --install` puts where (docs/install.md). Nothing of it depends on the prefix before it is installed.
#   runtime      the shared libraries
#   development  headers, static libraries, what finds them, documents and examples
#   command      vesk
#   server       veskd
set(DOCUMENTS ${CMAKE_INSTALL_DATADIR}/doc)

# The libraries, for programs that are built against them.
include(CMakePackageConfigHelpers)
set(PACKAGE_FILES ${CMAKE_INSTALL_LIBDIR}/cmake/vesk)
set_target_properties(orn_headers PROPERTIES EXPORT_NAME headers)
install(TARGETS vesk_shared vesk_static ornsupport ornsupport_static orn_headers EXPORT vesk
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(EXPORT vesk FILE vesk-targets.cmake NAMESPACE vesk:: DESTINATION ${PACKAGE_FILES} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vesk-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES packaging/vesk-config.cmake ${PROJECT_BINARY_DIR}/vesk-config-version.cmake
  DESTINATION ${PACKAGE_FILES} COMPONENT development)
install(FILES orn/records.h orn/skeys.h orn/status.h orn/support.h orn/vesk.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orn COMPONENT development)

file(RELATIVE_PATH PKGCONFIG_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" PKGCONFIG_TO_PREFIX ${PKGCONFIG_TO_PREFIX})
foreach(library vesk ornsupport)
  configure_file(packaging/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

install(FILES LICENSE CHANGELOG.md DESTINATION ${DOCUMENTS}/libvesk COMPONENT runtime)
install(FILES docs/abi.md docs/architecture.md docs/connection.md docs/install.md docs/protocol.md docs/statuses.md
  DESTINATION ${DOCUMENTS}/libvesk-dev COMPONENT development)
install(DIRECTORY examples DESTINATION ${DOCUMENTS}/libvesk-dev COMPONENT development)

# The command.
install(TARGETS vesk_command RUNTIME COMPONENT command)
install(FILES docs/command.md docs/schema/vesk-1.schema.json DESTINATION ${DOCUMENTS}/vesk COMPONENT command)

set(completions)
function(install_completion shell name folder)
  set(file ${PROJECT_BINARY_DIR}/completion/${shell}/${name})
  add_custom_command(OUTPUT ${file} DEPENDS vesk_command VERBATIM
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/completion/${shell}
    COMMAND vesk_command completion ${shell} > ${file})
  install(FILES ${file} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder} COMPONENT command)
  set(completions ${completions} ${file} PARENT_SCOPE)
endfunction()
install_completion(bash vesk bash-completion/completions)
install_completion(zsh _vesk zsh/site-functions)
install_completion(fish vesk.fish fish/vendor_completions.d)
add_custom_target(completions ALL DEPENDS ${completions})

# The server. Its unit names the program where it is.
install(TARGETS veskd RUNTIME COMPONENT server)
install(FILES docs/server.md DESTINATION ${DOCUMENTS}/veskd COMPONENT server)
install(FILES docs/veskd.toml docs/faults.toml DESTINATION ${DOCUMENTS}/veskd/examples COMPONENT server)
install(FILES packaging/veskd.toml DESTINATION ${DOCUMENTS}/veskd/examples RENAME service.toml COMPONENT server)
install(FILES packaging/sysusers.conf DESTINATION lib/sysusers.d RENAME veskd.conf COMPONENT server)
install(FILES packaging/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME veskd.conf COMPONENT server)
install(CODE "
  file(READ \"${PROJECT_SOURCE_DIR}/packaging/veskd.service\" unit)
  string(REPLACE /usr/ \"\${CMAKE_INSTALL_PREFIX}/\" unit \"\${unit}\")
  file(WRITE \"${PROJECT_BINARY_DIR}/veskd.service\" \"\${unit}\")
  file(INSTALL \"${PROJECT_BINARY_DIR}/veskd.service\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")"
  COMPONENT server)

# Man pages: a page of the server's, of the command's or of the libraries'.
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
foreach(page IN LISTS pages)
  cmake_path(GET page FILENAME name)
  cmake_path(GET page EXTENSION LAST_ONLY section)
  string(REPLACE . man section ${section})
  if(name MATCHES "^veskd")
    set(component server)
  elseif(name MATCHES "^vesk[.-]")
    set(component command)
  else()
    set(component development)
  endif()
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/${section} COMPONENT ${component})
endforeach()
