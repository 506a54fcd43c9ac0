# What `cmake --install` puts under the prefix, for hosts that pick Corvid up as a package:
#   lib/            libcorvid, libcorvid_platform, libcorvid_sim, libcorvid_native
#                   (shared with soname .so.<major>, or static with CORVID_SHARED=OFF)
#   include/corvid/ the public headers, and nothing else
#   lib/cmake/Corvid/  find_package(Corvid): Corvid::corvid, Corvid::native, Corvid::sim
#   lib/pkgconfig/  corvid.pc, corvid-native.pc, corvid-sim.pc
#   bin/, share/man/man1/  the tools and their manual pages
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(CORVID_LIBRARIES corvid_platform corvid corvid_sim)
if(CORVID_NATIVE)
  list(APPEND CORVID_LIBRARIES corvid_native)
endif()

foreach(library ${CORVID_LIBRARIES})
  # Each library finds the others beside it, wherever the prefix is.
  set_target_properties(${library} PROPERTIES VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR} INSTALL_RPATH "$ORIGIN")
endforeach()
set_target_properties(corvid_platform PROPERTIES EXPORT_NAME platform)
set_target_properties(corvid PROPERTIES EXPORT_NAME corvid)
set_target_properties(corvid_sim PROPERTIES EXPORT_NAME sim)
if(CORVID_NATIVE)
  set_target_properties(corvid_native PROPERTIES EXPORT_NAME native)
endif()

install(TARGETS ${CORVID_LIBRARIES} EXPORT CorvidTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/corvid DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(CORVID_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Corvid)
install(EXPORT CorvidTargets NAMESPACE Corvid:: DESTINATION ${CORVID_CMAKE_DIR})
# A static runtime that asks rtkit brings libdbus-1 with it.
if(DBUS_FOUND)
  set(CORVID_WITH_DBUS ON)
else()
  set(CORVID_WITH_DBUS OFF)
endif()
configure_package_config_file(cmake/CorvidConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/CorvidConfig.cmake INSTALL_DESTINATION ${CORVID_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/CorvidConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/CorvidConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/CorvidConfigVersion.cmake DESTINATION ${CORVID_CMAKE_DIR})

# pkg-config: a static build lists what the libraries link in Libs.private/Requires.private.
set(CORVID_PC_LIBS_PRIVATE "-pthread")
set(CORVID_PC_NATIVE_REQUIRES_PRIVATE
  "libavformat libavcodec libavutil libswresample libpulse soundtouch taglib openssl")
if(CORVID_WITH_DBUS)
  string(APPEND CORVID_PC_NATIVE_REQUIRES_PRIVATE " dbus-1")
endif()
foreach(pc corvid corvid-sim corvid-native)
  if(pc STREQUAL corvid-native AND NOT CORVID_NATIVE)
    continue()
  endif()
  configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

if(CORVID_NATIVE)
  # The tools find the libraries beside them, wherever the prefix is.
  set_target_properties(corvid-play corvid-analyse PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS corvid-play corvid-analyse RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES docs/corvid-play.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
