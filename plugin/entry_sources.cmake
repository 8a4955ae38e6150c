list(APPEND KORVA_PLUGIN_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/entry/exported_runtime_classes.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/entry/handler_chain.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/entry/plugin_entry.cpp
)

# The runtime class members must exist as out-of-line copies to be exported; without inlining
# the kept functions of this file call them instead of absorbing them.
set_source_files_properties(${CMAKE_CURRENT_SOURCE_DIR}/entry/exported_runtime_classes.cpp
  PROPERTIES COMPILE_OPTIONS "-fno-inline")

# The export list of libkorva_protocol.so, applied once the library target exists (this file is
# read before the targets of plugin/ are declared).
set(KORVA_PLUGIN_EXPORT_MAP ${CMAKE_CURRENT_SOURCE_DIR}/entry/exports.map)
cmake_language(DEFER CALL target_link_options korva_protocol PRIVATE
  "LINKER:--version-script=${KORVA_PLUGIN_EXPORT_MAP}")
cmake_language(DEFER CALL set_property TARGET korva_protocol APPEND PROPERTY
  LINK_DEPENDS ${KORVA_PLUGIN_EXPORT_MAP})
