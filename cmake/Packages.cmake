# The Debian packages that CPack builds from the components in Install.cmake.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The HalvernApi maintainers <maintainers@halvernapi.invalid>")
set(CPACK_PACKAGE_VENDOR "HalvernApi")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

# shared_libraries(COMPONENT library...): writes the files shlibs and triggers for the package of COMPONENT. Packages
# that link them will depend on this version or a later one.
function(shared_libraries component)
  set(directory ${PROJECT_BINARY_DIR}/control/${component})
  file(WRITE ${directory}/triggers "activate-noawait ldconfig\n")
  file(WRITE ${directory}/shlibs "")
  foreach(library IN LISTS ARGN)
    file(APPEND ${directory}/shlibs
      "lib${library} ${HALVERNAPI_SOVERSION} ${CPACK_DEBIAN_${component}_PACKAGE_NAME} (>= ${PROJECT_VERSION})\n")
  endforeach()
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${directory}/triggers ${directory}/shlibs PARENT_SCOPE)
endfunction()

# The headers of the library include headers of Boost and tl::expected.
set(needed "libboost-json${Boost_VERSION_MAJOR}.${Boost_VERSION_MINOR}-dev, libexpected-dev")
set(CPACK_COMPONENTS_ALL Development)
if(BUILD_SHARED_LIBS)
  set(runtime libhalvernapi${HALVERNAPI_SOVERSION})
  list(APPEND CPACK_COMPONENTS_ALL Runtime)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
  shared_libraries(RUNTIME HalvernApi HalvernApiPlatform)
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Shared libraries, needed to run programs that use HalvernApi.")
  # ca-certificates is the trust store. tzdata has the time zones for reading and writing dates.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "ca-certificates, tzdata")
  string(PREPEND needed "${runtime} (= ${PROJECT_VERSION}), ")
else()
  string(PREPEND needed "libcurl4-openssl-dev, libssl-dev, ")
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libhalvernapi-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${needed}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, and files with which build systems find the library.")

if(TARGET HalvernApiTesting)
  list(APPEND CPACK_COMPONENTS_ALL Testing)
  set(CPACK_DEBIAN_TESTING_PACKAGE_NAME halvernapi-testing)
  set(CPACK_DEBIAN_TESTING_PACKAGE_SECTION devel)
  if(BUILD_SHARED_LIBS)
    shared_libraries(TESTING HalvernApiTesting)
  endif()
  set(CPACK_DEBIAN_TESTING_PACKAGE_DEPENDS "libhalvernapi-dev (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_TESTING_PACKAGE_SUGGESTS "libgmock-dev")
  set(CPACK_COMPONENT_TESTING_DESCRIPTION
    "An embedded service for tests of applications, and the program halvern.")
endif()

if(BUILD_SHARED_LIBS)
  list(APPEND CPACK_COMPONENTS_ALL Debug)
  set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME halvernapi-dbg)
  set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION debug)
  set(CPACK_DEBIAN_DEBUG_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION})")
  set(CPACK_COMPONENT_DEBUG_DESCRIPTION "Debug information of the shared libraries and the program halvern.")
endif()
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/Staged.cmake)

# Debian requires these files in every package.
file(WRITE ${PROJECT_BINARY_DIR}/copyright "No licence has been chosen: nobody but the owner may use, copy or change this.\n")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${PROJECT_BINARY_DIR}/changelog "halvernapi (${PROJECT_VERSION}) stable; urgency=medium

  * CHANGELOG.md lists the changes.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
file(ARCHIVE_CREATE OUTPUT ${PROJECT_BINARY_DIR}/changelog.gz PATHS ${PROJECT_BINARY_DIR}/changelog
  FORMAT raw COMPRESSION GZip COMPRESSION_LEVEL 9 MTIME 0)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} name)
  install(FILES ${PROJECT_BINARY_DIR}/copyright ${PROJECT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
include(CPack)
