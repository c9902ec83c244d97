# The module's unittest suites, each a CTest case, importing the module from
# the build tree. Included from python/CMakeLists.txt, where the module is.
set(ZRN_PYTHON_TEST_ENV
  "PYTHONPATH=${ZRN_PYTHON_DIR}"
  "PYTHONDONTWRITEBYTECODE=1"
  "ZRN_SAMPLE_HOST=$<TARGET_FILE:sample_host>"
  "ZRN_PYTHON_EXAMPLES=${PROJECT_SOURCE_DIR}/examples/python")
if(ZRN_SANITIZE)
  # The interpreter is not built with the sanitizers: their runtimes must be
  # loaded before anything else. It leaks by design at exit, so no leak check.
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so
    OUTPUT_VARIABLE asan OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libubsan.so
    OUTPUT_VARIABLE ubsan OUTPUT_STRIP_TRAILING_WHITESPACE)
  list(APPEND ZRN_PYTHON_TEST_ENV "LD_PRELOAD=${asan}:${ubsan}" "ASAN_OPTIONS=detect_leaks=0")
endif()

foreach(suite values store regen inspect errors example)
  add_test(NAME Python.${suite}
    COMMAND "${ZRN_PYTHON_EXECUTABLE}" -m unittest -v test_${suite}
    WORKING_DIRECTORY "${CMAKE_CURRENT_LIST_DIR}")
  set_tests_properties(Python.${suite} PROPERTIES ENVIRONMENT "${ZRN_PYTHON_TEST_ENV}")
endforeach()
