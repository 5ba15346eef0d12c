# SPDX-License-Identifier: BSD-3-Clause
# Reads constants from the sources, so that each is written once.

function(corvane_read_define file name result)
    file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/${file} line REGEX "^#define ${name} ")
    if(NOT line MATCHES "^#define ${name} +\"?([^\" ]+)")
        message(FATAL_ERROR "${file} does not define ${name}")
    endif()
    set(${result} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

foreach(part MAJOR MINOR PATCH)
    corvane_read_define(src/lib/Corvane/corvane_version.h CORVANE_VERSION_${part} CORVANE_VERSION_${part})
endforeach()
set(CORVANE_VERSION ${CORVANE_VERSION_MAJOR}.${CORVANE_VERSION_MINOR}.${CORVANE_VERSION_PATCH})

corvane_read_define(src/common/DBus/names.h CORVANE_SERVICE_ROOT default_service_root)
set(CORVANE_SERVICE_ROOT ${default_service_root} CACHE STRING "Well-known bus name of the service")
string(LENGTH "${CORVANE_SERVICE_ROOT}" service_root_length)
# Derived names such as ".MemoryPressure1" or ".Error.ApplicationAlreadyLaunching" must be valid bus names too.
if(NOT CORVANE_SERVICE_ROOT MATCHES "^([A-Za-z_][A-Za-z0-9_]*\\.)+Corvane$" OR service_root_length GREATER 220)
    message(FATAL_ERROR "CORVANE_SERVICE_ROOT is \"${CORVANE_SERVICE_ROOT}\"; expected a D-Bus name of at most 220 "
        "characters whose labels are letters, digits and underscores and whose last label is Corvane, "
        "such as ${default_service_root}")
endif()
string(REPLACE . / CORVANE_SERVICE_ROOT_PATH /${CORVANE_SERVICE_ROOT})

corvane_read_define(src/common/DBus/message_meter.h CORVANE_MAX_DESCRIPTORS default_max_descriptors)
set(CORVANE_MAX_DESCRIPTORS ${default_max_descriptors} CACHE STRING
    "File descriptors allowed in one message; a stock session bus drops the sender of more than 16")
if(NOT CORVANE_MAX_DESCRIPTORS MATCHES "^[1-9][0-9]*$" OR CORVANE_MAX_DESCRIPTORS GREATER 253)
    message(FATAL_ERROR "CORVANE_MAX_DESCRIPTORS is \"${CORVANE_MAX_DESCRIPTORS}\"; expected 1 to 253, the most that "
        "Linux passes at once")
endif()
