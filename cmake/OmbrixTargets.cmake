# How the project declares its targets, so that every one states the same usage requirements.
#
# ombrix_add_library(<name> STATIC|INTERFACE|OBJECT [sources...])
#   Target ombrix_<name> with the alias Ombrix::<name>, exported under the same name. C++17 is a
#   usage requirement. Compiled libraries build position-independent code (the processing plug-in
#   module links them) with hidden symbols, so that a module linking them exports only what it
#   marks itself, and with the project's warnings (a build-tree requirement only: an installed
#   library asks nothing of its consumers' warnings).
#
# ombrix_install_headers(<folder> [headers...])
#   Public headers of an area, installed under include/ombrix/<folder> when the project installs
#   (OMBRIX_INSTALL). Headers not named here are private to the implementation.
#
# ombrix_add_executable(<name> [sources...])
#   A program of the project: C++17 and the project's warnings.
#
# ombrix_add_plugin_module(<name> [sources...])
#   A loadable plug-in library: no "lib" prefix, C++17, the project's warnings, and the
#   "GetInstance" entry (marked OMBRIX_PLUGIN_API) as its only exported symbol: its own code is
#   compiled with hidden symbols and, where the linker takes a version script, everything else it
#   links (standard-library instantiations included) stays local.

function(ombrix_add_library name kind)
  add_library(ombrix_${name} ${kind} ${ARGN})
  add_library(Ombrix::${name} ALIAS ombrix_${name})
  set_target_properties(ombrix_${name} PROPERTIES EXPORT_NAME ${name})
  if(kind STREQUAL "INTERFACE")
    target_compile_features(ombrix_${name} INTERFACE cxx_std_17)
  else()
    target_compile_features(ombrix_${name} PUBLIC cxx_std_17)
    set_target_properties(ombrix_${name} PROPERTIES
      POSITION_INDEPENDENT_CODE ON
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
    target_link_libraries(ombrix_${name} PRIVATE $<BUILD_INTERFACE:ombrix_warnings>)
  endif()
endfunction()

function(ombrix_install_headers folder)
  if(OMBRIX_INSTALL)
    install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ombrix/${folder}
            COMPONENT development)
  endif()
endfunction()

function(ombrix_add_executable name)
  add_executable(${name} ${ARGN})
  target_compile_features(${name} PRIVATE cxx_std_17)
  target_link_libraries(${name} PRIVATE ombrix_warnings)
endfunction()

set(OMBRIX_PLUGIN_EXPORTS_MAP ${CMAKE_CURRENT_LIST_DIR}/PluginExports.map)

function(ombrix_add_plugin_module name)
  add_library(${name} MODULE ${ARGN})
  target_compile_features(${name} PRIVATE cxx_std_17)
  target_compile_definitions(${name} PRIVATE OMBRIX_PLUGIN_EXPORTS)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:ombrix_warnings>)
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" AND NOT APPLE AND NOT WIN32)
    target_link_options(${name} PRIVATE "LINKER:--version-script=${OMBRIX_PLUGIN_EXPORTS_MAP}")
    set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${OMBRIX_PLUGIN_EXPORTS_MAP})
  endif()
endfunction()
