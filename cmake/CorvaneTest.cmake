# SPDX-License-Identifier: BSD-3-Clause

find_program(CORVANE_DBUS_BROKER dbus-broker REQUIRED)
# Root becomes an ordinary user with this command. A checkout in root's home directory is not readable for that user.
set(as_ordinary_user setpriv --reuid=nobody --regid=nogroup --clear-groups)
execute_process(COMMAND ${as_ordinary_user} test -r ${CMAKE_CURRENT_SOURCE_DIR}/CMakeLists.txt
    RESULT_VARIABLE corvane_no_ordinary_user ERROR_QUIET)

# corvane_add_test(tst_name [BUS|OWN_BUS] [VALGRIND] [RUN command...] [SOURCES file...] [LIBRARIES target...]
#                  [ENVIRONMENT NAME=value...])
#
# Adds the QtTest program tst_name, built from tst_name.cpp and the given sources, and runs it as a test.
#   BUS       on a session bus of its own
#   OWN_BUS   the program, or the command of RUN, starts its bus: the program in the environment variable
#             CORVANE_BUS_PROGRAM, with the options of dbus-daemon. In the command, BUS_PROGRAM stands for it.
#   RUN       as the last argument of this command
#   VALGRIND  also under valgrind in each run, as valgrind_tst_name (not in a sanitized build). Other tests run under
#             valgrind only in ctest's configuration Valgrind.
# With BUS or OWN_BUS the test runs on dbus-daemon. It runs again on dbus-broker, as broker_tst_name, and, if root
# configures the build in a readable checkout, as an ordinary user, as user_tst_name (both not in a sanitized build).
function(corvane_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "BUS;OWN_BUS;VALGRIND" "" "RUN;SOURCES;LIBRARIES;ENVIRONMENT")
    add_executable(${name} ${name}.cpp ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE Qt5::Test corvane_test_support ${arg_LIBRARIES})
    target_precompile_headers(${name} REUSE_FROM corvane_test_support)

    # ctest limits the time of a program; QtTest's limit of five minutes per function is too short under valgrind.
    set(common_environment QTEST_FUNCTION_TIMEOUT=2000000000 LC_ALL=C.UTF-8 TZ=UTC QT_LOGGING_RULES= HOME=/nonexistent
        ${arg_ENVIRONMENT})

    set(bus_programs dbus-daemon)
    if((arg_BUS OR arg_OWN_BUS) AND NOT CORVANE_SANITIZE)
        list(PREPEND bus_programs ${PROJECT_SOURCE_DIR}/tests/support/private_broker.py)
    endif()
    foreach(bus_program IN LISTS bus_programs)
        set(test ${name})
        set(labels "")
        if(NOT bus_program STREQUAL dbus-daemon)
            set(test broker_${name})
            set(labels broker)
        endif()
        set(bus "")
        if(arg_BUS)
            set(bus dbus-run-session --dbus-daemon=${bus_program}
                --config-file=${PROJECT_SOURCE_DIR}/tests/support/bus.conf --)
        endif()
        string(REPLACE BUS_PROGRAM ${bus_program} run "${arg_RUN}")
        set(environment CORVANE_BUS_PROGRAM=${bus_program} ${common_environment})
        add_test(NAME ${test} COMMAND ${bus} ${run} $<TARGET_FILE:${name}>)
        set(tests ${test})
        if(NOT corvane_no_ordinary_user AND NOT CORVANE_SANITIZE AND (arg_BUS OR arg_OWN_BUS)
            AND bus_program STREQUAL dbus-daemon)
            add_test(NAME user_${test} COMMAND ${as_ordinary_user} ${bus} ${run} $<TARGET_FILE:${name}>)
            list(APPEND tests user_${test})
        endif()
        set_tests_properties(${tests} PROPERTIES ENVIRONMENT "${environment}"
            ENVIRONMENT_MODIFICATION XDG_RUNTIME_DIR=unset: TIMEOUT 1200 LABELS "${labels}")
        if(TEST user_${test})
            set_property(TEST user_${test} APPEND PROPERTY LABELS user)
        endif()
    endforeach()
    if(NOT CORVANE_SANITIZE) # on dbus-daemon, the last of the list
        set(configurations CONFIGURATIONS Valgrind)
        if(arg_VALGRIND)
            set(configurations)
        endif()
        # Valgrind follows the child processes of this project, and reports false errors in code of a JIT compiler.
        set(valgrind valgrind --quiet --error-exitcode=99 --vgdb=no
            --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite
            --suppressions=${PROJECT_SOURCE_DIR}/tests/support/valgrind.supp --child-silent-after-fork=yes
            --trace-children=yes --trace-children-skip=*/bash,*/dbus-daemon,*/env,*/mandoc,*/python3*,*/script,*/sh,*/systemd-analyze,*/zsh)
        add_test(NAME valgrind_${name} ${configurations}
            COMMAND ${bus} ${valgrind} ${run} $<TARGET_FILE:${name}>)
        set_tests_properties(valgrind_${name} PROPERTIES
            ENVIRONMENT "${environment};CORVANE_UNDER_VALGRIND=1;QT_ENABLE_REGEXP_JIT=0"
            ENVIRONMENT_MODIFICATION XDG_RUNTIME_DIR=unset: TIMEOUT 3600 LABELS valgrind)
    endif()
endfunction()
