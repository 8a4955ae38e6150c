list(APPEND KORVA_PLUGIN_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/dev_maintain.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/event_cfg.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/image_cfg.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/ptz_ctrl.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/record_operation.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/record_operation_playback.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/record_operation_result.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/handlers/record_operation_search.cpp
)
