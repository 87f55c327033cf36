# SPDX-License-Identifier: Apache-2.0
# What every target of this project has in common.

find_package(Threads REQUIRED)

# lm_target_defaults(TARGET): language, warnings and visibility, none of which reaches a consumer.
function(lm_target_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
    $<$<BOOL:${LM_WARNINGS_AS_ERRORS}>:-Werror>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
  if(LM_HARDENING)
    target_compile_options(${target} PRIVATE -fstack-protector-strong -U_FORTIFY_SOURCE
      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)  # the C library has it only for optimised code
    get_target_property(type ${target} TYPE)
    if(type STREQUAL EXECUTABLE)
      target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
    endif()
  endif()
  # 64-bit file offsets and times wherever the machine is 32 bits wide.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
endfunction()

# lm_shared_library(NAME OBJECTS): the shared library made of the object library OBJECTS, which the tests link too. It exports
# what NAME.map lists.
function(lm_shared_library name objects)
  add_library(${name} SHARED)
  add_library(${name}::${name} ALIAS ${name})
  target_link_libraries(${name} PRIVATE ${objects})
  target_compile_features(${name} PUBLIC cxx_std_17)
  set_target_properties(${name} PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  # The finaliser and the fork handlers keep pointers into the library, so it must not be unloaded.
  # Its own functions are called as its own: by way of the loader's table a list read of 33 took a tenth longer.
  set(map ${CMAKE_CURRENT_SOURCE_DIR}/${name}.map)
  target_link_options(${name} PRIVATE -Wl,-z,nodelete -Wl,-Bsymbolic-functions -Wl,--version-script=${map})
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})
  if(LM_HARDENING)
    target_link_options(${name} PRIVATE -Wl,-z,relro -Wl,-z,now)
  endif()
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")  # clang's runtime comes with the executable
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()

# lm_install_package(NAME): targets, CMake package and pkg-config file of one library. The package is found in the build tree too.
function(lm_install_package name)
  set(package ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  install(TARGETS ${name} EXPORT ${name}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name} NAMELINK_COMPONENT ${name}-dev)
  install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${package} COMPONENT ${name}-dev)
  export(EXPORT ${name}Targets NAMESPACE ${name}:: FILE ${CMAKE_CURRENT_BINARY_DIR}/${name}Targets.cmake)
  configure_package_config_file(${name}Config.cmake.in ${name}Config.cmake INSTALL_DESTINATION ${package})
  write_basic_package_version_file(${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
    DESTINATION ${package} COMPONENT ${name}-dev)
  lm_install_pkg_config(${name} ${name}-dev)
endfunction()

# lm_install_pkg_config(NAME COMPONENT): NAME.pc, made of NAME.pc.in.
function(lm_install_pkg_config name component)
  # The way from the pkg-config file to the prefix, so that the whole can be moved; libdir may have several levels.
  file(RELATIVE_PATH LM_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  configure_file(${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endfunction()
