list(APPEND KORVA_HOST_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/alarm_bus.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/deadline_timer.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/device_cfg_bus.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/device_manager.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/device_notifier.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/host_context.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/task_queue.cpp
)
