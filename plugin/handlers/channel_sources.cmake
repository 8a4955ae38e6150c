list(APPEND KORVA_PLUGIN_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/channel_audio.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/channel_capabilities.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/channel_cfg.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/channel_document.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/channel_sections.cpp
)
