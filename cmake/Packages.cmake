# Packages, made by `cpack`: KELP_PACKAGES says of which kind. The library, what a host's build needs, and the
# documentation as HTML.
include(GNUInstallDirs)
find_program(KELP_GZIP gzip REQUIRED)
add_custom_target(package_documents ALL)
# kelp_compress(SOURCE NAME): makes NAME.gz in the build directory, the same in each build.
function(kelp_compress source name)
  add_custom_command(OUTPUT ${name}.gz
    COMMAND ${KELP_GZIP} -9nc ${PROJECT_SOURCE_DIR}/${source} > ${name}.gz
    DEPENDS ${source} VERBATIM)
  target_sources(package_documents PRIVATE ${PROJECT_BINARY_DIR}/${name}.gz)
endfunction()

kelp_compress(cmake/kelp-cmn-4-4-private-view.1 kelp-cmn-4-4-private-view.1)
set(compressed_manual_page ${PROJECT_BINARY_DIR}/kelp-cmn-4-4-private-view.1.gz)
set(CPACK_PACKAGE_CONTACT "kelp_cmn_4_4 project <kelp-cmn-4-4@packages.invalid>")
include(cmake/${KELP_PACKAGES}Packages.cmake)

foreach(component runtime development)
  install(FILES cmake/debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package}
    COMPONENT ${component})
endforeach()
install(FILES cmake/debian/copyright-doc DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${documentation_package}
  RENAME copyright COMPONENT documentation)
install(DIRECTORY ${PROJECT_BINARY_DIR}/html DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${documentation_package}
  COMPONENT documentation)

set(CPACK_PACKAGE_NAME kelp-cmn-4-4)
set(CPACK_PACKAGE_VENDOR "kelp_cmn_4_4 project")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_COMPONENTS_ALL runtime development documentation)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(no_licence "No licence has been chosen yet: that is the owner's to do.")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "The shared library: text conversions, trace files, configuration files,
localised messages, external commands run without a shell, host naming,
SAX parsing and a digest.
${no_licence}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "What a host's build needs: headers, CMake package, pkg-config file, guide
and examples; and a private view of the file system, to try a host in.
${no_licence}")
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION
  "The guide and the reference as HTML.
${no_licence}")

include(CPack)
