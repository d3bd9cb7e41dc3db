# What of the packages is Debian's own.
set(runtime_package libkelp-cmn-4-4-4) # named after the SONAME, as Debian does it
set(development_package libkelp-cmn-4-4-dev)
set(documentation_package kelp-cmn-4-4-doc)

# Every Debian package has a changelog, in a directory of its own name.
kelp_compress(cmake/debian/changelog changelog)
foreach(component runtime development documentation)
  install(FILES ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package}
    COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Debian runs ldconfig by a trigger. CPack would add scripts that call it; it leaves that to scripts named here, and
# leaves out those that do not exist.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${PROJECT_BINARY_DIR}/none/postinst ${PROJECT_BINARY_DIR}/none/postrm)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${PROJECT_VERSION}), libace-dev, libicu-dev, libxerces-c-dev, pkgconf, mount")
# Only hosts with message files need ICU's tools.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS icu-devtools)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS ${documentation_package})

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME ${documentation_package})
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
