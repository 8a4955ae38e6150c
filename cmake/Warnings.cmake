# Warning flags shared by every target of the project.
add_library(korva_warnings INTERFACE)
target_compile_options(korva_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wunused -Woverloaded-virtual -Wnull-dereference -Wformat=2
  -Wconversion -Wsign-conversion -Wold-style-cast)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks the annotations of gateway/hostlib/thread_annotations.h and host/rw_lock.h.
  target_compile_options(korva_warnings INTERFACE -Wthread-safety)
endif()
if(KORVA_WERROR)
  target_compile_options(korva_warnings INTERFACE -Werror)
endif()
