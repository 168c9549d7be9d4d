# The public headers, which hosts include as <qxawsuploader/NAME.h> and which are installed. Each is
# a copy of the header of that name in the tree, so that no host depends on the folders of the tree.
# A header that is not listed here is private to the library.
file(GLOB seams_and_values CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/*.h)
set(public_headers
  ${seams_and_values}
  ${PROJECT_SOURCE_DIR}/Classes/AWSCallbackStatus.h
  ${PROJECT_SOURCE_DIR}/Classes/HostCallbacks.h
  ${PROJECT_SOURCE_DIR}/Classes/Target_UploadQueue.h
  ${PROJECT_SOURCE_DIR}/Classes/Target_Uploader.h
  ${PROJECT_SOURCE_DIR}/http/MessageSignature.h)
if(QXAWSUPLOADER_BUILD_LINUX)
  list(APPEND public_headers
    ${PROJECT_SOURCE_DIR}/platforms/linux/LinuxPlatform.h
    ${PROJECT_SOURCE_DIR}/platforms/shared/Mediator.h)
endif()
# Hosts include the fakes as <qxawsuploader/testing/NAME.h>.
file(GLOB fakes CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/fakes/*.h)

# The folder that contains "qxawsuploader". It is filled when CMake configures the build, so that
# tools which only read the sources find the headers, too.
set(QX_PUBLIC_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)

# qx_copy_header(FROM TO): copies a header, which then includes other public headers as hosts do. TO
# is written only when it changes, because writing it makes all files that include it compile again.
function(qx_copy_header from to)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${from})
  file(READ ${from} text)
  string(REGEX REPLACE "#include \"fakes/" "#include \"qxawsuploader/testing/" text "${text}")
  string(REGEX REPLACE "#include \"(platform|Classes|http|platforms/[a-z]+)/"
    "#include \"qxawsuploader/" text "${text}")
  set(old "")
  if(EXISTS ${to})
    file(READ ${to} old)
  endif()
  if(NOT text STREQUAL old)
    file(WRITE ${to} "${text}")
  endif()
endfunction()

file(GLOB_RECURSE outdated ${QX_PUBLIC_INCLUDE_DIR}/*.h)
foreach(header IN LISTS public_headers fakes)
  cmake_path(GET header FILENAME name)
  if(header IN_LIST fakes)
    string(PREPEND name testing/)
  endif()
  set(copy ${QX_PUBLIC_INCLUDE_DIR}/qxawsuploader/${name})
  qx_copy_header(${header} ${copy})
  list(REMOVE_ITEM outdated ${copy})
endforeach()
if(outdated)
  file(REMOVE ${outdated})
endif()

# qx_public_includes(TARGET): lets programs that link the target include the public headers.
function(qx_public_includes target)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${QX_PUBLIC_INCLUDE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endfunction()
