# The host's own regression tests, in parts that can run at the same time. Under the sanitizers they
# would take too long.
if(NOT MORVIK_ASAN)
    set(parts 6)
    foreach(part RANGE 1 ${parts})
        add_host_test(regrtest_${part} COMMAND
            morvik-python tests/regrtest/compare.py --part ${part}/${parts})
        set_tests_properties(${build_name}/regrtest_${part} PROPERTIES
            TIMEOUT 900 SKIP_RETURN_CODE 77)
    endforeach()
endif()
