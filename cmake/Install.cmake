# What `cmake --install` puts where, and the Debian packages that CPack makes of it. Three components: Runtime (what a
# program that uses the library needs to run), Development (what it takes to build one) and Testing (the testing kit and
# the program `halvern`).

set(HALVERNAPI_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/HalvernApi)

set_target_properties(HalvernApiTesting PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
# Outside the system's own directories the libraries find one another.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(HalvernApi HalvernApiTesting PROPERTIES INSTALL_RPATH "$ORIGIN")
  set_target_properties(halvern PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

install(TARGETS HalvernApi HalvernApiPlatform EXPORT HalvernApiTargets
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE COMPONENT Development
  FILE_SET HEADERS COMPONENT Development)
install(TARGETS HalvernApiTesting EXPORT HalvernApiTestingTargets
  LIBRARY COMPONENT Testing
  ARCHIVE COMPONENT Testing
  FILE_SET HEADERS COMPONENT Testing)
install(TARGETS halvern RUNTIME COMPONENT Testing)

install(EXPORT HalvernApiTargets NAMESPACE HalvernApi:: DESTINATION ${HALVERNAPI_CMAKE_DIR} COMPONENT Development)
install(EXPORT HalvernApiTestingTargets NAMESPACE HalvernApi:: DESTINATION ${HALVERNAPI_CMAKE_DIR} COMPONENT Testing)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/HalvernApiConfig.cmake.in HalvernApiConfig.cmake
  INSTALL_DESTINATION ${HALVERNAPI_CMAKE_DIR})
write_basic_package_version_file(HalvernApiConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/HalvernApiConfig.cmake ${PROJECT_BINARY_DIR}/HalvernApiConfigVersion.cmake
  DESTINATION ${HALVERNAPI_CMAKE_DIR} COMPONENT Development)

# A static library leaves it to its user to link what it stands on; a shared one brings that along.
if(BUILD_SHARED_LIBS)
  set(HALVERNAPI_PC_REQUIRES "")
else()
  set(HALVERNAPI_PC_REQUIRES "libcurl >= 7.87 libssl libcrypto")
endif()
# Relative, so that the installed tree may be moved.
file(RELATIVE_PATH HALVERNAPI_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/HalvernApi.pc.in HalvernApi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/HalvernApi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The HalvernApi maintainers <maintainers@halvernapi.invalid>")
set(CPACK_PACKAGE_VENDOR "HalvernApi")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL Runtime Development Testing)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

set(runtime libhalvernapi${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "What programs that use the library need to run.")
# The trust store, and the zones in which dates are read and written.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "ca-certificates, tzdata")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libhalvernapi-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, and what build systems need to find the library.")
# The headers include Boost's and tl::expected's.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION}), libboost-json1.81-dev, libexpected-dev")

set(CPACK_DEBIAN_TESTING_PACKAGE_NAME halvernapi-testing)
set(CPACK_DEBIAN_TESTING_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_TESTING_DESCRIPTION
  "An embedded service to test applications against, and the program halvern.")
set(CPACK_DEBIAN_TESTING_PACKAGE_DEPENDS "libhalvernapi-dev (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TESTING_PACKAGE_SUGGESTS "libgmock-dev")
include(CPack)
