# kelp_add_resource_bundles(NAME SOURCE …): compiles the sources (LOCALE.txt, all in one directory) with ICU's tools into
# what CCmnIcuMessageCatalog opens as NAME. Both forms are made in resources/ of the current binary directory: the directory
# libNAME/ of LOCALE.res files, and the package libNAME.dat. The target is NAME_resources.
find_program(KELP_GENRB genrb REQUIRED)
find_program(KELP_ICUPKG icupkg REQUIRED)

function(kelp_add_resource_bundles name)
  set(resources ${CMAKE_CURRENT_BINARY_DIR}/resources)
  set(compiled ${resources}/lib${name})
  set(items)
  set(files)
  file(REMOVE_RECURSE ${compiled}) # a language that is no longer listed must not stay
  foreach(source ${ARGN})
    cmake_path(GET source STEM locale)
    cmake_path(GET source PARENT_PATH directory)
    add_custom_command(OUTPUT ${compiled}/${locale}.res
      COMMAND ${CMAKE_COMMAND} -E make_directory ${compiled}
      COMMAND ${KELP_GENRB} --quiet --encoding UTF-8
        --sourcedir ${CMAKE_CURRENT_SOURCE_DIR}/${directory} --destdir ${compiled} ${locale}.txt
      DEPENDS ${source} VERBATIM)
    list(APPEND items ${locale}.res)
    list(APPEND files ${compiled}/${locale}.res)
  endforeach()

  # ICU finds a package's items by the name that the file had when they were put in.
  set(package ${resources}/lib${name}.dat)
  list(JOIN items "\n" lines)
  file(CONFIGURE OUTPUT ${resources}/${name}_items.txt CONTENT "${lines}\n")
  add_custom_command(OUTPUT ${package}
    COMMAND ${KELP_ICUPKG} -tl -s ${compiled} -a ${resources}/${name}_items.txt new ${package}
    DEPENDS ${files} VERBATIM)
  add_custom_target(${name}_resources DEPENDS ${files} ${package})
endfunction()
