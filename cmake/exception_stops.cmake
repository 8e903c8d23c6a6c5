# Stops at unhandled exceptions in programs of others: a few of them in the plain run, all of them
# at length. Under the sanitizers they would take too long.
if(NOT MORVIK_ASAN)
    add_graded_test(exception_stops TIMEOUT 600 LONG_TIMEOUT 7200
        COMMAND morvik-python tests/exception_stops/proof.py)
    foreach(test ${build_name}/exception_stops ${build_name}/long/exception_stops)
        set_tests_properties(${test} PROPERTIES SKIP_RETURN_CODE 77)
    endforeach()
endif()
