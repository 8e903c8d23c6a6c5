# The debug server where the launcher has started nothing: under the interpreter itself, and in a
# program that has it inside. Neither can load what the sanitizers have been compiled into.
if(MORVIK_ASAN)
    return()
endif()

# The host's shared library where it has one, position independent in any case.
find_package(Threads REQUIRED)
add_executable(embedding tests/embedding/embedding.cpp)
if(MORVIK_HOST_shared_library)
    get_filename_component(folder ${MORVIK_HOST_shared_library} REALPATH)
    get_filename_component(folder ${folder} DIRECTORY)
    list(JOIN MORVIK_HOST_run_paths ":" joined)
    target_link_libraries(embedding PRIVATE morvik_host_headers ${MORVIK_HOST_shared_library})
    target_link_options(embedding PRIVATE
        -Wl,--disable-new-dtags "-Wl,-rpath,${joined}:${folder}")
else()
    target_link_libraries(embedding PRIVATE morvik_host_library)
endif()
target_link_libraries(embedding PRIVATE morvik_flags Threads::Threads)
target_compile_options(embedding PRIVATE -fPIE)
target_link_options(embedding PRIVATE -pie)
target_compile_definitions(embedding PRIVATE
    MORVIK_HOST_EXECUTABLE="${MORVIK_HOST_executable}")
set_target_properties(embedding PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# What the adapter starts, and how fast, does not depend on what runs the test.
foreach(scenario ${scenarios})
    if(scenario MATCHES "/test_(sorrel|dap)_"
            AND NOT scenario MATCHES "/test_dap_(adapter|interpreters|speed)")
        get_filename_component(name ${scenario} NAME_WE)
        add_host_test(plain/${name}
            COMMAND ${MORVIK_HOST_executable} tests/python/runner.py ${scenario})
    endif()
endforeach()
