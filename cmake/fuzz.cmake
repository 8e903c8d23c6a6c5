# Fuzzers: in the plain run the same rounds each time, at length rounds that nobody has seen.
add_executable(handlers_fuzz tests/fuzz/handlers_fuzz.cpp)
target_link_libraries(handlers_fuzz PRIVATE morvik_core morvik_host_embedded)
target_compile_definitions(handlers_fuzz PRIVATE
    MORVIK_HOST_EXECUTABLE="${MORVIK_HOST_executable}")
add_graded_test(fuzz/handlers TIMEOUT 600 LONG_TIMEOUT 900 COMMAND handlers_fuzz)

foreach(fuzzer entry_points handler_programs stops transport)
    add_graded_test(fuzz/${fuzzer} TIMEOUT 600 LONG_TIMEOUT 900
        COMMAND morvik-python tests/fuzz/${fuzzer}.py)
endforeach()
