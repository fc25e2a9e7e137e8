# Runs the tests of the release build under valgrind (scripts/memcheck calls it with `ctest -S`).
# Tests that run a shell are left out, because valgrind would check the shell. The Opaque tests are
# left out too, because they run the same tests with another build of the module.
set(CTEST_SOURCE_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/..)
set(CTEST_BINARY_DIRECTORY ${CTEST_SOURCE_DIRECTORY}/build/release)
find_program(CTEST_MEMORYCHECK_COMMAND valgrind REQUIRED)
set(CTEST_MEMORYCHECK_COMMAND_OPTIONS
    "--quiet --leak-check=full --show-leak-kinds=definite,indirect,possible --error-exitcode=99")
cmake_host_system_information(RESULT processors QUERY NUMBER_OF_LOGICAL_CORES)
ctest_start(Experimental)
ctest_memcheck(EXCLUDE "^(VorlaTest|Opaque|symbols|folders|host_example|make_corpus)"
    EXCLUDE_FIXTURE corpus
    PARALLEL_LEVEL ${processors}
    RETURN_VALUE failed DEFECT_COUNT defects)
if(failed OR defects)
    message(FATAL_ERROR "memcheck: ${defects} defects, see build/release/Testing/Temporary")
endif()
