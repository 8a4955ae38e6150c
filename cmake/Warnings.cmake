# Warning flags shared by every target of the project.
add_library(korva_warnings INTERFACE)
target_compile_options(korva_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wunused -Woverloaded-virtual -Wnull-dereference -Wformat=2)
if(KORVA_WERROR)
  target_compile_options(korva_warnings INTERFACE -Werror)
endif()

# Adds a subdirectory only when it has a CMakeLists.txt, so parts of the tree can be brought up
# one at a time.
macro(korva_optional_subdirectory dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endmacro()
