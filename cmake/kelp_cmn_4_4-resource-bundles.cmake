# kelp_cmn_4_4_add_resource_bundles(NAME SOURCE …): compiles message files (LOCALE.txt, in UTF-8) with ICU's tools into
# what CCmnIcuMessageCatalog opens as NAME. Both forms are made in resources/ of the current binary directory: the
# directory libNAME/ of LOCALE.res files, and the package libNAME.dat. The target is NAME_resources; it is built by what
# depends on it. Relative sources stand in the current source directory. No file needs one for a parent or the root.
function(kelp_cmn_4_4_add_resource_bundles name)
  find_program(KELP_CMN_4_4_GENRB genrb)
  find_program(KELP_CMN_4_4_ICUPKG icupkg)
  if(NOT KELP_CMN_4_4_GENRB OR NOT KELP_CMN_4_4_ICUPKG)
    message(FATAL_ERROR
      "kelp_cmn_4_4_add_resource_bundles needs ICU's programs genrb and icupkg (Debian: icu-devtools)")
  endif()

  set(resources ${CMAKE_CURRENT_BINARY_DIR}/resources)
  set(compiled ${resources}/lib${name})
  set(items)
  set(files)
  file(REMOVE_RECURSE ${compiled}) # a language that is no longer listed must not stay
  foreach(source IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE)
    cmake_path(GET source STEM locale)
    cmake_path(GET source PARENT_PATH directory)
    add_custom_command(OUTPUT ${compiled}/${locale}.res
      COMMAND ${CMAKE_COMMAND} -E make_directory ${compiled}
      COMMAND ${KELP_CMN_4_4_GENRB} --quiet --encoding UTF-8
        --sourcedir ${directory} --destdir ${compiled} ${locale}.txt
      DEPENDS ${source} VERBATIM)
    list(APPEND items ${locale}.res)
    list(APPEND files ${compiled}/${locale}.res)
  endforeach()

  # ICU finds a package's items by the name that the file had when they were put in. A parent that is missing is no
  # error (--ignore-deps): at run time ICU goes on to the next one.
  set(package ${resources}/lib${name}.dat)
  list(JOIN items "\n" lines)
  file(CONFIGURE OUTPUT ${resources}/${name}_items.txt CONTENT "${lines}\n")
  add_custom_command(OUTPUT ${package}
    COMMAND ${KELP_CMN_4_4_ICUPKG} -tl --ignore-deps -s ${compiled} -a ${resources}/${name}_items.txt new ${package}
    DEPENDS ${files} VERBATIM)
  add_custom_target(${name}_resources DEPENDS ${files} ${package})
endfunction()
