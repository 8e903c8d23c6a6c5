# Clients of the protocol. They come from npm, into a folder that all builds share. The adapter
# runs the plain build: there is nothing more to see under the sanitizers.
if(NOT MORVIK_ASAN)
    find_program(MORVIK_NODE node)
    find_program(MORVIK_NPM npm)
    get_filename_component(builds ${PROJECT_BINARY_DIR} DIRECTORY)
    file(GLOB clients RELATIVE ${PROJECT_SOURCE_DIR} tests/dap/test_*.js)
    foreach(client ${clients})
        get_filename_component(name ${client} NAME_WE)
        set(name ${build_name}/dap/${name})
        add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/dap/run.sh
            ${MORVIK_HOST_executable} ${builds}/dap ${client}
            WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
        set_tests_properties(${name} PROPERTIES TIMEOUT 600)
        # Without them ctest lists it as not run.
        if(NOT MORVIK_NODE OR NOT MORVIK_NPM)
            set_tests_properties(${name} PROPERTIES DISABLED TRUE)
        endif()
    endforeach()

    # Emacs is a client where it has a package for that.
    find_program(MORVIK_EMACS emacs)
    if(MORVIK_EMACS AND NOT DEFINED CACHE{MORVIK_EMACS_IS_CLIENT})
        execute_process(
            COMMAND ${MORVIK_EMACS} --batch --eval "(progn (package-initialize) (require 'dap-mode))"
            RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
        if(failed EQUAL 0)
            set(MORVIK_EMACS_IS_CLIENT ON CACHE INTERNAL "Whether Emacs has dap-mode")
        endif()
    endif()
    add_test(NAME ${build_name}/dap/emacs COMMAND
        ${PROJECT_SOURCE_DIR}/tests/dap/emacs/run.sh ${MORVIK_HOST_executable})
    set_tests_properties(${build_name}/dap/emacs PROPERTIES TIMEOUT 300)
    if(NOT MORVIK_EMACS_IS_CLIENT)
        set_tests_properties(${build_name}/dap/emacs PROPERTIES DISABLED TRUE)
    endif()
endif()
