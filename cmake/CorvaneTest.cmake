# SPDX-License-Identifier: BSD-3-Clause

# corvane_add_test(tst_name [BUS] [VALGRIND] [RUN command...] [SOURCES file...] [LIBRARIES target...]
#                  [ENVIRONMENT NAME=value...])
#
# Adds the QtTest program tst_name, built from tst_name.cpp and the given sources, and runs it as a test.
#   BUS       runs it on its own session bus
#   RUN       runs it with this command; the program is the last argument
#   VALGRIND  also runs it under valgrind, as valgrind_tst_name (not in a sanitized build); without VALGRIND that test runs
#             only in ctest's configuration Valgrind
function(corvane_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "BUS;VALGRIND" "" "RUN;SOURCES;LIBRARIES;ENVIRONMENT")
    add_executable(${name} ${name}.cpp ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE Qt5::Test corvane_test_support ${arg_LIBRARIES})
    target_precompile_headers(${name} REUSE_FROM corvane_test_support)

    set(bus)
    if(arg_BUS)
        set(bus dbus-run-session --config-file=${PROJECT_SOURCE_DIR}/tests/support/bus.conf --)
    endif()
    # ctest limits the time of a program; QtTest's limit of five minutes per function is too short under valgrind.
    set(environment QTEST_FUNCTION_TIMEOUT=2000000000 LC_ALL=C.UTF-8 TZ=UTC QT_LOGGING_RULES= HOME=/nonexistent ${arg_ENVIRONMENT})

    add_test(NAME ${name} COMMAND ${bus} ${arg_RUN} $<TARGET_FILE:${name}>)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${environment}"
        ENVIRONMENT_MODIFICATION XDG_RUNTIME_DIR=unset: TIMEOUT 1200)
    if(NOT CORVANE_SANITIZE)
        set(configurations CONFIGURATIONS Valgrind)
        if(arg_VALGRIND)
            set(configurations)
        endif()
        # Includes our programs that it starts. Valgrind reports false errors in code that is compiled at run time.
        set(valgrind valgrind --quiet --error-exitcode=99 --vgdb=no
            --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite
            --suppressions=${PROJECT_SOURCE_DIR}/tests/support/valgrind.supp --child-silent-after-fork=yes
            --trace-children=yes --trace-children-skip=*/dbus-daemon,*/env,*/python3*,*/sh)
        add_test(NAME valgrind_${name} ${configurations}
            COMMAND ${bus} ${valgrind} ${arg_RUN} $<TARGET_FILE:${name}>)
        set_tests_properties(valgrind_${name} PROPERTIES
            ENVIRONMENT "${environment};CORVANE_UNDER_VALGRIND=1;QT_ENABLE_REGEXP_JIT=0"
            ENVIRONMENT_MODIFICATION XDG_RUNTIME_DIR=unset: TIMEOUT 3600 LABELS valgrind)
    endif()
endfunction()
