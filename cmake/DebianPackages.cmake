# Two Debian packages, made by `cpack` in a build tree of the preset `package`.
set(runtime_package libkelp-cmn-4-4-4) # named after the SONAME, as Debian does it
set(development_package libkelp-cmn-4-4-dev)

# Every Debian package has these two, in a directory of its own name.
find_program(KELP_GZIP gzip REQUIRED)
add_custom_command(OUTPUT changelog.gz
  COMMAND ${KELP_GZIP} -9nc ${PROJECT_SOURCE_DIR}/cmake/debian/changelog > changelog.gz
  DEPENDS cmake/debian/changelog VERBATIM)
add_custom_target(debian_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.gz)
foreach(component runtime development)
  install(FILES cmake/debian/copyright ${PROJECT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "kelp_cmn_4_4 project <kelp-cmn-4-4@packages.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Debian runs ldconfig by a trigger. CPack would add scripts that call it; it leaves that to scripts named here, and
# leaves out those that do not exist.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${PROJECT_BINARY_DIR}/none/postinst ${PROJECT_BINARY_DIR}/none/postrm)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "The shared library: text conversions, trace files, configuration files,
localised messages, external commands run without a shell, host naming,
SAX parsing and a digest.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${PROJECT_VERSION}), libace-dev, libicu-dev, libxerces-c-dev, pkgconf")
# Only hosts with message files need ICU's tools.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS icu-devtools)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "What a host's build needs: headers, CMake package, pkg-config file, guide
and examples.")

include(CPack)
