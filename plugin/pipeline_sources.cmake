list(APPEND KORVA_PLUGIN_SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/digest_challenge.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/error_catalogue.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/error_rows.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/field_table.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/json_access.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/plugin_log.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/protocol_base.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/result_codes.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/pipeline/status_documents.cpp
)
