# What is installed, and the Debian package of it (cpack -G DEB).

include(CMakePackageConfigHelpers)

set_target_properties(libhierfit PROPERTIES EXPORT_NAME hierfit)
set_target_properties(libhierfithost PROPERTIES EXPORT_NAME host)
set_target_properties(hierfitparts PROPERTIES EXPORT_NAME archive)
target_include_directories(libhierfithost INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  $<BUILD_INTERFACE:${CMAKE_BINARY_DIR}/inc/embed> $<BUILD_INTERFACE:${CMAKE_BINARY_DIR}/inc/run>)
target_compile_features(libhierfithost INTERFACE cxx_std_20)
install(TARGETS hierfit RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS libhierfit libhierfithost hierfitparts EXPORT hierfitTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

# The friendly header, and the headers by which a host of one's own meets the parts.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/hierfit)
install(FILES src/embed/hierfit.h DESTINATION ${headers})
install(FILES src/run/Figures.h DESTINATION ${headers}/run)
install(DIRECTORY src/contracts src/run src/command DESTINATION ${headers}/parts FILES_MATCHING PATTERN *.h)
install(DIRECTORY src/host/data DESTINATION ${headers}/parts/host FILES_MATCHING PATTERN *.h)
install(FILES src/procedure/MixDriver.h src/procedure/Export.h DESTINATION ${headers}/parts/procedure)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/hierfit)
install(EXPORT hierfitTargets NAMESPACE hierfit:: DESTINATION ${package})
configure_package_config_file(cmake/hierfitConfig.cmake.in ${CMAKE_BINARY_DIR}/gen/hierfitConfig.cmake
  INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/gen/hierfitConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/gen/hierfitConfig.cmake ${CMAKE_BINARY_DIR}/gen/hierfitConfigVersion.cmake
  DESTINATION ${package})

install(DIRECTORY share/ DESTINATION ${CMAKE_INSTALL_DATADIR}/hierfit)
install(FILES ${CMAKE_BINARY_DIR}/gen/help/hierfit.1 DESTINATION ${CMAKE_INSTALL_DATADIR}/man/man1)
install(FILES ${CMAKE_BINARY_DIR}/gen/help/hierfit.bash RENAME hierfit
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${CMAKE_BINARY_DIR}/gen/help/_hierfit DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/hierfit)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/hierfit)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The hierfit developers <hierfit@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "linear and generalized linear mixed models")
set(CPACK_PACKAGE_DESCRIPTION "Fits mixed models to the rows of a CSV file, from a formula or a command: the program\n\
 hierfit, its library, and a library for programs that embed it.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION math)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
# What a host of one's own links the parts with.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "g++, cmake, pkg-config, libfmt-dev, libpugixml-dev, liblapacke-dev, libopenblas-pthread-dev")
include(CPack)
