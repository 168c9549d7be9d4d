# The compiler settings that all targets of this project share.
if(PROJECT_IS_TOP_LEVEL)
  find_program(CCACHE ccache)
  if(CCACHE)
    # This setting lets ccache keep precompiled headers and the objects compiled with them.
    set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
  endif()
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
endif()

if(QXAWSUPLOADER_SANITIZE)
  # Sanitizers find more faults than the checks of the C library, which would hide faults from them.
  set(QXAWSUPLOADER_HARDENING OFF)
endif()
if(QXAWSUPLOADER_HARDENING)
  # Lets CMake link objects compiled with -fPIE as position-independent executables.
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
endif()

# qx_configure(TARGET): C++20, symbols that a shared library hides unless QX_EXPORT marks them, and the
# warnings, hardening and sanitizers of this build.
function(qx_configure target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(QXAWSUPLOADER_WARNINGS)
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
      -Woverloaded-virtual -Werror)
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
      target_compile_options(${target} PRIVATE -Wthread-safety)
    endif()
  endif()
  if(QXAWSUPLOADER_HARDENING)
    target_compile_options(${target} PRIVATE -fstack-protector-strong -Wformat -Wformat-security)
    # The C library checks buffers only in optimised code. A packager's own level comes first.
    if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
      target_compile_options(${target} PRIVATE
        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
    endif()
    target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now)
  endif()
  if(QXAWSUPLOADER_SANITIZE)
    target_compile_options(${target} PUBLIC -fsanitize=${QXAWSUPLOADER_SANITIZE}
      -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PUBLIC -fsanitize=${QXAWSUPLOADER_SANITIZE})
  endif()
endfunction()
