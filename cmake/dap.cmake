# Clients of the protocol. The adapter runs the plain build: under the sanitizers there is nothing
# more to see.
if(MORVIK_ASAN)
    return()
endif()

# add_client_test(<name> <needed> COMMAND...): a script under tests/dap/ with its arguments.
# Without one of the needed ctest lists it as not run.
function(add_client_test name needed script)
    set(name ${build_name}/dap/${name})
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/dap/${script}
        ${MORVIK_HOST_executable} ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_tests_properties(${name} PROPERTIES TIMEOUT 600)
    foreach(variable ${needed})
        if(NOT ${variable})
            set_tests_properties(${name} PROPERTIES DISABLED TRUE)
        endif()
    endforeach()
endfunction()

# What npm brings is kept in a folder that all builds share.
find_program(MORVIK_NODE node)
find_program(MORVIK_NPM npm)
get_filename_component(builds ${PROJECT_BINARY_DIR} DIRECTORY)
file(GLOB clients RELATIVE ${PROJECT_SOURCE_DIR} tests/dap/test_*.js)
foreach(client ${clients})
    get_filename_component(name ${client} NAME_WE)
    add_client_test(${name} "MORVIK_NODE;MORVIK_NPM" run.sh ${builds}/dap ${client})
endforeach()

find_program(MORVIK_EMACS emacs)
if(MORVIK_EMACS AND NOT MORVIK_EMACS_HAS_DAP_MODE)
    execute_process(
        COMMAND ${MORVIK_EMACS} --batch --eval "(progn (package-initialize) (require 'dap-mode))"
        RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
    if(failed EQUAL 0)
        set(MORVIK_EMACS_HAS_DAP_MODE ON CACHE INTERNAL "")
    endif()
endif()
add_client_test(emacs MORVIK_EMACS_HAS_DAP_MODE run_editor.sh ${MORVIK_EMACS} --batch
    --load tests/dap/emacs/test-dap-sorrel.el --funcall ert-run-tests-batch-and-exit)

find_program(MORVIK_NEOVIM nvim)
add_client_test(neovim MORVIK_NEOVIM run_editor.sh ${MORVIK_NEOVIM} --headless -u NONE
    "+luafile tests/dap/neovim/test.lua" +cquit)
