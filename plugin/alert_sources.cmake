list(APPEND KORVA_PLUGIN_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/alarm_bus_bodies.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/alarm_callback.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/alarm_translation.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/alarm_worker.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/alert_stream_session.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/event_pto.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/stream_table.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/alert/supervision.cpp
)
