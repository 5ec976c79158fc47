# Defines what `cmake --install` installs, in three components: Runtime (needed to run a program that uses the library),
# Development (needed to build such a program) and Testing (the testing kit and the program `halvern`).

include(CMakePackageConfigHelpers)
set(HALVERNAPI_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/HalvernApi)

# Sets the run path. The libraries are in one directory; their dependencies may be in others.
file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(target IN ITEMS HalvernApiPlatform HalvernApi HalvernApiTesting halvern)
  if(TARGET ${target})
    set_target_properties(${target} PROPERTIES
      INSTALL_RPATH "$ORIGIN$<$<STREQUAL:${target},halvern>:/${to_libraries}>"
      INSTALL_RPATH_USE_LINK_PATH ON)
  endif()
endforeach()

install(TARGETS HalvernApi HalvernApiPlatform EXPORT HalvernApiTargets
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE COMPONENT Development
  FILE_SET HEADERS COMPONENT Development)
install(EXPORT HalvernApiTargets NAMESPACE HalvernApi:: DESTINATION ${HALVERNAPI_CMAKE_DIR} COMPONENT Development)
if(TARGET HalvernApiTesting)
  install(TARGETS HalvernApiTesting EXPORT HalvernApiTestingTargets
    LIBRARY COMPONENT Testing
    ARCHIVE COMPONENT Testing
    FILE_SET HEADERS COMPONENT Testing)
  install(EXPORT HalvernApiTestingTargets NAMESPACE HalvernApi:: DESTINATION ${HALVERNAPI_CMAKE_DIR} COMPONENT Testing)
endif()
if(TARGET halvern)
  install(TARGETS halvern RUNTIME COMPONENT Testing)
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/HalvernApiConfig.cmake.in HalvernApiConfig.cmake
  INSTALL_DESTINATION ${HALVERNAPI_CMAKE_DIR})
write_basic_package_version_file(HalvernApiConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/HalvernApiConfig.cmake ${PROJECT_BINARY_DIR}/HalvernApiConfigVersion.cmake
  DESTINATION ${HALVERNAPI_CMAKE_DIR} COMPONENT Development)

# Programs must link the dependencies of a static library. A shared library refers to its dependencies.
if(BUILD_SHARED_LIBS)
  set(HALVERNAPI_PC_REQUIRES "")
else()
  set(HALVERNAPI_PC_REQUIRES "libcurl >= 7.87 libssl libcrypto")
endif()
# Boost and tl::expected have no .pc files, so this file names the directories of the headers.
get_target_property(boost Boost::json LOCATION)
get_target_property(boost_headers Boost::headers INTERFACE_INCLUDE_DIRECTORIES)
get_target_property(expected_headers tl::expected INTERFACE_INCLUDE_DIRECTORIES)
string(REGEX REPLACE "^(.*)/lib([^/.]*)[^/]*$" "-L\\1 -l\\2" HALVERNAPI_PC_LIBS ${boost})
set(headers "")
foreach(directory IN LISTS boost_headers expected_headers)  # the lists also contain directories without headers
  if(EXISTS ${directory}/boost/json.hpp OR EXISTS ${directory}/tl/expected.hpp)
    list(APPEND headers ${directory})
  endif()
endforeach()
list(REMOVE_DUPLICATES headers)
list(JOIN headers " -I" HALVERNAPI_PC_INCLUDES)
# The prefix is relative, so that the installed files can be moved.
file(RELATIVE_PATH HALVERNAPI_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/HalvernApi.pc.in HalvernApi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/HalvernApi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
