# Warning flags shared by every target of the project.
add_library(korva_warnings INTERFACE)
target_compile_options(korva_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wunused -Woverloaded-virtual -Wnull-dereference -Wformat=2)
if(KORVA_WERROR)
  target_compile_options(korva_warnings INTERFACE -Werror)
endif()
