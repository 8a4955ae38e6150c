# Runtime and core services of korva_host.
list(APPEND KORVA_HOST_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/kvl_mutex.cpp
  ${CMAKE_CURRENT_LIST_DIR}/kvl_runtime.cpp
  ${CMAKE_CURRENT_LIST_DIR}/kvl_timer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/kvl_thread_pool.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host_log.cpp
  ${CMAKE_CURRENT_LIST_DIR}/async_log_writer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/log_rate_limiter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host_util.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host_config.cpp
  ${CMAKE_CURRENT_LIST_DIR}/json_text.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xml_base.cpp
  ${CMAKE_CURRENT_LIST_DIR}/restful_protocol.cpp
  ${CMAKE_CURRENT_LIST_DIR}/http_exchange.cpp
  ${CMAKE_CURRENT_LIST_DIR}/digest_math.cpp
  ${CMAKE_CURRENT_LIST_DIR}/digest_header.cpp
  ${CMAKE_CURRENT_LIST_DIR}/digest_check.cpp
  ${CMAKE_CURRENT_LIST_DIR}/client_address.cpp
  ${CMAKE_CURRENT_LIST_DIR}/login_lock_table.cpp
  ${CMAKE_CURRENT_LIST_DIR}/nonce_counts.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_context.cpp
)
