list(APPEND KORVA_PLUGIN_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/relay/dev_cfg_base.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/relay/device_answer.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/relay/device_cfg_context.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/relay/gateway_url.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/relay/route_table.cpp
)
