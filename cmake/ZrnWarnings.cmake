# Warning flags for the library's own targets.
function(zrn_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                                           -Wnon-virtual-dtor -Wformat=2)
endfunction()
