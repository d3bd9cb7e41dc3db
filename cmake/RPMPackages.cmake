# What of the packages is RPM's own. They hold for the system that they are made on: its sonames are what they require.
set(runtime_package kelp-cmn-4-4)
set(development_package kelp-cmn-4-4-devel)
set(documentation_package kelp-cmn-4-4-doc)

set(CPACK_GENERATOR RPM)
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "none chosen yet")
set(CPACK_RPM_SPEC_MORE_DEFINE "%define packager ${CPACK_PACKAGE_CONTACT}
%define _build_id_links none")
set(CMAKE_INSTALL_SO_NO_EXE OFF) # as these systems have it, unlike Debian
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_RPM_CHANGELOG_FILE ${PROJECT_SOURCE_DIR}/cmake/rpm/changelog)
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/lib64 /usr/lib64/cmake /usr/lib64/pkgconfig /usr/share/man /usr/share/man/man1)

set(CPACK_RPM_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_RPM_RUNTIME_PACKAGE_SUMMARY "Common services for the processes of a large host product")
set(CPACK_RPM_RUNTIME_PACKAGE_GROUP "System/Libraries")
set(CPACK_RPM_RUNTIME_POST_INSTALL_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/cmake/rpm/ldconfig)
set(CPACK_RPM_RUNTIME_POST_UNINSTALL_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/cmake/rpm/ldconfig)

set(CPACK_RPM_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_RPM_DEVELOPMENT_PACKAGE_SUMMARY "What the builds of hosts of kelp_cmn_4_4 need")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_GROUP "Development/Libraries/C and C++")
# What the pkg-config file needs and gives, rpmbuild finds by itself.
set(CPACK_RPM_DEVELOPMENT_PACKAGE_REQUIRES "${runtime_package} = ${PROJECT_VERSION}, util-linux")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_PROVIDES "cmake(kelp_cmn_4_4) = ${PROJECT_VERSION}")

set(CPACK_RPM_DOCUMENTATION_PACKAGE_NAME ${documentation_package})
set(CPACK_RPM_DOCUMENTATION_PACKAGE_SUMMARY "Guide and reference of kelp_cmn_4_4 as HTML")
set(CPACK_RPM_DOCUMENTATION_PACKAGE_GROUP "Documentation/HTML")
set(CPACK_RPM_DOCUMENTATION_PACKAGE_ARCHITECTURE noarch)
