# What is installed, and how hosts find it. The component `runtime` is what a host's program needs in order to run,
# `development` what its build needs. Nothing names the prefix, so an installation can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kelp_cmn_4_4)

install(TARGETS kelp_cmn_4_4 EXPORT kelp_cmn_4_4-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelp_cmn_4_4 COMPONENT development)

install(EXPORT kelp_cmn_4_4-targets NAMESPACE kelp_cmn_4_4:: DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelp_cmn_4_4-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES cmake/kelp_cmn_4_4-config.cmake cmake/kelp_cmn_4_4-resource-bundles.cmake
  ${PROJECT_BINARY_DIR}/kelp_cmn_4_4-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pkgconfig_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH pkgconfig_to_libdir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pkgconfig_to_includedir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_FULL_INCLUDEDIR}/kelp_cmn_4_4)
configure_file(cmake/kelp_cmn_4_4.pc.in kelp_cmn_4_4.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelp_cmn_4_4.pc DESTINATION ${pkgconfig_dir} COMPONENT development)

# For trying a host out: what it does below /usr/tulsk in a view of its own.
install(PROGRAMS tests/support/private_view DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME kelp-cmn-4-4-private-view
  COMPONENT development)
set(manual_page cmake/kelp-cmn-4-4-private-view.1)
if(KELP_PACKAGES)
  set(manual_page ${compressed_manual_page})
endif()
install(FILES ${manual_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT development)

# Inside a host's project CMAKE_INSTALL_DOCDIR is the host's.
set(doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/kelp_cmn_4_4)
if(KELP_PACKAGES)
  set(doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/${development_package})
elseif(PROJECT_IS_TOP_LEVEL)
  set(doc_dir ${CMAKE_INSTALL_DOCDIR})
endif()
install(FILES README.md CHANGELOG.md SECURITY.md SUPPORT.md DESTINATION ${doc_dir} COMPONENT development)
# As in the tree, so that the links between them hold.
install(DIRECTORY docs/guide docs/examples DESTINATION ${doc_dir}/docs COMPONENT development
  PATTERN .clang-tidy EXCLUDE)
install(DIRECTORY examples DESTINATION ${doc_dir} COMPONENT development)
