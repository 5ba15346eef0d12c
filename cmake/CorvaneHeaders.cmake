# SPDX-License-Identifier: BSD-3-Clause

# corvane_forwarding_headers(directory Class...): writes the header directory/IntentsInvoker, which includes
# intents_invoker.h, and likewise for each class.
function(corvane_forwarding_headers directory)
    foreach(class ${ARGN})
        string(REGEX REPLACE "([a-z])([A-Z])" "\\1_\\2" header ${class})
        string(TOLOWER ${header} header)
        file(CONFIGURE OUTPUT ${directory}/${class} CONTENT "#include <Corvane/${header}.h>\n")
    endforeach()
endfunction()
