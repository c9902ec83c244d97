# The properties every shared library of zrn shares (libzrn and its
# components): hidden visibility, the versioned file name, and the export
# rules.

# Before 1.0 every minor version may break the ABI, so it is part of the
# file name hosts link against (libzrn.so.0.1); from 1.0 on the major alone.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(ZRN_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(ZRN_SOVERSION ${PROJECT_VERSION_MAJOR})
endif()

# Gives `target` the library's shared-object properties; hosts see it as
# zrn::`export_name`.
function(zrn_shared_library target export_name)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    VERSION ${PROJECT_VERSION}
    SOVERSION ${ZRN_SOVERSION}
    EXPORT_NAME ${export_name}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/zrn.map)
  # Calls between the library's own exported functions bind inside the
  # library (no interposing of them is supported), so they need no trip
  # through the procedure linkage table and can be inlined.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  # Keeps the standard library's and Boost's template instances out of the
  # exported symbols (scripts/check-exports.sh checks the result).
  target_link_options(${target} PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/zrn.map")
  zrn_set_warnings(${target})
endfunction()
