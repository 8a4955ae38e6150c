# Warning flags shared by every target of the project.
add_library(korva_warnings INTERFACE)
target_compile_options(korva_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wunused -Woverloaded-virtual -Wnull-dereference -Wformat=2
  -Wconversion -Wsign-conversion -Wold-style-cast)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks the annotations of gateway/hostlib/thread_annotations.h and host/rw_lock.h; a lock
  # rule broken is an error in every clang build (the fuzz preset is the one CI builds).
  target_compile_options(korva_warnings INTERFACE -Wthread-safety -Werror=thread-safety)
endif()
if(KORVA_WERROR)
  target_compile_options(korva_warnings INTERFACE -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12's flow-dependent warnings fire falsely inside Boost and libstdc++ once inlined at -O2
    # and above (optional<> storage in Beast's parser, string concatenation, atomic stores); they
    # are still printed, but do not fail the build.
    target_compile_options(korva_warnings INTERFACE -Wno-error=maybe-uninitialized
      -Wno-error=restrict -Wno-error=stringop-overflow -Wno-error=array-bounds)
    # Under ThreadSanitizer GCC warns at every atomic_thread_fence, which Asio's scheduler uses
    # (the thread pools and timers run on it); the sanitizer still checks every access.
    if(KORVA_SANITIZE STREQUAL "thread")
      target_compile_options(korva_warnings INTERFACE -Wno-error=tsan)
    endif()
  endif()
endif()
